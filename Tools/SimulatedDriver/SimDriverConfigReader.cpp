#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include "Common/ECommand.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsString.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <set>
#include <stdexcept>

namespace
{
// One refusal, carrying the line that names the offending key.
struct SConfigError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

[[noreturn]] void Refuse(const std::string& where_I, const std::string& what_I)
{
    throw SConfigError(where_I + ": " + what_I);
}

// Text from the file, quoted for a one-line message: control characters and bytes above
// 0x7E are written \xNN, and a long text is cut.
std::string Quote(const std::string& text_I)
{
    constexpr size_t kMaxShown = 64;
    std::string quoted = "\"";
    for (size_t i = 0; i < text_I.size() && i < kMaxShown; ++i)
    {
        const auto c = static_cast<unsigned char>(text_I[i]);
        if (c < 0x20 || c > 0x7E || c == '"' || c == '\\')
        {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\x%02X", c);
            quoted += escaped;
        }
        else
        {
            quoted += static_cast<char>(c);
        }
    }
    if (text_I.size() > kMaxShown)
    {
        quoted += "...";
    }
    return quoted + "\"";
}

std::string Join(const std::string& parent_I, const std::string& key_I)
{
    return parent_I.empty() ? key_I : parent_I + "." + key_I;
}

// The keys of one object, checked against the ones its level knows.
void CheckKeys(const CSettingsMap& map_I, const std::string& where_I,
               std::initializer_list<const char*> known_I)
{
    std::set<std::string> known(known_I.begin(), known_I.end());
    for (const std::string& key : map_I.GetKeys())
    {
        if (known.count(key) == 0)
        {
            std::string list;
            for (const char* name : known_I)
            {
                list += list.empty() ? "" : ", ";
                list += name;
            }
            Refuse(where_I.empty() ? std::string("configuration") : where_I,
                   "unknown key " + Quote(key) + " (known: " + list + ")");
        }
    }
}

// Typed access with a clear complaint: a value of another type is refused, never converted.
std::string TypeOf(const CSettingsMap& map_I, const std::string& key_I)
{
    return map_I.TypeNameForKeyOrEmpty(key_I);
}

bool Has(const CSettingsMap& map_I, const std::string& key_I)
{
    return !TypeOf(map_I, key_I).empty();
}

long long Integer(const CSettingsMap& map_I, const std::string& key_I, const std::string& where_I,
                  long long min_I, long long max_I)
{
    std::string range =
        "must be an integer from " + std::to_string(min_I) + " to " + std::to_string(max_I);
    if (TypeOf(map_I, key_I) != "integer")
    {
        Refuse(where_I, range);
    }
    long long value = map_I.IntegerForKeyWithDefault(key_I, 0);
    if (value < min_I || value > max_I)
    {
        Refuse(where_I, range + ", not " + std::to_string(value));
    }
    return value;
}

std::string String(const CSettingsMap& map_I, const std::string& key_I, const std::string& where_I)
{
    if (TypeOf(map_I, key_I) != "string")
    {
        Refuse(where_I, "must be a string");
    }
    return map_I.StringForKeyWithDefault(key_I, std::string());
}

bool Bool(const CSettingsMap& map_I, const std::string& key_I, const std::string& where_I)
{
    if (TypeOf(map_I, key_I) != "bool")
    {
        Refuse(where_I, "must be true or false");
    }
    return map_I.BoolForKeyWithDefault(key_I, false);
}

std::shared_ptr<CSettingsMap> Map(const CSettingsMap& map_I, const std::string& key_I,
                                  const std::string& where_I)
{
    std::shared_ptr<CSettingsMap> map =
        CSettingsMap::CastToMap(map_I.ObjectForKey(key_I), /*reportFailure=*/false);
    if (!map)
    {
        Refuse(where_I, "must be an object");
    }
    return map;
}

std::shared_ptr<CSettingsArray> Array(const CSettingsMap& map_I, const std::string& key_I,
                                      const std::string& where_I)
{
    std::shared_ptr<CSettingsArray> array =
        CSettingsArray::CastToArray(map_I.ObjectForKey(key_I), /*reportFailure=*/false);
    if (!array)
    {
        Refuse(where_I, "must be an array");
    }
    return array;
}

// The element at index_I of an array of objects.
std::shared_ptr<CSettingsMap> Element(const CSettingsArray& array_I, size_t index_I,
                                      const std::string& where_I)
{
    std::shared_ptr<CSettingsMap> map =
        CSettingsMap::CastToMap(array_I.ObjectForIndex(index_I), /*reportFailure=*/false);
    if (!map)
    {
        Refuse(where_I, "must be an object");
    }
    return map;
}

// Command names as the configuration writes them: the enumerator without "ECommand".
std::optional<int> CommandFromName(const std::string& name_I)
{
    struct SCommandName
    {
        const char* name;
        int value;
    };
    static constexpr SCommandName kNames[] = {
#define KEL_SIM_COMMAND_ENTRY(name, value) {#name, value},
        KEL_COMMAND_LIST(KEL_SIM_COMMAND_ENTRY)
#undef KEL_SIM_COMMAND_ENTRY
    };
    const std::string prefix = "ECommand";
    for (const SCommandName& entry : kNames)
    {
        std::string name = entry.name;
        if (name.rfind(prefix, 0) == 0 && name.substr(prefix.size()) == name_I)
        {
            return entry.value;
        }
    }
    return std::nullopt;
}

SSimTablet ReadTablet(const CSettingsMap& map_I, size_t index_I, const std::string& where_I)
{
    CheckKeys(map_I, where_I, {"SystemID", "Model", "SerialNumber", "TouchCapabilities"});
    SSimTablet tablet;
    tablet.systemID = static_cast<std::uint16_t>(index_I);
    if (Has(map_I, "SystemID"))
    {
        tablet.systemID = static_cast<std::uint16_t>(
            Integer(map_I, "SystemID", Join(where_I, "SystemID"), 0, 0xFFFF));
    }
    if (Has(map_I, "Model"))
    {
        tablet.model = String(map_I, "Model", Join(where_I, "Model"));
    }
    if (Has(map_I, "SerialNumber"))
    {
        tablet.serialNumber = String(map_I, "SerialNumber", Join(where_I, "SerialNumber"));
    }
    if (map_I.IsKeyPresent("TouchCapabilities"))
    {
        tablet.touchCapabilities =
            Map(map_I, "TouchCapabilities", Join(where_I, "TouchCapabilities"));
    }
    return tablet;
}

SSimFault ReadFault(const CSettingsMap& map_I, const std::string& where_I)
{
    CheckKeys(map_I, where_I,
              {"Request", "Command", "Action", "Milliseconds", "Skip", "Times", "ExitCode"});
    SSimFault fault;
    if (!Has(map_I, "Request") || !Has(map_I, "Action"))
    {
        Refuse(where_I, "needs \"Request\" and \"Action\"");
    }
    std::string request = String(map_I, "Request", Join(where_I, "Request"));
    std::optional<ESimRequestKind> kind = SimRequestKindFromName(request);
    if (!kind)
    {
        Refuse(Join(where_I, "Request"),
               "unknown request " + Quote(request) + " (known: " + SimRequestKindNames() + ")");
    }
    fault.request = *kind;

    std::string action = String(map_I, "Action", Join(where_I, "Action"));
    if (action == "slow")
    {
        fault.action = ESimFaultAction::eSlow;
    }
    else if (action == "hang")
    {
        fault.action = ESimFaultAction::eHang;
        fault.milliseconds = 3600 * 1000;
    }
    else if (action == "empty")
    {
        fault.action = ESimFaultAction::eEmpty;
    }
    else if (action == "exit")
    {
        fault.action = ESimFaultAction::eExit;
    }
    else
    {
        Refuse(Join(where_I, "Action"),
               "unknown action " + Quote(action) + " (known: slow, hang, empty, exit)");
    }

    if (Has(map_I, "Command"))
    {
        std::string command = String(map_I, "Command", Join(where_I, "Command"));
        fault.command = CommandFromName(command);
        if (!fault.command)
        {
            Refuse(Join(where_I, "Command"),
                   "unknown command " + Quote(command) +
                       " (known: DoNothing, Get, Set, Create, Destroy, Flush, GetDefault, "
                       "Subscribe, Unsubscribe)");
        }
    }
    if (Has(map_I, "Milliseconds"))
    {
        fault.milliseconds = static_cast<unsigned int>(
            Integer(map_I, "Milliseconds", Join(where_I, "Milliseconds"), 0, 24 * 3600 * 1000));
    }
    if (Has(map_I, "Skip"))
    {
        fault.skip = static_cast<unsigned int>(
            Integer(map_I, "Skip", Join(where_I, "Skip"), 0, std::numeric_limits<int>::max()));
    }
    if (Has(map_I, "Times"))
    {
        fault.times = static_cast<unsigned int>(
            Integer(map_I, "Times", Join(where_I, "Times"), 0, std::numeric_limits<int>::max()));
    }
    if (Has(map_I, "ExitCode"))
    {
        fault.exitCode =
            static_cast<int>(Integer(map_I, "ExitCode", Join(where_I, "ExitCode"), 0, 255));
    }
    return fault;
}

void ReadAppleEvents(const CSettingsMap& map_I, SSimDriverConfig& config_IO)
{
    const std::string where = "AppleEvents";
    CheckKeys(map_I, where, {"Reply", "ErrorNumber"});
    if (Has(map_I, "Reply"))
    {
        config_IO.appleEventReply = Bool(map_I, "Reply", Join(where, "Reply"));
    }
    if (Has(map_I, "ErrorNumber"))
    {
        config_IO.appleEventErrorNumber = static_cast<std::int32_t>(Integer(
            map_I, "ErrorNumber", Join(where, "ErrorNumber"),
            std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
    }
}

void ReadTop(const CSettingsMap& map_I, SSimDriverConfig& config_O)
{
    CheckKeys(map_I, "",
              {"Name", "PortName", "Version", "PacketMessaging", "ByteOrder", "EndiannessReply",
               "Tablets", "LastTabletUsed", "LastTabletUsedTimestamp", "CountByIndex", "CountByID",
               "CreateStatus", "IndexStatus", "AppleEvents", "Faults"});
    if (!Has(map_I, "PortName"))
    {
        Refuse("PortName", "is required");
    }
    config_O.portName = String(map_I, "PortName", "PortName");
    if (config_O.portName.empty())
    {
        Refuse("PortName", "must not be empty");
    }
    config_O.name = config_O.portName;
    if (Has(map_I, "Name"))
    {
        config_O.name = String(map_I, "Name", "Name");
    }

    if (!Has(map_I, "Version"))
    {
        Refuse("Version", "is required");
    }
    std::string version = String(map_I, "Version", "Version");
    config_O.version = FileVersion(version, /*bIsWeb_I=*/false);
    if (!config_O.version.IsValid())
    {
        Refuse("Version", "must be a version such as \"6.1.2\", not " + Quote(version));
    }
    config_O.packetMessaging = config_O.version >= SimPacketMessagingVersion(config_O.portName);
    if (Has(map_I, "PacketMessaging"))
    {
        config_O.packetMessaging = Bool(map_I, "PacketMessaging", "PacketMessaging");
    }

    if (Has(map_I, "ByteOrder"))
    {
        std::string order = String(map_I, "ByteOrder", "ByteOrder");
        if (order != "same" && order != "other")
        {
            Refuse("ByteOrder", "must be \"same\" or \"other\", not " + Quote(order));
        }
        config_O.otherByteOrder = order == "other";
    }
    config_O.endiannessCode = config_O.otherByteOrder ? 2 : 1;
    if (Has(map_I, "EndiannessReply"))
    {
        config_O.endiannessCode =
            static_cast<int>(Integer(map_I, "EndiannessReply", "EndiannessReply", -1, 255));
    }

    if (map_I.IsKeyPresent("Tablets"))
    {
        std::shared_ptr<CSettingsArray> tablets = Array(map_I, "Tablets", "Tablets");
        for (size_t i = 0; i < tablets->ObjectCount(); ++i)
        {
            std::string where = "Tablets[" + std::to_string(i) + "]";
            config_O.tablets.push_back(ReadTablet(*Element(*tablets, i, where), i, where));
        }
    }
    if (Has(map_I, "LastTabletUsed"))
    {
        config_O.lastTabletUsed =
            static_cast<int>(Integer(map_I, "LastTabletUsed", "LastTabletUsed", -1,
                                     static_cast<long long>(config_O.tablets.size()) - 1));
    }
    if (Has(map_I, "LastTabletUsedTimestamp"))
    {
        config_O.lastTabletUsedTimestamp = static_cast<std::uint32_t>(
            Integer(map_I, "LastTabletUsedTimestamp", "LastTabletUsedTimestamp", 0, 0xFFFFFFFFLL));
    }
    if (Has(map_I, "CountByIndex"))
    {
        config_O.countByIndex =
            static_cast<std::uint16_t>(Integer(map_I, "CountByIndex", "CountByIndex", 0, 0xFFFF));
    }
    if (Has(map_I, "CountByID"))
    {
        config_O.countByID =
            static_cast<std::uint16_t>(Integer(map_I, "CountByID", "CountByID", 0, 0xFFFF));
    }
    if (Has(map_I, "CreateStatus"))
    {
        config_O.createStatus =
            static_cast<KELSTATUS>(Integer(map_I, "CreateStatus", "CreateStatus", 0, 0xFFFF));
    }
    if (Has(map_I, "IndexStatus"))
    {
        config_O.indexStatus =
            static_cast<KELSTATUS>(Integer(map_I, "IndexStatus", "IndexStatus", 0, 0xFFFF));
    }
    if (map_I.IsKeyPresent("AppleEvents"))
    {
        ReadAppleEvents(*Map(map_I, "AppleEvents", "AppleEvents"), config_O);
    }
    if (map_I.IsKeyPresent("Faults"))
    {
        std::shared_ptr<CSettingsArray> faults = Array(map_I, "Faults", "Faults");
        for (size_t i = 0; i < faults->ObjectCount(); ++i)
        {
            std::string where = "Faults[" + std::to_string(i) + "]";
            config_O.faults.push_back(ReadFault(*Element(*faults, i, where), where));
        }
    }
}

// Why a text the settings reader refused is not a configuration: for text that is not JSON,
// the line and column where a strict parser stops ("line 3, column 7: ..."); the reader
// itself says only that it failed.
std::string WhereJSONFails(const std::string& jsonText_I)
{
    try
    {
        const nlohmann::json parsed = nlohmann::json::parse(jsonText_I, nullptr, true, true);
        (void)parsed;
    }
    catch (const nlohmann::json::parse_error& error)
    {
        // "[json.exception.parse_error.101] parse error at line 1, column 9: syntax error ..."
        std::string what = error.what();
        const size_t at = what.find(" at line ");
        return at == std::string::npos ? what : what.substr(at + 4);
    }
    return "not a JSON object";
}
} // namespace

FileVersion SimPacketMessagingVersion(const std::string& portName_I)
{
    if (portName_I == kSimKeltoDriverPortName)
    {
        return FileVersion(6, 1, 2, FileVersion::EUnknownVersion, 0);
    }
    if (portName_I == kSimPenDriverPortName)
    {
        return FileVersion(5, 2, 0, FileVersion::EUnknownVersion, 0);
    }
    // A port the coordinator does not know as a tablet driver: no threshold.
    return FileVersion();
}

bool ReadSimDriverConfigText(const std::string& jsonText_I, SSimDriverConfig& config_O,
                             std::string& error_O)
{
    std::shared_ptr<CSettingsMap> top =
        CSettingsMap::CastToMap(CSettingsObject::ReadFromJSONBuffer(jsonText_I), false);
    if (!top)
    {
        error_O = WhereJSONFails(jsonText_I);
        return false;
    }
    SSimDriverConfig config;
    try
    {
        ReadTop(*top, config);
    }
    catch (const SConfigError& error)
    {
        error_O = error.what();
        return false;
    }
    config_O = std::move(config);
    return true;
}

bool ReadSimDriverConfigFile(const std::string& path_I, SSimDriverConfig& config_O,
                             std::string& error_O)
{
    std::ifstream file(path_I, std::ios::binary);
    if (!file)
    {
        error_O = path_I + ": cannot open: " + std::strerror(errno);
        return false;
    }
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad())
    {
        error_O = path_I + ": cannot read: " + std::strerror(errno);
        return false;
    }
    if (!ReadSimDriverConfigText(text, config_O, error_O))
    {
        error_O = path_I + ": " + error_O;
        return false;
    }
    config_O.path = path_I;
    return true;
}
