#include "Tools/tabletctl/RawCommands.h"

#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/CToolSession.h"
#include "Tools/tabletctl/RawReplyOutput.h"
#include "Tools/tabletctl/RequestSyntax.h"

#include <string>
#include <vector>

namespace
{
struct SRawArguments
{
    std::string mCommand;
    std::vector<std::string> mKeys;
    std::string mData;
    std::string mAnswer = "auto";
};

CKeltoClient::SRequest BuildRequest(const SRawArguments& arguments_I)
{
    CKeltoClient::SRequest request;
    request.mCommand = RequestSyntax::ParseCommand(arguments_I.mCommand);
    for (const std::string& key : arguments_I.mKeys)
    {
        request.mKeys.push_back(RequestSyntax::ParseKey(key));
    }
    if (!arguments_I.mData.empty())
    {
        request.mData = RequestSyntax::ParseData(arguments_I.mData);
    }
    return request;
}

void Raw(const SToolOptions& options_I, const SRawArguments& arguments_I)
{
    // Every word is checked before the coordinator is asked anything.
    const CKeltoClient::SRequest request = BuildRequest(arguments_I);
    CToolSession session(options_I);
    CKeltoClient::SReply reply;
    const KELSTATUS status = session.Client().Send(request, reply);
    if (status != reply.mStatus)
    {
        // Send leaves the reply untouched unless the exchange succeeded: there is none.
        session.Check(status, "the request");
    }
    const RawReplyOutput::SShown shown = RawReplyOutput::Show(reply.mData, arguments_I.mAnswer);

    nlohmann::ordered_json json = {{"status", reply.mStatus},
                                   {"statusName", CKeltoClient::StatusName(reply.mStatus)},
                                   {"size", reply.mData.size()},
                                   {"data", RawReplyOutput::Hex(reply.mData)}};
    std::string text = "Status: " + CToolSession::DescribeStatus(reply.mStatus) + "\n";
    text += "Data: " + std::to_string(reply.mData.size()) + " bytes" +
            (reply.mData.empty() ? "" : ": " + RawReplyOutput::Hex(reply.mData)) + "\n";
    if (!shown.mType.empty())
    {
        json["type"] = shown.mType;
        json["value"] = shown.mValue;
        text += "Value (" + shown.mType +
                "):" + (shown.mType == "settings" ? "\n" + shown.mText : " " + shown.mText + "\n");
    }
    session.Print(json, text);
    session.Check(reply.mStatus, "the request");
}
} // namespace

void AddRawCommands(CLI::App& app_IO, const SToolOptions& options_I)
{
    static SRawArguments arguments;

    CLI::App* raw = app_IO.add_subcommand(
        "raw", "Send any request: a command, a key chain and data, and print the reply");
    raw->add_option("command", arguments.mCommand,
                    "ECommandGet, Get, get or a number (DoNothing Get Set Create Destroy Flush "
                    "GetDefault Subscribe Unsubscribe)")
        ->required();
    raw->add_option("keys", arguments.mKeys,
                    "The key chain, outermost first (at most nine keys). Each key is "
                    "IDENTIFIER[@MODE][=REFERENCE]: the identifier by name (EObjectIDTablet, "
                    "ObjectIDTablet, or Tablet when only one group has it) or number; the "
                    "addressing mode by name (ByIndex, ByID, ByLocalIndex, All, String, ...) "
                    "or number, ByIndex when left out; the reference a number, an identifier "
                    "name, or with @String any text, 0 when left out");
    raw->add_option("--data", arguments.mData,
                    "The request's data as TYPE:VALUE, TYPE one of u8 u16 u32 u64 i8 i16 i32 "
                    "i64 (numbers in host byte order), bool, string (with its terminating 0), "
                    "hex (bytes, spaces allowed), integer (a settings integer), settings "
                    "(JSON settings text of a map or an array), file (a file's bytes)");
    raw->add_option("--answer", arguments.mAnswer,
                    "How to show the reply's data besides its bytes: auto (a settings tree, "
                    "text, or a number by its size), hex (bytes only), u8 u16 u32 u64 i8 i16 "
                    "i32 i64 bool string settings")
        ->check(CLI::IsMember({"auto", "hex", "u8", "u16", "u32", "u64", "i8", "i16", "i32", "i64",
                               "bool", "string", "settings"}));
    raw->footer(
        "Examples:\n"
        "  tabletctl raw get Driver Count@ByIndex=Tablet             the tablet count\n"
        "  tabletctl raw get Driver Tablet@ByID=1 TabletSystemID     routed to tablet 1's "
        "driver\n"
        "  tabletctl raw get MultiTouchAPI 508 --data integer:1      the multi-touch API "
        "query\n"
        "  tabletctl raw create MultiTouchAPI MultiTouchAPIClient \\\n"
        "      --data 'settings:{\"MultiTouchAPIClientRegistrationType\": 2}'\n"
        "Numbers are decimal, or hexadecimal with 0x. The exit status is 1 when the reply's "
        "status is not KELSTATUS_SUCCESS.");
    raw->callback([&options_I] { Raw(options_I, arguments); });
}
