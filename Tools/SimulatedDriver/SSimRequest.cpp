#include "Tools/SimulatedDriver/SSimRequest.h"

#include "Common/CEventPacket.h"
#include "Common/ECommand.h"

#include <iterator>

namespace
{
// The wire carries the reference as 32 bits; that is all a driver ever sees of it.
std::uint32_t Reference(const OBJECT_KEY& key_I)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(key_I.mReference));
}

ESimRequestKind KindOfLastKey(const OBJECT_KEY& last_I)
{
    switch (last_I.Identifier())
    {
    case EParameterIDFileVersion:
        return ESimRequestKind::eFileVersion;
    case EParameterIDTabletSystemID:
        return ESimRequestKind::eSystemID;
    case EParameterIDTabletMultiTouchCapabilities:
        return ESimRequestKind::eTouchCapabilities;
    case EParameterIDModel:
        return ESimRequestKind::eModel;
    case EParameterIDSerialNumber:
        return ESimRequestKind::eSerialNumber;
    case EParameterIDSize:
        return Reference(last_I) == EParameterIDTabletBlock ? ESimRequestKind::eTabletBlockSize
                                                            : ESimRequestKind::eOther;
    case EParameterIDTabletBlock:
        return ESimRequestKind::eTabletBlock;
    case EParameterIDCount:
        return Reference(last_I) == EObjectIDTablet ? ESimRequestKind::eTabletCount
                                                    : ESimRequestKind::eOther;
    case EParameterIDLastTabletUsed:
        return ESimRequestKind::eLastTabletUsed;
    case EParameterIDLastTabletUsedTimestamp:
        return ESimRequestKind::eLastTabletUsedTimestamp;
    default:
        return ESimRequestKind::eOther;
    }
}

const char* CommandName(int command_I)
{
    static constexpr const char* kNames[] = {"do-nothing",  "get",       "set",
                                             "create",      "destroy",   "flush",
                                             "get-default", "subscribe", "unsubscribe"};
    if (command_I >= 0 && command_I < static_cast<int>(std::size(kNames)))
    {
        return kNames[command_I];
    }
    return "command?";
}
} // namespace

SSimRequest ClassifySimRequest(const CEventPacket& packet_I)
{
    SSimRequest request;
    request.command = packet_I.Command();

    bool touchAPI = false;
    bool touchClient = false;
    bool graphicsTablet = false;
    bool index = false;
    // A decoded packet holds at most nine keys and a sentinel; ObjectKey clamps anyway.
    for (unsigned int place = 0; place <= MAX_KEY; ++place)
    {
        const OBJECT_KEY& key = *packet_I.ObjectKey(place);
        EEventIdentifier identifier = key.Identifier();
        if (identifier == EObjectIDNothing)
        {
            break;
        }
        if (identifier == EObjectIDTablet && request.tabletAddress == ESimTabletAddress::eNone)
        {
            request.tabletReference = Reference(key);
            switch (key.mAddressingMode)
            {
            case EAddrModeByLocalIndex:
                request.tabletAddress = ESimTabletAddress::eLocalIndex;
                break;
            case EAddrModeAllSubordinate:
                request.tabletAddress = ESimTabletAddress::eAll;
                break;
            default:
                request.tabletAddress = ESimTabletAddress::eSystemID;
                break;
            }
        }
        touchClient = touchClient || (touchAPI && identifier == EParameterIDMultiTouchAPIClient);
        touchAPI = identifier == EObjectIDMultiTouchAPI;
        graphicsTablet = graphicsTablet || identifier == EParameterIDGraphicsTablet;
        index = index || identifier == EParameterIDIndex;
    }

    const OBJECT_KEY& last = *packet_I.LastObjectKey();
    request.lastIdentifier = last.Identifier();
    request.lastMode = last.mAddressingMode;

    if (touchClient)
    {
        request.kind = ESimRequestKind::eTouchClient;
    }
    else if (ESimRequestKind kind = KindOfLastKey(last); kind != ESimRequestKind::eOther)
    {
        request.kind = kind;
    }
    else if (graphicsTablet && request.command == ECommandCreate)
    {
        request.kind = ESimRequestKind::eCreate;
    }
    else if (graphicsTablet && request.command == ECommandDestroy)
    {
        request.kind = ESimRequestKind::eDestroyTablet;
    }
    else if (index)
    {
        request.kind = ESimRequestKind::eIndex;
    }
    return request;
}

std::string DescribeSimRequest(const SSimRequest& request_I)
{
    std::string text = CommandName(request_I.command);
    text += " ";
    text += SimRequestKindName(request_I.kind);
    if (request_I.kind == ESimRequestKind::eOther)
    {
        text += " (parameter " + std::to_string(request_I.lastIdentifier) + ")";
    }
    switch (request_I.tabletAddress)
    {
    case ESimTabletAddress::eNone:
        break;
    case ESimTabletAddress::eLocalIndex:
        text += " tablet #" + std::to_string(request_I.tabletReference);
        break;
    case ESimTabletAddress::eSystemID:
        text += " tablet ID " + std::to_string(request_I.tabletReference);
        break;
    case ESimTabletAddress::eAll:
        text += " all tablets";
        break;
    }
    return text;
}
