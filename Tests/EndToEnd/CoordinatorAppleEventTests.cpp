// Apple Events sent to the running coordinator: counted here, or forwarded to the first
// driver that takes them, to every driver, or to the driver that saw a tablet last.
#include "Tests/EndToEnd/CoordinatorProcess.h"
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include <Carbon/Carbon.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace
{
using namespace end_to_end;

// AESend's time-out, in ticks of 1/60 second.
constexpr SInt32 kTimeoutTicks = static_cast<SInt32>(kAnswerSeconds * 60);

std::string Kelto(const std::string& body)
{
    return R"({"Name": "Kelto", "PortName": "com.kelto.KeltoTabletDriverMessageServer",
               "Version": "6.3.0", "Tablets": [{}])" +
           (body.empty() ? "" : ", " + body) + "}";
}

std::string Pen(const std::string& body)
{
    return R"({"Name": "Pen", "PortName": "com.kelto.PenTabletDriverMessageServer",
               "Version": "5.3.0", "Tablets": [{"SystemID": 1}])" +
           (body.empty() ? "" : ", " + body) + "}";
}

size_t Lines(const std::string& log, const std::string& text)
{
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
    {
        ++count;
    }
    return count;
}

// The answer to one event: AESend's result, the reply's error number (0 without one), and
// its direct object as a number or as text.
struct SAnswer
{
    OSErr mSent = noErr;
    SInt32 mError = 0;
    SInt32 mNumber = -1;
    std::string mText;
};

class CoordinatorAppleEventTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mKelto = std::make_unique<SimulatedDriverProcess>(
            mPorts.Path(), Kelto(R"("LastTabletUsedTimestamp": 1200)"));
        mPen = std::make_unique<SimulatedDriverProcess>(mPorts.Path(),
                                                        Pen(R"("LastTabletUsedTimestamp": 800)"));
        ASSERT_TRUE(mKelto->WaitUntilServed()) << mKelto->Log();
        ASSERT_TRUE(mPen->WaitUntilServed()) << mPen->Log();
        mCoordinator = std::make_unique<CoordinatorProcess>(mPorts.Path() + "/coordinator.log");
        ASSERT_TRUE(mCoordinator->Start());
        ASSERT_EQ(WaitForTabletBlock(kPenPort, 2).size(), 2u) << mCoordinator->Log();
    }

    // Sends an event to the coordinator's process and waits for the reply; `objectClass`
    // (when not 0) goes in as the 'kocl' parameter.
    SAnswer Send(AEEventClass eventClass, AEEventID eventID, DescType objectClass = 0)
    {
        SAnswer answer;
        const pid_t pid = mCoordinator->Pid();
        AEAddressDesc address;
        AECreateDesc(typeKernelProcessID, &pid, sizeof pid, &address);
        AppleEvent event;
        AECreateAppleEvent(eventClass, eventID, &address, kAutoGenerateReturnID, kAnyTransactionID,
                           &event);
        if (objectClass != 0)
        {
            AEPutParamPtr(&event, keyAEObjectClass, typeType, &objectClass, sizeof objectClass);
        }
        AppleEvent reply;
        AEInitializeDesc(&reply);
        answer.mSent = AESend(&event, &reply, kAEWaitReply, kAENormalPriority, kTimeoutTicks,
                              nullptr, nullptr);
        AEGetParamPtr(&reply, keyErrorNumber, typeSInt32, nullptr, &answer.mError,
                      sizeof answer.mError, nullptr);
        DescType type = typeNull;
        Size size = 0;
        char text[256] = {};
        if (AEGetParamPtr(&reply, keyDirectObject, typeWildCard, &type, text, sizeof text - 1,
                          &size) == noErr)
        {
            if (type == typeSInt32)
            {
                std::memcpy(&answer.mNumber, text, sizeof answer.mNumber);
            }
            else
            {
                answer.mText.assign(text, static_cast<size_t>(std::min<Size>(size, 255)));
            }
        }
        AEDisposeDesc(&reply);
        AEDisposeDesc(&event);
        AEDisposeDesc(&address);
        return answer;
    }

    // Every process of the test ends cleanly (under the sanitizers, a report ends it with
    // another code).
    void TearDown() override
    {
        if (mCoordinator)
        {
            EXPECT_EQ(mCoordinator->Stop(), 0) << mCoordinator->Log();
        }
        for (auto* driver : {mKelto.get(), mPen.get()})
        {
            if (driver != nullptr)
            {
                EXPECT_EQ(driver->Stop(), 0) << driver->Log();
            }
        }
    }

    ScopedPortDirectory mPorts;
    std::unique_ptr<SimulatedDriverProcess> mKelto;
    std::unique_ptr<SimulatedDriverProcess> mPen;
    std::unique_ptr<CoordinatorProcess> mCoordinator;
};

TEST_F(CoordinatorAppleEventTests, TabletsAreCountedHereOtherClassesByADriver)
{
    const SAnswer tablets = Send(kAECoreSuite, kAECountElements, CMacInputs::kTabletClass);
    EXPECT_EQ(tablets.mSent, noErr);
    EXPECT_EQ(tablets.mError, 0);
    EXPECT_EQ(tablets.mNumber, 2);
    EXPECT_EQ(Lines(mKelto->Log(), "'AEVT'"), 0u) << mKelto->Log();

    const SAnswer windows = Send(kAECoreSuite, kAECountElements, 'cwin');
    EXPECT_EQ(windows.mError, 0);
    EXPECT_EQ(windows.mText, "Kelto");
}

TEST_F(CoordinatorAppleEventTests, ObjectEventsGoToTheFirstDriverThatTakesThem)
{
    EXPECT_EQ(Send(kAECoreSuite, kAEGetData).mText, "Kelto");
    EXPECT_EQ(Lines(mPen->Log(), "'AEVT'"), 0u);

    // Kelto fails: Pen answers.
    ASSERT_TRUE(mKelto->Reload(Kelto(R"("AppleEvents": {"ErrorNumber": -1700})")));
    const SAnswer second = Send(kAECoreSuite, kAESetData);
    EXPECT_EQ(second.mError, 0);
    EXPECT_EQ(second.mText, "Pen");

    // Both fail: the last driver's error is the answer.
    ASSERT_TRUE(mPen->Reload(Pen(R"("AppleEvents": {"ErrorNumber": -1701})")));
    EXPECT_EQ(Send(kAECoreSuite, kAEDelete).mError, -1701);
    // A driver that declines (513) does not hide the error of one that failed.
    ASSERT_TRUE(mPen->Reload(Pen(R"("AppleEvents": {"ErrorNumber": 513})")));
    EXPECT_EQ(Send(kAECoreSuite, kAECreateElement).mError, -1700);
}

TEST_F(CoordinatorAppleEventTests, SaveGoesToEveryDriverAndOtherCoreEventsToNone)
{
    for (AEEventClass eventClass : {AEEventClass(kAECoreSuite), AEEventClass('Core')})
    {
        const size_t kelto = Lines(mKelto->Log(), "'AEVT'");
        const size_t pen = Lines(mPen->Log(), "'AEVT'");
        const SAnswer saved = Send(eventClass, kAESave);
        EXPECT_EQ(saved.mSent, noErr);
        EXPECT_EQ(saved.mError, 0);
        EXPECT_EQ(Lines(mKelto->Log(), "'AEVT'"), kelto + 1);
        EXPECT_EQ(Lines(mPen->Log(), "'AEVT'"), pen + 1);
    }

    const size_t kelto = Lines(mKelto->Log(), "'AEVT'");
    const SAnswer close = Send(kAECoreSuite, 'clos');
    EXPECT_EQ(close.mSent, noErr);
    EXPECT_EQ(close.mError, 0);
    EXPECT_EQ(Lines(mKelto->Log(), "'AEVT'"), kelto);
}

TEST_F(CoordinatorAppleEventTests, TabletSuiteEventGoesToTheDriverThatSawATabletLast)
{
    const AEEventClass suite = CMacInputs::kKeltoEventClass;
    const AEEventID send = CMacInputs::kKeltoSendEventID;
    EXPECT_EQ(Send(suite, send).mText, "Kelto"); // 1200 against 800

    ASSERT_TRUE(mPen->Reload(Pen(R"("LastTabletUsedTimestamp": 5000)")));
    EXPECT_EQ(Send(suite, send).mText, "Pen");

    // Nobody used a tablet: no driver gets it.
    ASSERT_TRUE(mKelto->Reload(Kelto("")));
    ASSERT_TRUE(mPen->Reload(Pen("")));
    const size_t kelto = Lines(mKelto->Log(), "'AEVT'");
    EXPECT_EQ(Send(suite, send).mError, errAENoSuchObject);
    EXPECT_EQ(Lines(mKelto->Log(), "'AEVT'"), kelto);
}
} // namespace
