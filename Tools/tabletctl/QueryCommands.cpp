#include "Tools/tabletctl/QueryCommands.h"

#include "Common/Settings/CSettingsArray.h"
#include "Tools/tabletctl/CToolSession.h"
#include "Tools/tabletctl/SettingsOutput.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{
// Room for a tablet's model or serial number in the request that asks for it.
constexpr size_t kTabletTextRoom = 128;

// The two driver processes, by driver ID.
const char* DriverName(std::int32_t driverID_I)
{
    switch (driverID_I)
    {
    case 0:
        return "Kelto";
    case 1:
        return "Pen";
    default:
        return "?";
    }
}

// A tablet's model or serial number as its driver reports it (text ending in 0); empty when
// the driver does not say. The request carries room for the answer, which a legacy driver
// needs: it answers within the data it was sent.
std::string TabletText(CToolSession& session_IO, std::uint32_t systemID_I,
                       EEventIdentifier parameter_I)
{
    CKeltoClient::SRequest request;
    request.mCommand = ECommandGet;
    request.mKeys = {
        {EObjectIDDriver}, {EObjectIDTablet, systemID_I, EAddrModeByID}, {parameter_I}};
    request.mData.assign(kTabletTextRoom, 0);
    CKeltoClient::SReply reply;
    if (session_IO.Client().Send(request, reply) != KELSTATUS_SUCCESS ||
        reply.mStatus != KELSTATUS_SUCCESS)
    {
        return std::string();
    }
    std::string text(reply.mData.begin(), reply.mData.end());
    text.erase(std::min(text.find('\0'), text.size()));
    return text;
}

std::string Line(const char* format_I, long long value_I)
{
    char line[128];
    std::snprintf(line, sizeof line, format_I, value_I);
    return line;
}

void Count(const SToolOptions& options_I, bool byID_I)
{
    CToolSession session(options_I);
    unsigned short count = 0;
    session.Check(byID_I ? session.Client().GetTabletCountByID(count)
                         : session.Client().GetTabletCount(count),
                  "the tablet count");
    session.Print({{"tablets", count}, {"byID", byID_I}},
                  Line(byID_I ? "Tablets with a system ID, as the drivers count them: %lld\n"
                              : "Tablets: %lld\n",
                       count));
}

void Tablets(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    std::vector<CKeltoClient::STablet> tablets;
    session.Check(session.Client().GetTablets(tablets), "the tablet table");
    unsigned short lastUsed = CKeltoClient::kNoTablet;
    session.Check(session.Client().GetLastTabletUsed(lastUsed), "the last tablet used");

    // Model and serial number tell identical tablets apart, where the drivers report them.
    std::vector<std::pair<std::string, std::string>> names;
    size_t modelWidth = std::string("Model").size();
    for (const CKeltoClient::STablet& tablet : tablets)
    {
        names.emplace_back(TabletText(session, tablet.mSystemID, EParameterIDModel),
                           TabletText(session, tablet.mSystemID, EParameterIDSerialNumber));
        modelWidth = std::max(modelWidth, names.back().first.size());
    }
    auto optional = [](const std::string& text_I)
    { return text_I.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text_I); };
    auto trimmed = [](std::string line_I)
    {
        line_I.erase(line_I.find_last_not_of(' ') + 1);
        return line_I + "\n";
    };

    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    std::string text = "Tablets: " + std::to_string(tablets.size()) + "\n";
    if (!tablets.empty())
    {
        text += trimmed("  System ID  Driver     Index  Last used  " +
                        std::string("Model").append(modelWidth - 5, ' ') + "  Serial number");
    }
    for (size_t i = 0; i < tablets.size(); ++i)
    {
        const CKeltoClient::STablet& tablet = tablets[i];
        const auto& [model, serialNumber] = names[i];
        const bool last = tablet.mSystemID == lastUsed;
        rows.push_back({{"systemID", tablet.mSystemID},
                        {"driverID", tablet.mDriverID},
                        {"driver", DriverName(tablet.mDriverID)},
                        {"index", tablet.mTabletIndex},
                        {"lastUsed", last},
                        {"model", optional(model)},
                        {"serialNumber", optional(serialNumber)}});
        char line[128];
        std::snprintf(line, sizeof line, "  %9u  %d %-7s  %5d  %-9s  ", tablet.mSystemID,
                      tablet.mDriverID, DriverName(tablet.mDriverID), tablet.mTabletIndex,
                      last ? "yes" : "");
        text += trimmed(line + std::string(model).append(modelWidth - model.size(), ' ') + "  " +
                        serialNumber);
    }
    nlohmann::ordered_json json = {{"tablets", rows}};
    json["lastTabletUsed"] = lastUsed == CKeltoClient::kNoTablet ? nlohmann::ordered_json(nullptr)
                                                                 : nlohmann::ordered_json(lastUsed);
    session.Print(json, text);
}

void Version(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    std::int32_t version = 0;
    session.Check(session.Client().GetProtocolVersion(version), "the protocol version");
    session.Print({{"protocolVersion", version}}, Line("Protocol version: %lld\n", version));
}

void Capabilities(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    std::shared_ptr<CSettingsArray> capabilities;
    session.Check(session.Client().GetTouchCapabilities(capabilities), "the touch capabilities");
    const std::string text =
        "Touch capabilities of " +
        CToolSession::Counted(capabilities->ObjectCount(), "tablet", "tablets") + ":\n" +
        SettingsOutput::CapabilitiesText(capabilities);
    session.Print({{"capabilities", SettingsOutput::ToJSON(capabilities)}}, text);
}

void LastTablet(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    unsigned short systemID = CKeltoClient::kNoTablet;
    session.Check(session.Client().GetLastTabletUsed(systemID), "the last tablet used");
    if (systemID == CKeltoClient::kNoTablet)
    {
        session.Print({{"lastTabletUsed", nullptr}}, "Last tablet used: none\n");
        return;
    }
    session.Print({{"lastTabletUsed", systemID}}, Line("Last tablet used: %lld\n", systemID));
}

void TouchAPI(const SToolOptions& options_I, std::uint32_t value_I)
{
    CToolSession session(options_I);
    std::int64_t answer = 0;
    session.Check(session.Client().QueryMultiTouchAPI(value_I, answer),
                  "the multi-touch API query");
    session.Print({{"value", value_I}, {"answer", answer}},
                  Line("Multi-touch API answer: %lld\n", answer));
}
} // namespace

void AddQueryCommands(CLI::App& app_IO, const SToolOptions& options_I)
{
    static bool byID = false;
    static std::uint32_t touchValue = 0;

    CLI::App* count =
        app_IO.add_subcommand("count", "Print the number of tablets in the coordinator's table");
    count->footer("The coordinator first asks the drivers how many tablets they have and "
                  "synchronises its table when the numbers differ.");
    count->add_flag("--by-id", byID,
                    "Print instead the sum of the drivers' own counts of tablets with a "
                    "system ID");
    count->callback([&options_I] { Count(options_I, byID); });

    CLI::App* tablets = app_IO.add_subcommand(
        "tablets", "Print the tablet table: system ID, owning driver, index, last used");
    tablets->footer("The model and serial number come from each tablet's driver, where it "
                    "reports them. "
                    "The table is the one the coordinator sent the drivers at its last "
                    "synchronisation (tabletctl sync makes a new one). Driver 0 is the Kelto "
                    "tablet driver, driver 1 the Pen tablet driver; the index counts the "
                    "driver's own tablets.");
    tablets->callback([&options_I] { Tablets(options_I); });

    CLI::App* version =
        app_IO.add_subcommand("version", "Print the protocol version the coordinator announces");
    version->footer("The number is the coordinator's own setting (the key \"Protocal\" of its "
                    "Info.plist): the version of the request protocol it serves.");
    version->callback([&options_I] { Version(options_I); });

    CLI::App* capabilities = app_IO.add_subcommand(
        "capabilities", "Print the touch capabilities of every tablet that has any");
    capabilities->alias("caps");
    capabilities->footer("One settings map per tablet, as its driver reported it at the last "
                         "synchronisation, with the integer MultiTouchDeviceID added.");
    capabilities->callback([&options_I] { Capabilities(options_I); });

    CLI::App* last =
        app_IO.add_subcommand("last-tablet", "Print the system ID of the tablet used last");
    last->footer("The first driver that knows one answers; \"none\" when no driver does.");
    last->callback([&options_I] { LastTablet(options_I); });

    CLI::App* touchAPI =
        app_IO.add_subcommand("touch-api", "Ask the multi-touch programming-interface question");
    touchAPI->add_option("value", touchValue, "the client's own value (0 to 4294967295)")
        ->required();
    touchAPI->footer("The coordinator answers 3 for the values 0 and 1, 0 for 2 to 4 and 2 "
                     "for 5 and above.");
    touchAPI->callback([&options_I] { TouchAPI(options_I, touchValue); });
}
