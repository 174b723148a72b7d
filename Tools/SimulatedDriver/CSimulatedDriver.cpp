#include "Tools/SimulatedDriver/CSimulatedDriver.h"

#include "Common/CEventPacket.h"
#include "Common/ECommand.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"

#include <cstring>
#include <optional>
#include <string>

namespace
{
constexpr std::uint16_t kNoTablet = 0xFFFF;

// The packet's data as a value of exactly sizeof(T) bytes, or nothing.
template <typename T> std::optional<T> DataAs(const CEventPacket& packet_I)
{
    if (packet_I.Buffer() == nullptr || packet_I.SizeOfData() != sizeof(T))
    {
        return std::nullopt;
    }
    T value{};
    std::memcpy(&value, packet_I.Buffer(), sizeof(T));
    return value;
}

void PackSettings(CEventPacket& packet_IO, const CSettingsObject& object_I)
{
    packet_IO.PackData_(object_I.GetASN1Binary());
}

// The settings map in the packet's data, or null (no data, or not an archive of a map).
std::shared_ptr<CSettingsMap> DataAsMap(CEventPacket& packet_IO)
{
    if (packet_IO.Buffer() == nullptr || packet_IO.SizeOfData() == 0)
    {
        return nullptr;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(packet_IO.Buffer());
    std::vector<std::uint8_t> archive(bytes, bytes + packet_IO.SizeOfData());
    std::string failure;
    return CSettingsMap::CastToMap(CSettingsObject::ReadFromASN1Binary(archive, failure), false);
}
} // namespace

CSimulatedDriver::CSimulatedDriver(SSimDriverConfig config_I)
    : mConfig(std::move(config_I)), mTablets(mConfig.tablets)
{
}

void CSimulatedDriver::Reload(SSimDriverConfig config_I)
{
    std::vector<SSimTablet> tablets = config_I.tablets;
    for (size_t i = 0; i < tablets.size() && i < mTablets.size() && i < mConfig.tablets.size(); ++i)
    {
        if (tablets[i].systemID == mConfig.tablets[i].systemID)
        {
            tablets[i].systemID = mTablets[i].systemID;
        }
    }
    mConfig = std::move(config_I);
    mTablets = std::move(tablets);
}

int CSimulatedDriver::FindTablet(const SSimRequest& request_I) const
{
    switch (request_I.tabletAddress)
    {
    case ESimTabletAddress::eLocalIndex:
        return request_I.tabletReference < mTablets.size()
                   ? static_cast<int>(request_I.tabletReference)
                   : -1;
    case ESimTabletAddress::eSystemID:
        for (size_t i = 0; i < mTablets.size(); ++i)
        {
            if (mTablets[i].systemID == request_I.tabletReference)
            {
                return static_cast<int>(i);
            }
        }
        return -1;
    case ESimTabletAddress::eNone:
    case ESimTabletAddress::eAll:
        break;
    }
    return -1;
}

KELSTATUS CSimulatedDriver::Answer(CEventPacket& packet_IO, KELSTATUS status_I)
{
    packet_IO.SetStatus(status_I);
    return status_I;
}

KELSTATUS CSimulatedDriver::Process(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    const bool get = request_I.command == ECommandGet;
    switch (request_I.kind)
    {
    case ESimRequestKind::eFileVersion:
        if (!get)
        {
            return Answer(packet_IO, KELSTATUS_METHOD_NOT_IMPLEMENTED);
        }
        packet_IO.PackData(sizeof(FileVersion), &mConfig.version);
        return Answer(packet_IO, KELSTATUS_SUCCESS);

    case ESimRequestKind::eSystemID:
        return SystemID(packet_IO, request_I);

    case ESimRequestKind::eTouchCapabilities:
        return TouchCapabilities(packet_IO, request_I);

    case ESimRequestKind::eModel:
    case ESimRequestKind::eSerialNumber:
        return TabletText(packet_IO, request_I);

    case ESimRequestKind::eTabletBlockSize:
        if (!get)
        {
            return Answer(packet_IO, KELSTATUS_METHOD_NOT_IMPLEMENTED);
        }
        if (!mHasTabletBlock)
        {
            return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
        }
        packet_IO.PackData_(static_cast<std::uint32_t>(mTabletBlock.size()));
        return Answer(packet_IO, KELSTATUS_SUCCESS);

    case ESimRequestKind::eTabletBlock:
        return TabletBlock(packet_IO, request_I);

    case ESimRequestKind::eTabletCount:
    {
        std::optional<std::uint16_t> fixed =
            request_I.lastMode == EAddrModeByID ? mConfig.countByID : mConfig.countByIndex;
        packet_IO.PackData_(fixed.value_or(static_cast<std::uint16_t>(mTablets.size())));
        return Answer(packet_IO, KELSTATUS_SUCCESS);
    }

    case ESimRequestKind::eLastTabletUsed:
    {
        std::uint16_t id = kNoTablet;
        if (mConfig.lastTabletUsed >= 0 &&
            static_cast<size_t>(mConfig.lastTabletUsed) < mTablets.size())
        {
            id = mTablets[static_cast<size_t>(mConfig.lastTabletUsed)].systemID;
        }
        packet_IO.PackData_(id);
        return Answer(packet_IO, KELSTATUS_SUCCESS);
    }

    case ESimRequestKind::eLastTabletUsedTimestamp:
        packet_IO.PackData_(mConfig.lastTabletUsedTimestamp);
        return Answer(packet_IO, KELSTATUS_SUCCESS);

    case ESimRequestKind::eTouchClient:
        return TouchClient(packet_IO, request_I);

    case ESimRequestKind::eCreate:
        if (mConfig.createStatus != KELSTATUS_SUCCESS)
        {
            return Answer(packet_IO, mConfig.createStatus);
        }
        return GenericAnswer(packet_IO, request_I);

    case ESimRequestKind::eIndex:
        if (mConfig.indexStatus != KELSTATUS_SUCCESS)
        {
            return Answer(packet_IO, mConfig.indexStatus);
        }
        return GenericAnswer(packet_IO, request_I);

    case ESimRequestKind::eDestroyTablet:
        return DestroyTablet(packet_IO);

    case ESimRequestKind::eAny:
    case ESimRequestKind::eByteOrder:
    case ESimRequestKind::eAppleEvent:
    case ESimRequestKind::eOther:
        break;
    }
    if (request_I.tabletAddress != ESimTabletAddress::eNone &&
        request_I.tabletAddress != ESimTabletAddress::eAll && FindTablet(request_I) < 0)
    {
        return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
    }
    return GenericAnswer(packet_IO, request_I);
}

KELSTATUS CSimulatedDriver::GenericAnswer(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    std::shared_ptr<CSettingsMap> answer = CSettingsMap::New();
    answer->SetKeyAndString("Driver", mConfig.name);
    answer->SetKeyAndInteger("Command", request_I.command);
    answer->SetKeyAndInteger("Parameter", request_I.lastIdentifier);
    int tablet = FindTablet(request_I);
    if (tablet >= 0)
    {
        answer->SetKeyAndInteger("TabletIndex", tablet);
        answer->SetKeyAndInteger("SystemID", mTablets[static_cast<size_t>(tablet)].systemID);
    }
    PackSettings(packet_IO, *answer);
    return Answer(packet_IO, KELSTATUS_SUCCESS);
}

KELSTATUS CSimulatedDriver::SystemID(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    int tablet = FindTablet(request_I);
    if (request_I.command == ECommandGet)
    {
        // No tablet at this index is an answer, not a failure: it ends the coordinator's walk.
        packet_IO.PackData_(tablet < 0 ? kNoTablet
                                       : mTablets[static_cast<size_t>(tablet)].systemID);
        return Answer(packet_IO, KELSTATUS_SUCCESS);
    }
    if (request_I.command != ECommandSet)
    {
        return Answer(packet_IO, KELSTATUS_METHOD_NOT_IMPLEMENTED);
    }
    if (tablet < 0)
    {
        return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
    }
    std::optional<std::uint16_t> id = DataAs<std::uint16_t>(packet_IO);
    if (!id)
    {
        return Answer(packet_IO, KELSTATUS_API_BAD_DATA_SIZE);
    }
    mTablets[static_cast<size_t>(tablet)].systemID = *id;
    return Answer(packet_IO, KELSTATUS_SUCCESS);
}

KELSTATUS CSimulatedDriver::TouchCapabilities(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    if (request_I.command != ECommandGet)
    {
        return Answer(packet_IO, KELSTATUS_METHOD_NOT_IMPLEMENTED);
    }
    int tablet = FindTablet(request_I);
    if (tablet < 0 || !mTablets[static_cast<size_t>(tablet)].touchCapabilities)
    {
        packet_IO.PackData(0, nullptr);
        return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
    }
    PackSettings(packet_IO, *mTablets[static_cast<size_t>(tablet)].touchCapabilities);
    return Answer(packet_IO, KELSTATUS_SUCCESS);
}

KELSTATUS CSimulatedDriver::TabletText(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    if (request_I.command != ECommandGet)
    {
        return Answer(packet_IO, KELSTATUS_METHOD_NOT_IMPLEMENTED);
    }
    const int tablet = FindTablet(request_I);
    if (tablet < 0)
    {
        return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
    }
    const SSimTablet& found = mTablets[static_cast<size_t>(tablet)];
    const std::string& text =
        request_I.kind == ESimRequestKind::eModel ? found.model : found.serialNumber;
    if (text.empty())
    {
        return Answer(packet_IO, KELSTATUS_RESOURCE_MISSING);
    }
    packet_IO.PackData(static_cast<unsigned int>(text.size() + 1), text.c_str());
    return Answer(packet_IO, KELSTATUS_SUCCESS);
}

KELSTATUS CSimulatedDriver::TabletBlock(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    if (request_I.command == ECommandSet)
    {
        const auto* bytes = static_cast<const std::uint8_t*>(packet_IO.Buffer());
        mTabletBlock.assign(bytes, bytes == nullptr ? bytes : bytes + packet_IO.SizeOfData());
        mHasTabletBlock = true;
        return Answer(packet_IO, KELSTATUS_SUCCESS);
    }
    if (request_I.command != ECommandGet)
    {
        return Answer(packet_IO, KELSTATUS_METHOD_NOT_IMPLEMENTED);
    }
    if (!mHasTabletBlock)
    {
        return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
    }
    packet_IO.PackData_(mTabletBlock);
    return Answer(packet_IO, KELSTATUS_SUCCESS);
}

KELSTATUS CSimulatedDriver::TouchClient(CEventPacket& packet_IO, const SSimRequest& request_I)
{
    if (request_I.command == ECommandGet)
    {
        std::shared_ptr<CSettingsArray> clients = CSettingsArray::New();
        for (const SSimTouchClientRegistration& client : mTouchClients)
        {
            std::shared_ptr<CSettingsMap> entry = CSettingsMap::New();
            entry->SetKeyAndInteger("Command", client.command);
            // A null would be archived as a node that no reader takes back: leave it out.
            if (client.registration)
            {
                entry->SetKeyAndObject("Registration", client.registration);
            }
            clients->AddObject(entry);
        }
        PackSettings(packet_IO, *clients);
        return Answer(packet_IO, KELSTATUS_SUCCESS);
    }
    mTouchClients.push_back({request_I.command, DataAsMap(packet_IO)});
    return Answer(packet_IO, KELSTATUS_SUCCESS);
}

KELSTATUS CSimulatedDriver::DestroyTablet(CEventPacket& packet_IO)
{
    std::optional<std::uint16_t> id = DataAs<std::uint16_t>(packet_IO);
    if (!id)
    {
        return Answer(packet_IO, KELSTATUS_API_BAD_DATA_SIZE);
    }
    for (auto tablet = mTablets.begin(); tablet != mTablets.end(); ++tablet)
    {
        if (tablet->systemID == *id)
        {
            mTablets.erase(tablet);
            return Answer(packet_IO, KELSTATUS_SUCCESS);
        }
    }
    return Answer(packet_IO, KELSTATUS_OBJECT_NOT_FOUND);
}
