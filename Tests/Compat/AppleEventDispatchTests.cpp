#include "Compat/AEDispatch.h"

#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
// Each handler appends its name to the log its refcon points to.
std::vector<std::string>* Log(SRefCon refcon)
{
    return static_cast<std::vector<std::string>*>(refcon);
}
OSErr Exact(const AppleEvent*, AppleEvent*, SRefCon refcon)
{
    Log(refcon)->push_back("exact");
    return noErr;
}
OSErr AnyID(const AppleEvent*, AppleEvent*, SRefCon refcon)
{
    Log(refcon)->push_back("class/****");
    return noErr;
}
OSErr AnyClass(const AppleEvent*, AppleEvent*, SRefCon refcon)
{
    Log(refcon)->push_back("****/id");
    return noErr;
}
OSErr System(const AppleEvent*, AppleEvent*, SRefCon refcon)
{
    Log(refcon)->push_back("system");
    return noErr;
}
OSErr Fails(const AppleEvent*, AppleEvent* reply, SRefCon)
{
    return reply->descriptorType == typeNull ? OSErr(-1) : OSErr(errAENoSuchObject);
}
OSErr FailsWithOwnNumber(const AppleEvent*, AppleEvent* reply, SRefCon)
{
    SInt32 own = 513;
    AEPutParamPtr(reply, keyErrorNumber, typeSInt32, &own, 4);
    return -50;
}
OSErr Answers(const AppleEvent* event, AppleEvent* reply, SRefCon)
{
    SInt32 value = 0;
    AEGetParamPtr(event, keyDirectObject, typeSInt32, nullptr, &value, 4, nullptr);
    value *= 2;
    return AEPutParamPtr(reply, keyDirectObject, typeSInt32, &value, 4);
}

class AppleEventDispatchTests : public testing::Test
{
protected:
    // The tables are the process's own: every pair installed here is removed again.
    void TearDown() override
    {
        for (const auto& [eventClass, eventID, system] : mInstalled)
        {
            AERemoveEventHandler(eventClass, eventID, nullptr, system);
        }
        AEDisposeDesc(&mEvent);
        AEDisposeDesc(&mReply);
    }

    void Install(AEEventClass eventClass, AEEventID eventID, AEEventHandlerUPP handler,
                 bool system = false)
    {
        ASSERT_EQ(AEInstallEventHandler(eventClass, eventID, handler, &mLog, system), noErr);
        mInstalled.push_back({eventClass, eventID, system});
    }

    OSErr Dispatch(AEEventClass eventClass, AEEventID eventID, bool wantReply)
    {
        AEDisposeDesc(&mEvent);
        AEDisposeDesc(&mReply);
        AECreateAppleEvent(eventClass, eventID, nullptr, kAutoGenerateReturnID, 0, &mEvent);
        if (wantReply)
        {
            EXPECT_EQ(AEDispatch::CreateReply(&mEvent, &mReply), noErr);
        }
        return AEDispatch::DispatchEvent(&mEvent, &mReply);
    }

    SInt32 ReplyError()
    {
        SInt32 number = 0;
        if (AEGetParamPtr(&mReply, keyErrorNumber, typeSInt32, nullptr, &number, 4, nullptr) !=
            noErr)
        {
            return 0;
        }
        return number;
    }

    struct SPair
    {
        AEEventClass eventClass;
        AEEventID eventID;
        bool system;
    };
    std::vector<SPair> mInstalled;
    std::vector<std::string> mLog;
    AppleEvent mEvent{typeNull, nullptr};
    AppleEvent mReply{typeNull, nullptr};
};

TEST_F(AppleEventDispatchTests, LookupPrefersExactThenWildcardIDThenWildcardClassThenSystem)
{
    Install('tst1', 'getd', Exact);
    Install('tst1', typeWildCard, AnyID);
    Install(typeWildCard, 'tsid', AnyClass);
    Install('tst2', 'only', System, true);
    Install('tst1', 'sysx', System, true);

    EXPECT_EQ(Dispatch('tst1', 'getd', false), noErr);
    EXPECT_EQ(Dispatch('tst1', 'tsid', false), noErr); // class wildcard beats '****'/id
    EXPECT_EQ(Dispatch('tst9', 'tsid', false), noErr);
    EXPECT_EQ(Dispatch('tst2', 'only', false), noErr);
    EXPECT_EQ(Dispatch('tst1', 'sysx', false), noErr); // application table first
    EXPECT_EQ(mLog,
              (std::vector<std::string>{"exact", "class/****", "****/id", "system", "class/****"}));
}

TEST_F(AppleEventDispatchTests, ReplyCarriesAnswerAndHandlerErrors)
{
    Install('tst3', 'answ', Answers);
    Install('tst3', 'fail', Fails);
    Install('tst3', 'ownn', FailsWithOwnNumber);

    AEDisposeDesc(&mEvent);
    AECreateAppleEvent('tst3', 'answ', nullptr, 5, 77, &mEvent);
    SInt32 value = 21;
    AEPutParamPtr(&mEvent, keyDirectObject, typeSInt32, &value, 4);
    ASSERT_EQ(AEDispatch::CreateReply(&mEvent, &mReply), noErr);
    EXPECT_EQ(AEDispatch::DispatchEvent(&mEvent, &mReply), noErr);
    AEEventID replyID = 0;
    AEReturnID returnID = 0;
    AETransactionID transaction = 0;
    AEGetAttributePtr(&mReply, keyEventIDAttr, typeType, nullptr, &replyID, 4, nullptr);
    AEGetAttributePtr(&mReply, keyReturnIDAttr, typeSInt16, nullptr, &returnID, 2, nullptr);
    AEGetAttributePtr(&mReply, keyTransactionIDAttr, typeSInt32, nullptr, &transaction, 4, nullptr);
    EXPECT_EQ(replyID, AEEventID(kAEAnswer));
    EXPECT_EQ(returnID, 5);
    EXPECT_EQ(transaction, 77);
    AEGetParamPtr(&mReply, keyDirectObject, typeSInt32, nullptr, &value, 4, nullptr);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(ReplyError(), 0);

    EXPECT_EQ(Dispatch('tst3', 'fail', true), errAENoSuchObject);
    EXPECT_EQ(ReplyError(), errAENoSuchObject);
    EXPECT_EQ(Dispatch('tst3', 'ownn', true), -50);
    EXPECT_EQ(ReplyError(), 513);
    EXPECT_EQ(Dispatch('tst3', 'none', true), errAEEventNotHandled);
    EXPECT_EQ(ReplyError(), errAEEventNotHandled);

    // Without a reply the handler sees a null descriptor and nothing is added to it.
    EXPECT_EQ(Dispatch('tst3', 'fail', false), -1);
    EXPECT_EQ(mReply.descriptorType, DescType(typeNull));
}

TEST_F(AppleEventDispatchTests, InstallReplacesAndRemoveNeedsTheSameHandler)
{
    Install('tst4', 'repl', Exact);
    Install('tst4', 'repl', AnyID);
    AEEventHandlerUPP handler = nullptr;
    SRefCon refcon = nullptr;
    ASSERT_EQ(AEGetEventHandler('tst4', 'repl', &handler, &refcon, false), noErr);
    EXPECT_EQ(handler, &AnyID);
    EXPECT_EQ(refcon, &mLog);
    EXPECT_EQ(AEGetEventHandler('tst4', 'repl', &handler, &refcon, true), errAEHandlerNotFound);

    EXPECT_EQ(AERemoveEventHandler('tst4', 'repl', Exact, false), errAEHandlerNotFound);
    EXPECT_EQ(AERemoveEventHandler('tst4', 'repl', AnyID, false), noErr);
    EXPECT_EQ(Dispatch('tst4', 'repl', false), errAEEventNotHandled);
    EXPECT_TRUE(mLog.empty());
    EXPECT_EQ(AEInstallEventHandler('tst4', 'null', nullptr, nullptr, false), paramErr);
}
} // namespace
