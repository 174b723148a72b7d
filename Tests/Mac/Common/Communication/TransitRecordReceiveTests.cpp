// Transit records received by the coordinator (CMacMessagingServer).
#include "Mac/Common/Communication/CMacMessagingServer.h"

#include "Mac/Common/Communication/KelMessagingTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <syslog.h>

using namespace messaging_test;
using testing::HasSubstr;

namespace
{
const std::string kSource = "Mac/Common/Communication/CMacMessagingServer:";

class TransitRecordReceiveTests : public ::testing::Test
{
protected:
    // The system log also goes to standard error, where the tests read it.
    TransitRecordReceiveTests() { openlog("kel_tests", LOG_PERROR, LOG_USER); }
    ~TransitRecordReceiveTests() override { closelog(); }
    void SetUp() override { mServer.SetProcessEventCallback(Answerer::Callback, &mAnswerer); }

    // The reply as "none" or the return record's two words and the data.
    std::string Serve(const Bytes& request, Output* output = nullptr)
    {
        CFDataRef data = MakeData(request);
        CFDataRef reply = nullptr;
        const Output captured = Capture([&] { reply = mServer.ProcessRequest(data, 0); });
        CFRelease(data);
        if (output != nullptr)
        {
            *output = captured;
        }
        if (reply == nullptr)
        {
            return "none";
        }
        const Bytes bytes = Take(reply);
        return std::to_string(Read<std::uint32_t>(bytes, 0)) + " " +
               std::to_string(Read<std::uint32_t>(bytes, 4)) + " [" +
               std::string(bytes.begin() + 8, bytes.end()) + "]";
    }

    CMacMessagingServer mServer;
    Answerer mAnswerer;
};

TEST_F(TransitRecordReceiveTests, MalformedRecordsGetNoReplyAndOneLogLine)
{
    struct Case
    {
        Bytes request;
        std::string log;
        std::string out;
    };
    const Case cases[] = {
        {Bytes(135, 0), "*** transit record unusually small (135 instead of 136) ***", ""},
        {Record({}, 1, "", 0x10000), "*** transit record unusually large ***",
         kSource + "294: failed assertion: transitRec.sizeOfData < 0xffff\n"},
        {Record({}, 1, "abcd", 10),
         "*** transit record unexpectedly small (140 instead of 146) ***", ""},
    };
    for (const Case& c : cases)
    {
        Output output;
        EXPECT_EQ(Serve(c.request, &output), "none");
        EXPECT_THAT(output.err, HasSubstr(c.log + "\n"));
        EXPECT_EQ(output.out, c.out);
    }
    EXPECT_EQ(mAnswerer.seen, nullptr);
}

TEST_F(TransitRecordReceiveTests, MissingAndNotImplementedAreAnsweredQuietly)
{
    for (KELSTATUS status : {KELSTATUS_SUCCESS, KELSTATUS_RESOURCE_MISSING,
                             KELSTATUS_METHOD_NOT_IMPLEMENTED, KELSTATUS_RESOURCE_BAD})
    {
        mAnswerer.status = status;
        Output output;
        EXPECT_EQ(Serve(Record({}, ECommandGet, "12"), &output),
                  std::to_string(status) + " 2 [12]");
        EXPECT_EQ(output.out,
                  status == KELSTATUS_RESOURCE_BAD ? "error from ProcessEvent : 513\n" : "");
    }
    // Without a callback the port refuses the request; the record itself is answered as
    // it came, with status 0.
    mServer.SetProcessEventCallback(nullptr, nullptr);
    EXPECT_EQ(Serve(Record({}, ECommandGet, "12")), "none");
    CFDataRef data = MakeData(Record({}, ECommandGet, "12"));
    const Bytes reply = Take(mServer.ProcessTransitRecordMessage(data));
    CFRelease(data);
    EXPECT_EQ(reply, (Bytes{0, 0, 0, 0, 2, 0, 0, 0, '1', '2'}));
}

// Old clients cannot take a shorter answer, nor one of 1000 bytes or more: the record gets
// a bare return record with 0x0105 (261) and one log line, and the server goes on serving.
// A record that announces such an answer is refused before the callback sees it.
TEST_F(TransitRecordReceiveTests, AnswersOldClientsCannotTakeAreRefusedWithAStatus)
{
    struct Case
    {
        std::string data, answer, reply, log;
        int calls;
    };
    const Case cases[] = {
        {"12345678", "1234", "261 0 []",
         "*** transit record answer refused: 4 data bytes for a request of 8 ***", 1},
        {"ab", std::string(1000, 'y'), "261 0 []",
         "*** transit record answer refused: 1000 data bytes for a request of 2 ***", 1},
        {std::string(1000, 'x'), "", "261 0 []",
         "*** transit record refused: 1000 data bytes, at most 999 ***", 0},
        {std::string(0xFFFF, 'x'), "", "261 0 []",
         "*** transit record refused: 65535 data bytes, at most 999 ***", 0},
        {std::string(999, 'x'), "", "0 999 [" + std::string(999, 'x') + "]", "", 1},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.log);
        mAnswerer.calls = 0;
        mAnswerer.answer = c.answer;
        Output output;
        EXPECT_EQ(Serve(Record({}, ECommandGet, c.data), &output), c.reply);
        EXPECT_EQ(mAnswerer.calls, c.calls);
        if (!c.log.empty())
        {
            EXPECT_THAT(output.err, HasSubstr(c.log + "\n"));
        }
    }
}
} // namespace
