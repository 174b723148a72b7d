#include "Tests/Reliability/RequestMix.h"

#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"

#include <cstdio>

namespace reliability
{
namespace
{
// The touch API version query has no name of its own.
constexpr auto kTouchAPIVersionQuery = static_cast<EEventIdentifier>(508);
// Parameters that a simulated driver answers with its generic answer.
constexpr EEventIdentifier kTabletParameters[] = {EParameterIDName, EParameterIDFriendlyName,
                                                  EParameterIDPressureRange1,
                                                  EParameterIDOrientation};

std::uint32_t RequestWord(unsigned int client_I, unsigned int sequence_I)
{
    return (client_I << 24) | (sequence_I & 0xFFFFFF);
}

// What the coordinator answers to the query for the value a client sends.
long long TouchAPIAnswer(unsigned int value_I)
{
    return value_I <= 1 ? 3 : value_I <= 4 ? 0 : 2;
}

std::string Hex(unsigned int value_I)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%04X", value_I);
    return text;
}

// The tablet and parameter of a routed request.
unsigned int TabletOf(unsigned int client_I, unsigned int sequence_I,
                      const SExpectations& expected_I)
{
    const auto tablets = static_cast<unsigned int>(expected_I.mDriverOfTablet.size());
    if (tablets == 0)
    {
        return 0;
    }
    unsigned int tablet = (client_I + sequence_I / 4) % tablets;
    for (unsigned int tried = 0;
         tried < tablets && expected_I.mDriverOfTablet[tablet] == expected_I.mAvoidedDriver;
         ++tried)
    {
        tablet = (tablet + 1) % tablets;
    }
    return tablet;
}

EEventIdentifier ParameterOf(unsigned int sequence_I)
{
    return kTabletParameters[(sequence_I / 4) % std::size(kTabletParameters)];
}
} // namespace

CEventPacket TabletRequest(unsigned int systemID_I, EEventIdentifier parameter_I)
{
    CEventPacket packet;
    packet.SetCommand(ECommandGet);
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EObjectIDTablet, systemID_I, EAddrModeByID);
    packet.AddKeyInt(parameter_I, 0, EAddrModeByIndex);
    return packet;
}

std::string DriverOfAnswer(CEventPacket& answer_IO)
{
    std::shared_ptr<CSettingsMap> map =
        answer_IO.UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
    return map ? map->StringForKeyWithDefault("Driver", "") : std::string();
}

CEventPacket MakeRequest(unsigned int client_I, unsigned int sequence_I,
                         const SExpectations& expected_I)
{
    CEventPacket packet;
    switch (sequence_I % 4)
    {
    case 0:
        packet.SetCommand(ECommandGet);
        packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
        packet.AddKeyInt(EParameterIDCount, EObjectIDTablet, EAddrModeByIndex);
        break;
    case 1:
        packet.SetCommand(ECommandGet);
        packet.AddKeyInt(EObjectIDRoutingTable, 0, EAddrModeByIndex);
        packet.AddKeyInt(EParameterIDFileVersion, 0, EAddrModeByIndex);
        break;
    case 2:
        packet.SetCommand(ECommandGet);
        packet.AddKeyInt(EObjectIDMultiTouchAPI, 0, EAddrModeByIndex);
        packet.AddKeyInt(kTouchAPIVersionQuery, 0, EAddrModeByIndex);
        packet.PackData_(std::shared_ptr<CSettingsObject>(
            CSettingsInteger::New(static_cast<long long>((client_I + sequence_I / 4) % 7))));
        break;
    default:
        packet = TabletRequest(TabletOf(client_I, sequence_I, expected_I), ParameterOf(sequence_I));
        break;
    }
    packet.SetRequestWord(RequestWord(client_I, sequence_I));
    return packet;
}

std::string CheckAnswer(unsigned int client_I, unsigned int sequence_I,
                        const SExpectations& expected_I, KELSTATUS status_I,
                        CEventPacket& answer_IO)
{
    const std::string what =
        "request " + std::to_string(sequence_I) + " of client " + std::to_string(client_I) + ": ";
    if (status_I != KELSTATUS_SUCCESS || answer_IO.Status() != KELSTATUS_SUCCESS)
    {
        return what + "status " + Hex(status_I) + ", packet status " + Hex(answer_IO.Status());
    }
    if (answer_IO.RequestWord() != RequestWord(client_I, sequence_I))
    {
        return what + "the answer to request word " + std::to_string(answer_IO.RequestWord());
    }
    switch (sequence_I % 4)
    {
    case 0:
    {
        const auto count = answer_IO.UnPackData_<std::uint16_t>(0xFFFF);
        return count == expected_I.mTabletCount ? std::string()
                                                : what + "tablet count " + std::to_string(count);
    }
    case 1:
    {
        const auto version = answer_IO.UnPackData_<std::uint32_t>(0);
        return version == expected_I.mProtocolVersion
                   ? std::string()
                   : what + "protocol version " + std::to_string(version);
    }
    case 2:
    {
        const unsigned int sent = (client_I + sequence_I / 4) % 7;
        std::shared_ptr<CSettingsObject> answer =
            answer_IO.UnPackData_<std::shared_ptr<CSettingsObject>>(nullptr);
        auto integer = answer ? answer->CastTo<CSettingsInteger>() : nullptr;
        if (!integer || integer->GetValue() != TouchAPIAnswer(sent))
        {
            return what + "touch API answer " +
                   (integer ? std::to_string(integer->GetValue()) : "missing") + " for " +
                   std::to_string(sent);
        }
        return std::string();
    }
    default:
    {
        const unsigned int tablet = TabletOf(client_I, sequence_I, expected_I);
        std::shared_ptr<CSettingsMap> map =
            answer_IO.UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
        if (!map)
        {
            return what + "no generic answer";
        }
        const std::string driver = map->StringForKeyWithDefault("Driver", "");
        const long long systemID = map->IntegerForKeyWithDefault("SystemID", -1);
        const long long parameter = map->IntegerForKeyWithDefault("Parameter", -1);
        if (tablet >= expected_I.mDriverOfTablet.size() ||
            driver != expected_I.mDriverOfTablet[tablet] || systemID != tablet ||
            parameter != ParameterOf(sequence_I))
        {
            return what + "tablet " + std::to_string(tablet) + " answered by \"" + driver +
                   "\" as tablet " + std::to_string(systemID) + ", parameter " +
                   std::to_string(parameter);
        }
        return std::string();
    }
    }
}

} // namespace reliability
