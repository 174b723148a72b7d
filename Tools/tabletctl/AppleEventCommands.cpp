#include "Tools/tabletctl/AppleEventCommands.h"

#include "Tools/tabletctl/AppleEventSyntax.h"
#include "Tools/tabletctl/CToolSession.h"
#include "Tools/tabletctl/RequestSyntax.h"

#include <string>
#include <vector>

namespace
{
struct SSendArguments
{
    std::string mClass;
    std::string mID;
    std::vector<std::string> mParameters;
};

std::string Quoted(std::uint32_t code_I)
{
    return "'" + RequestSyntax::FourCharCodeText(code_I) + "'";
}

void Count(const SToolOptions& options_I)
{
    CToolSession session(options_I);
    long count = 0;
    session.CheckAppleEvent(session.Client().CountTabletsByAppleEvent(count),
                            "the Apple Event tablet count");
    session.Print({{"tablets", count}}, "Tablets: " + std::to_string(count) + "\n");
}

void Send(const SToolOptions& options_I, const SSendArguments& arguments_I)
{
    CKeltoClient::SAppleEvent event;
    event.mClass = RequestSyntax::ParseFourCharCode(arguments_I.mClass);
    event.mID = RequestSyntax::ParseFourCharCode(arguments_I.mID);
    for (const std::string& parameter : arguments_I.mParameters)
    {
        event.mParameters.push_back(AppleEventSyntax::ParseParameter(parameter));
    }
    CToolSession session(options_I);
    CKeltoClient::SAppleEvent reply;
    const int error = session.Client().SendAppleEvent(event, reply);

    nlohmann::ordered_json parameters = nlohmann::ordered_json::array();
    std::string text = "Result: " + CToolSession::DescribeAppleEventError(error) + "\n";
    if (reply.mClass != 0)
    {
        text += "Reply " + Quoted(reply.mClass) + "/" + Quoted(reply.mID) + "\n";
    }
    for (const CKeltoClient::SAppleEventParameter& parameter : reply.mParameters)
    {
        const nlohmann::ordered_json value = AppleEventSyntax::Value(parameter);
        parameters.push_back({{"keyword", RequestSyntax::FourCharCodeText(parameter.mKeyword)},
                              {"type", RequestSyntax::FourCharCodeText(parameter.mType)},
                              {"value", value}});
        text += "  " + Quoted(parameter.mKeyword) + " " + Quoted(parameter.mType) + " " +
                (value.is_string() ? value.get<std::string>() : value.dump()) + "\n";
    }
    nlohmann::ordered_json json = {{"result", error}};
    if (reply.mClass != 0)
    {
        json["reply"] = {{"class", RequestSyntax::FourCharCodeText(reply.mClass)},
                         {"id", RequestSyntax::FourCharCodeText(reply.mID)},
                         {"parameters", parameters}};
    }
    session.Print(json, text);
    session.CheckAppleEvent(error, "the Apple Event");
}
} // namespace

void AddAppleEventCommands(CLI::App& app_IO, const SToolOptions& options_I)
{
    static SSendArguments arguments;

    CLI::App* ae = app_IO.add_subcommand("ae", "Send Apple Events to the coordinator");
    ae->require_subcommand(1);
    ae->footer("The coordinator is addressed as the application com.kelto.TabletDriver. It "
               "counts tablets itself ('core'/'cnte' for the class 'Tblt'); the events "
               "'core'/'crel' 'delo' 'getd' 'dsiz' 'setd' and 'cnte' for other classes go to "
               "the first driver that takes them, 'core'/'save' to every driver, "
               "'Kelm'/'KSnd' to the driver whose tablet was used last; other 'core' events "
               "succeed without doing anything.");

    CLI::App* count =
        ae->add_subcommand("count", "Count the tablets with 'core'/'cnte', 'kocl' = 'Tblt'");
    count->callback([&options_I] { Count(options_I); });

    CLI::App* send = ae->add_subcommand("send", "Send any event and print the reply event");
    send->add_option("class", arguments.mClass, "The event class, e.g. core")->required();
    send->add_option("id", arguments.mID, "The event ID, e.g. getd")->required();
    send->add_option("--param", arguments.mParameters,
                     "A parameter KEYWORD:TYPE:VALUE (repeatable). The value is read by the "
                     "type: type enum keyw prop take a four-character code; shor long magn "
                     "comp a number; bool true or false; TEXT utf8 text; any other type "
                     "hexadecimal bytes. E.g. kocl:type:Tblt, ----:long:2");
    send->footer("Four-character codes are four characters (core, '----') or a hexadecimal "
                 "number (0x636F7265). The result is the sending's error, else the reply's "
                 "'errn'; anything but 0 makes the exit status 1.");
    send->callback([&options_I] { Send(options_I, arguments); });
}
