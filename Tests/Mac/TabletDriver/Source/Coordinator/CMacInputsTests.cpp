#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include "Common/CEventPacket.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Mac/Common/Communication/MessageIDs.h"
#include "Tests/Mac/TabletDriver/Source/Coordinator/CoordinatorTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
using coordinator_test::Capture;
using coordinator_test::FakeDriver;
using coordinator_test::kInputsSource;
using coordinator_test::Report;

class CMacInputsTests : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mInputs.CInputs::Init(&mTable);
        mDriver0 = std::make_shared<FakeDriver>();
        mDriver1 = std::make_shared<FakeDriver>();
        mTable.SetDriver(0, mDriver0);
        mTable.SetDriver(1, mDriver1);
    }

    static void AddRoutingTableKeys(CEventPacket& packet, ECommand command,
                                    EEventIdentifier parameter)
    {
        packet.SetCommand(command);
        packet.AddKeyInt(EObjectIDRoutingTable, 0, EAddrModeByIndex);
        packet.AddKeyInt(parameter, 0, EAddrModeByIndex);
    }

    CRouteTable mTable;
    CMacInputs mInputs;
    std::shared_ptr<FakeDriver> mDriver0;
    std::shared_ptr<FakeDriver> mDriver1;
};

TEST_F(CMacInputsTests, OtherRoutingTableRequestsGoToTheTableWithTheKeyInPlace)
{
    // A flush of the tablet block is a sync: the block ends at every driver.
    CEventPacket flush;
    AddRoutingTableKeys(flush, ECommandFlush, EParameterIDTabletBlock);
    EXPECT_EQ(mInputs.ProcessKeltoEvent(flush), KELSTATUS_SUCCESS);
    EXPECT_TRUE(mDriver0->SentTabletBlock());
    EXPECT_TRUE(mDriver1->SentTabletBlock());
    // The table saw the packet from the routing-table key, as it arrived.
    EXPECT_EQ(flush.CurrentKey(), flush.ObjectKey(0));

    // Any other routing-table parameter is the table's to refuse.
    CEventPacket other;
    AddRoutingTableKeys(other, ECommandGet, EParameterIDCount);
    EXPECT_EQ(mInputs.ProcessKeltoEvent(other), KELSTATUS_METHOD_NOT_IMPLEMENTED);
}

TEST_F(CMacInputsTests, ServerCallbackHandsPacketsToTheInputsGivenAsContext)
{
    mDriver0->mPacketStatus = KELSTATUS_SUCCESS;
    CEventPacket name;
    name.SetCommand(ECommandGet);
    name.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    name.AddKeyInt(EParameterIDName, 0, EAddrModeByIndex);
    EXPECT_EQ(CMacInputs::ProcessEventCallback(&name, &mInputs), KELSTATUS_SUCCESS);
    ASSERT_EQ(mDriver0->mPackets.size(), 1u);
    EXPECT_EQ(mDriver0->mPackets[0].mSecond, EParameterIDName);

    // Without a context nothing is routed and the answer is 0.
    EXPECT_EQ(CMacInputs::ProcessEventCallback(&name, nullptr), 0);
    EXPECT_EQ(mDriver0->mPackets.size(), 1u);
}

TEST_F(CMacInputsTests, AppDidLaunchSyncsAndReportsAMissingTable)
{
    EXPECT_EQ(mInputs.AppDidLaunch(), KELSTATUS_OBJECT_NOT_FOUND); // both drivers refuse
    EXPECT_TRUE(mDriver0->SentTabletBlock());

    CMacInputs unattached;
    KELSTATUS status = 0;
    const auto output = Capture([&] { status = unattached.AppDidLaunch(); });
    EXPECT_EQ(output.out, Report(kInputsSource, 411, "mpRoutingTable"));
    EXPECT_NE(status, KELSTATUS_SUCCESS);
}

TEST_F(CMacInputsTests, PortCallbackAnswersByteOrderAndNothingForUnknownIDs)
{
    // The callback's info is the message server; the inputs' own is used here unopened.
    void* server = const_cast<CMacMessagingServer*>(&mInputs.MessageServer());

    CFDataRef order =
        CMacInputs::MessageServerCallback(nullptr, kMessageIDEndianness, nullptr, server);
    ASSERT_NE(order, nullptr);
    ASSERT_EQ(CFDataGetLength(order), 1);
    EXPECT_EQ(CFDataGetBytePtr(order)[0], 1);
    CFRelease(order);

    const UInt8 byte = 0;
    CFDataRef data = CFDataCreate(nullptr, &byte, 1);
    EXPECT_EQ(CMacInputs::MessageServerCallback(nullptr, kMessageIDAppleEvent, data, server),
              nullptr);
    EXPECT_EQ(CMacInputs::MessageServerCallback(nullptr, 'XXXX', data, server), nullptr);
    // Without a server nothing is answered, not even the byte order.
    EXPECT_EQ(CMacInputs::MessageServerCallback(nullptr, kMessageIDEndianness, data, nullptr),
              nullptr);
    CFRelease(data);
}
} // namespace
