// The coordinator's side of a transit record it receives (CMacMessagingServer).
#include "Mac/Common/Communication/CMacMessagingServer.h"

#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/KelMessagingTestSupport.h"
#include "Mac/Common/Communication/TransitRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <syslog.h>

#include <memory>
#include <string>

using namespace messaging_test;
using testing::HasSubstr;

namespace
{
struct Answerer
{
    int calls = 0;
    std::unique_ptr<CEventPacket> seen;
    KELSTATUS status = KELSTATUS_SUCCESS;
    bool answer = false;
    std::string answerData;

    static KELSTATUS Callback(CEventPacket* packet, void* context)
    {
        auto* self = static_cast<Answerer*>(context);
        ++self->calls;
        self->seen = std::make_unique<CEventPacket>(*packet);
        if (self->answer)
        {
            packet->PackData(static_cast<unsigned>(self->answerData.size()),
                             self->answerData.data());
        }
        return self->status;
    }
};

class TransitRecordReceiveTests : public ::testing::Test
{
protected:
    // The system log also goes to standard error, where the tests read it.
    void SetUp() override
    {
        openlog("kel_messaging_tests", LOG_PERROR, LOG_USER);
        mServer.SetProcessEventCallback(Answerer::Callback, &mAnswerer);
    }
    void TearDown() override { closelog(); }

    // Serves the bytes; the reply's bytes, or nullopt-like `hadReply` false.
    Bytes Serve(const Bytes& request, bool& hadReply, Output& output)
    {
        Data data(request);
        CFDataRef reply = nullptr;
        output = Capture([&] { reply = mServer.ProcessTransitRecordMessage(data.get()); });
        hadReply = reply != nullptr;
        Bytes bytes = BytesOf(reply);
        if (reply != nullptr)
        {
            CFRelease(reply);
        }
        return bytes;
    }

    CMacMessagingServer mServer;
    Answerer mAnswerer;
};

TEST_F(TransitRecordReceiveTests, MalformedRecordsGetNoReplyAndOneLogLine)
{
    RecordBuilder tooLarge;
    tooLarge.announce = true;
    tooLarge.announcedSize = 0x10000;
    RecordBuilder truncated;
    truncated.announce = true;
    truncated.announcedSize = 10;
    truncated.data = BytesOf("abcd");

    struct Case
    {
        Bytes request;
        std::string log;
        std::string out;
    };
    const Case cases[] = {
        {Bytes(135, 0), "*** transit record unusually small (135 instead of 136) ***", ""},
        {Bytes(), "*** transit record unusually small (0 instead of 136) ***", ""},
        {tooLarge.Build(), "*** transit record unusually large ***",
         "Mac/Common/Communication/CMacMessagingServer:294: failed assertion: "
         "transitRec.sizeOfData < 0xffff\n"},
        {truncated.Build(), "*** transit record unexpectedly small (140 instead of 146) ***", ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.log);
        bool hadReply = true;
        Output output;
        Serve(c.request, hadReply, output);
        EXPECT_FALSE(hadReply);
        EXPECT_THAT(output.err, HasSubstr(c.log));
        EXPECT_EQ(output.out, c.out);
    }
    EXPECT_EQ(mAnswerer.calls, 0);
}

TEST_F(TransitRecordReceiveTests, RecordBecomesAPacketAndItsAnswerComesBack)
{
    RecordBuilder record;
    record.keys = {Key(EObjectIDTablet, 2, EAddrModeByIndex),
                   Key(EObjectIDTransducer, 7, EAddrModeByID),
                   Key(EParameterIDName, 0xDEADBEEF, EAddrModeByString)};
    record.command = ECommandSet;
    record.source = 3;
    record.data = BytesOf("abcd");
    mAnswerer.answer = true;
    mAnswerer.answerData = "wxyz";

    bool hadReply = false;
    Output output;
    const Bytes reply = Serve(record.Build(), hadReply, output);
    ASSERT_TRUE(hadReply);
    EXPECT_EQ(output.out, "");

    ASSERT_EQ(mAnswerer.calls, 1);
    const CEventPacket& seen = *mAnswerer.seen;
    EXPECT_EQ(seen.Command(), ECommandSet);
    EXPECT_EQ(seen.SourceOfRequest(), 3u);
    EXPECT_EQ(DataOf(seen), "abcd");
    EXPECT_EQ(seen.ObjectKey(0)->Identifier(), EObjectIDTablet);
    EXPECT_EQ(seen.ObjectKey(0)->mReference, reinterpret_cast<void*>(2));
    EXPECT_EQ(seen.ObjectKey(1)->mAddressingMode, EAddrModeByID);
    EXPECT_EQ(seen.ObjectKey(1)->mReference, reinterpret_cast<void*>(7));
    // A string key arrives without its string; the sender's pointer is never followed.
    EXPECT_EQ(seen.ObjectKey(2)->mAddressingMode, EAddrModeByString);
    EXPECT_STREQ(seen.ObjectKey(2)->String(), "");
    EXPECT_EQ(seen.ObjectKey(3)->Identifier(), EObjectIDNothing);

    ASSERT_EQ(reply.size(), 8u + 4u);
    EXPECT_EQ(ReturnOf(reply).wStatus, 0u);
    EXPECT_EQ(ReturnOf(reply).returnDataSize, 4u);
    EXPECT_EQ(std::string(reply.begin() + 8, reply.end()), "wxyz");
}

TEST_F(TransitRecordReceiveTests, MissingAndNotImplementedAreAnsweredQuietly)
{
    RecordBuilder record;
    record.keys = {Key(EObjectIDDriver, 0)};
    record.command = ECommandGet;
    record.data = BytesOf("12");

    for (KELSTATUS status : {KELSTATUS_SUCCESS, KELSTATUS_RESOURCE_MISSING,
                             KELSTATUS_METHOD_NOT_IMPLEMENTED, KELSTATUS_RESOURCE_BAD})
    {
        SCOPED_TRACE(status);
        mAnswerer.status = status;
        bool hadReply = false;
        Output output;
        const Bytes reply = Serve(record.Build(), hadReply, output);
        ASSERT_TRUE(hadReply);
        EXPECT_EQ(ReturnOf(reply).wStatus, status);
        EXPECT_EQ(std::string(reply.begin() + 8, reply.end()), "12");
        EXPECT_EQ(output.out,
                  status == KELSTATUS_RESOURCE_BAD ? "error from ProcessEvent : 513\n" : "");
    }

    // Without a callback the request comes back as it was, with status 0.
    mServer.SetProcessEventCallback(nullptr, nullptr);
    bool hadReply = false;
    Output output;
    const Bytes reply = Serve(record.Build(), hadReply, output);
    ASSERT_TRUE(hadReply);
    EXPECT_EQ(ReturnOf(reply).wStatus, 0u);
    EXPECT_EQ(std::string(reply.begin() + 8, reply.end()), "12");
}

TEST_F(TransitRecordReceiveTests, AnswerLargerThanTheRequestIsSizedButNotCopied)
{
    RecordBuilder record;
    record.keys = {Key(EObjectIDDriver, 0)};
    record.data = BytesOf("ab");
    mAnswerer.answer = true;
    mAnswerer.answerData = "longer";

    bool hadReply = false;
    Output output;
    const Bytes reply = Serve(record.Build(), hadReply, output);
    ASSERT_TRUE(hadReply);
    ASSERT_EQ(reply.size(), 8u + 2u);
    EXPECT_EQ(ReturnOf(reply).returnDataSize, 6u);
    EXPECT_EQ(reply[8], 0);
    EXPECT_EQ(reply[9], 0);
    EXPECT_EQ(output.out, "Mac/Common/Communication/CMacMessagingServer:403: failed assertion: "
                          "memcmp( pData, bufferPtr, dataSize ) == 0\n");
    EXPECT_THAT(output.err, HasSubstr("CEventPacket::UnPackData: Buffer not big enough\n"));
}

TEST_F(TransitRecordReceiveTests, TenKeysWithoutRoomForTheSentinelAreServedSafely)
{
    RecordBuilder record;
    for (std::uint16_t i = 0; i < kTransitRecordKeyCount; ++i)
    {
        record.keys.push_back(Key(EObjectIDTablet, i));
    }
    bool hadReply = false;
    Output output;
    const Bytes reply = Serve(record.Build(), hadReply, output);
    ASSERT_TRUE(hadReply);
    EXPECT_EQ(reply.size(), 8u);
    ASSERT_EQ(mAnswerer.calls, 1);
    EXPECT_EQ(mAnswerer.seen->ObjectKey(9)->mReference, reinterpret_cast<void*>(9));
}

// Old clients cannot take a shorter answer, nor one of 1000 bytes or more: the process ends.
TEST_F(TransitRecordReceiveTests, ShortOrLargeAnswersEndTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    RecordBuilder shrinking;
    shrinking.keys = {Key(EObjectIDDriver, 0)};
    shrinking.data = BytesOf("12345678");
    EXPECT_DEATH(
        {
            mAnswerer.answer = true;
            mAnswerer.answerData = "1234";
            Data data(shrinking.Build());
            mServer.ProcessTransitRecordMessage(data.get());
        },
        "CMacMessagingServer:415: failed assertion: dataSize <= returnRec.returnDataSize");

    // The largest size a record may announce passes its own check, then ends the process.
    RecordBuilder largest;
    largest.data = Bytes(0xFFFF, 0x5A);
    EXPECT_DEATH(
        {
            mServer.SetProcessEventCallback(nullptr, nullptr);
            Data data(largest.Build());
            mServer.ProcessTransitRecordMessage(data.get());
        },
        "CMacMessagingServer:416: failed assertion: returnRec.returnDataSize < 1000");

    RecordBuilder thousand;
    thousand.data = Bytes(1000, 1);
    EXPECT_DEATH(
        {
            Data data(thousand.Build());
            mServer.ProcessTransitRecordMessage(data.get());
        },
        "returnRec.returnDataSize < 1000");
    RecordBuilder below;
    below.data = Bytes(999, 1);
    bool hadReply = false;
    Output output;
    EXPECT_EQ(Serve(below.Build(), hadReply, output).size(), 8u + 999u);
}
} // namespace
