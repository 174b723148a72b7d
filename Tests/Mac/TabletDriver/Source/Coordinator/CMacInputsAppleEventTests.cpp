#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include "Common/Coordinator/CRouteTable.h"
#include "Tests/Mac/TabletDriver/Source/Coordinator/CoordinatorTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace
{
using coordinator_test::Capture;
using coordinator_test::FakeDriver;
using coordinator_test::kInputsSource;
using coordinator_test::Report;
using coordinator_test::TestEvent;

class CMacInputsAppleEventTests : public ::testing::Test
{
protected:
    void SetUp() override { mInputs.CInputs::Init(&mTable); }

    void TearDown() override
    {
        for (const auto& entry : CMacInputs::kAppleEventHandlers)
        {
            AERemoveEventHandler(entry.mEventClass, entry.mEventID, nullptr, false);
        }
    }

    std::shared_ptr<FakeDriver> AddDriver(int driverID, OSStatus appleEventResult = noErr)
    {
        auto driver = std::make_shared<FakeDriver>(appleEventResult);
        driver->mTag = driverID;
        driver->mCallLog = &mCallLog;
        // Clearing the entry first makes the replacement a regular one, not a reported one.
        if (mTable.GetDriverByID(driverID))
        {
            mTable.SetDriver(driverID, nullptr);
        }
        mTable.SetDriver(driverID, driver);
        return driver;
    }

    // The installed handler as the dispatcher finds it: the exact pair, else the class.
    OSErr Dispatch(TestEvent& event, AEEventClass eventClass, AEEventID eventID,
                   SRefCon* refConFound = nullptr)
    {
        AEEventHandlerUPP handler = nullptr;
        SRefCon refCon = nullptr;
        if (AEGetEventHandler(eventClass, eventID, &handler, &refCon, false) != noErr &&
            AEGetEventHandler(eventClass, typeWildCard, &handler, &refCon, false) != noErr)
        {
            ADD_FAILURE() << "no handler for the event";
            return errAEEventNotHandled;
        }
        if (refConFound != nullptr)
        {
            *refConFound = refCon;
        }
        return handler(&event.mEvent, &event.mReply, refCon);
    }

    OSErr Dispatch(AEEventClass eventClass, AEEventID eventID, SRefCon* refConFound = nullptr)
    {
        TestEvent event(eventClass, eventID);
        return Dispatch(event, eventClass, eventID, refConFound);
    }

    CRouteTable mTable;
    CMacInputs mInputs;
    std::vector<int> mCallLog;
};

TEST_F(CMacInputsAppleEventTests, EachInstalledEventReachesItsForwarder)
{
    auto driver0 = AddDriver(0);
    auto driver1 = AddDriver(1);
    driver1->mTimestamp = 7; // driver 1 saw a tablet last
    mInputs.InstallAppleEventHandlers();

    // Object events go to the first driver that takes them.
    for (AEEventID eventID : {kAECreateElement, kAEDelete, kAEGetData, kAEGetDataSize, kAESetData})
    {
        mCallLog.clear();
        EXPECT_EQ(Dispatch(kAECoreSuite, eventID), noErr);
        EXPECT_EQ(mCallLog, (std::vector<int>{0})) << "event " << std::hex << eventID;
    }
    // "save" goes to every driver, under both spellings of the class.
    for (AEEventClass eventClass : {AEEventClass(kAECoreSuite), AEEventClass('Core')})
    {
        mCallLog.clear();
        EXPECT_EQ(Dispatch(eventClass, kAESave), noErr);
        EXPECT_EQ(mCallLog, (std::vector<int>{0, 1})) << "class " << std::hex << eventClass;
    }
    // Any other core event succeeds without reaching a driver, and its handler has no
    // reference constant.
    mCallLog.clear();
    SRefCon refCon = &mInputs;
    EXPECT_EQ(Dispatch(kAECoreSuite, 'clos', &refCon), noErr);
    EXPECT_EQ(refCon, nullptr);
    EXPECT_TRUE(mCallLog.empty());
    // The tablet suite's send goes to the driver that saw a tablet last.
    mCallLog.clear();
    EXPECT_EQ(Dispatch(CMacInputs::kKeltoEventClass, CMacInputs::kKeltoSendEventID), noErr);
    EXPECT_EQ(mCallLog, (std::vector<int>{1}));
    // Counting tablets is answered here.
    mCallLog.clear();
    TestEvent count(kAECoreSuite, kAECountElements);
    count.SetObjectClass(CMacInputs::kTabletClass);
    EXPECT_EQ(Dispatch(count, kAECoreSuite, kAECountElements), noErr);
    EXPECT_TRUE(mCallLog.empty());
    EXPECT_EQ(count.ReplyValue(-1), 0);
    // The launch event synchronises the tablet list, which ends with the tablet block sent
    // to every driver.
    driver0->mPackets.clear();
    EXPECT_EQ(Dispatch(kCoreEventClass, kAEOpenApplication), noErr);
    EXPECT_TRUE(driver0->SentTabletBlock());
}

TEST_F(CMacInputsAppleEventTests, ForwardFirstReportsTheLastRealErrorAndIgnoresDeclines)
{
    struct SCase
    {
        OSStatus mDriver0;
        OSStatus mDriver1;
        OSErr mExpected;
        std::vector<int> mAsked;
    };
    const SCase cases[] = {
        {513, 513, errAENoSuchObject, {0, 1}}, // every driver declines
        {-1700, 513, -1700, {0, 1}},           // a decline does not hide an earlier error
        {513, -1700, -1700, {0, 1}},           //
        {-1700, -1701, -1701, {0, 1}},         // the last error wins
        {-1700, noErr, noErr, {0, 1}},         // a later success wins
        {noErr, -1700, noErr, {0}},            // the first success ends the walk
    };
    for (const SCase& c : cases)
    {
        auto driver0 = AddDriver(0, c.mDriver0);
        auto driver1 = AddDriver(1, c.mDriver1);
        driver0->mReplyValue = 10;
        driver1->mReplyValue = 11;
        mCallLog.clear();
        TestEvent event(kAECoreSuite, kAEGetData);
        EXPECT_EQ(AEForwardFirst(&event.mEvent, &event.mReply, &mInputs), c.mExpected)
            << c.mDriver0 << " " << c.mDriver1;
        EXPECT_EQ(mCallLog, c.mAsked);
        if (c.mExpected == noErr)
        {
            EXPECT_EQ(event.ReplyValue(-1), c.mDriver0 == noErr ? 10 : 11);
        }
    }
}

TEST_F(CMacInputsAppleEventTests, ForwardersWalkDriversInAscendingIDAndStopAtAnEmptyEntry)
{
    // Registered out of order; the walk is by ID.
    AddDriver(1, 513);
    AddDriver(0, 513);
    TestEvent event(kAECoreSuite, kAEGetData);
    EXPECT_EQ(mInputs.ForwardAEToSuccessfulDriver(&event.mEvent, &event.mReply), errAENoSuchObject);
    EXPECT_EQ(mCallLog, (std::vector<int>{0, 1}));

    // An empty entry ends every walk: driver 2 behind it is never asked.
    mTable.SetDriver(1, nullptr);
    AddDriver(2);
    mCallLog.clear();
    EXPECT_EQ(mInputs.ForwardAEToAllDrivers(&event.mEvent), noErr);
    EXPECT_EQ(mCallLog, (std::vector<int>{0}));
}

TEST_F(CMacInputsAppleEventTests, ForwardAllAsksEveryDriverWithReplyOfItsOwn)
{
    auto driver0 = AddDriver(0, noErr);
    AddDriver(1, -1700);
    driver0->mReplyValue = 10;
    TestEvent event(kAECoreSuite, kAESave);
    EXPECT_EQ(AEForwardAll(&event.mEvent, &event.mReply, &mInputs), noErr);
    EXPECT_EQ(mCallLog, (std::vector<int>{0, 1}));
    // The drivers answered into replies of their own, which were thrown away.
    EXPECT_EQ(event.ReplyValue(-1), -1);
}

TEST_F(CMacInputsAppleEventTests, CountEventCountsTabletsHereAndForwardsOtherClasses)
{
    auto driver0 = AddDriver(0, noErr);
    auto driver1 = AddDriver(1, noErr);
    driver0->mReplyValue = 42;
    // The table knows two tablets and the drivers agree, so no sync is needed.
    mTable.AddNewTablet(0, 0);
    mTable.AddNewTablet(1, 0);
    driver0->mTabletCount = 1;
    driver1->mTabletCount = 1;
    TestEvent count(kAECoreSuite, kAECountElements);
    count.SetObjectClass(CMacInputs::kTabletClass);
    EXPECT_EQ(AECountPreHandler(&count.mEvent, &count.mReply, &mInputs), noErr);
    EXPECT_EQ(count.ReplyValue(-1), 2);
    EXPECT_TRUE(mCallLog.empty());

    // With a null reply the count is made but put nowhere.
    AEDesc nullReply;
    AEInitializeDesc(&nullReply);
    EXPECT_EQ(AECountPreHandler(&count.mEvent, &nullReply, &mInputs), noErr);
    EXPECT_EQ(nullReply.descriptorType, typeNull);

    // Any other class is a driver's affair: the first that succeeds answers.
    TestEvent windows(kAECoreSuite, kAECountElements);
    windows.SetObjectClass('cwin');
    EXPECT_EQ(AECountPreHandler(&windows.mEvent, &windows.mReply, &mInputs), noErr);
    EXPECT_EQ(windows.ReplyValue(-1), 42);
    EXPECT_EQ(mCallLog, (std::vector<int>{0}));

    // Without a class there is nothing to count: the parameter error is the answer.
    TestEvent bare(kAECoreSuite, kAECountElements);
    EXPECT_EQ(AECountPreHandler(&bare.mEvent, &bare.mReply, &mInputs), errAEDescNotFound);
}

TEST_F(CMacInputsAppleEventTests, HandlersWithoutInputsDoNothing)
{
    AddDriver(0, -1700);
    TestEvent event(kAECoreSuite, kAEGetData);
    EXPECT_EQ(AEForwardFirst(&event.mEvent, &event.mReply, nullptr), noErr);
    EXPECT_EQ(AEForwardAll(&event.mEvent, &event.mReply, nullptr), noErr);
    EXPECT_EQ(AEForwardLastUsed(&event.mEvent, &event.mReply, nullptr), noErr);
    EXPECT_EQ(AEAppLaunchedHandler(&event.mEvent, &event.mReply, nullptr), noErr);
    EXPECT_TRUE(mCallLog.empty());

    // The count handler reports the missing inputs and still answers a tablet count (0).
    TestEvent count(kAECoreSuite, kAECountElements);
    count.SetObjectClass(CMacInputs::kTabletClass);
    OSErr result = -1;
    const auto output =
        Capture([&] { result = AECountPreHandler(&count.mEvent, &count.mReply, nullptr); });
    EXPECT_EQ(result, noErr);
    EXPECT_EQ(output.out, Report(kInputsSource, 558, "pInputObj"));
    EXPECT_EQ(count.ReplyValue(-1), 0);
}
} // namespace
