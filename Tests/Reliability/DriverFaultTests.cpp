// Drivers that fail while the coordinator waits for them: one that ends in the middle of a
// request, one that answers slowly, one that never answers, and one that comes back after
// it ended. Whatever happens to a driver, the client that asked gets a status, every other
// client is served (while the coordinator waits, as its private run-loop mode allows), and
// the coordinator itself goes on.
//
// The coordinator waits up to 500 seconds for a driver. The test of a driver that never
// answers does not wait for that: once it has seen the others served, it ends the silent
// driver itself, which is what releases the waiting requests.
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Reliability/ClientProcess.h"
#include "Tests/Reliability/ReliabilitySystem.h"

#include "Mac/Common/Communication/CMacMessagingClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
using namespace reliability;
using Clock = std::chrono::steady_clock;

const char* const kDriverNames[] = {"Kelto", "Pen"};

// `count_I` requests that need nothing of driver `busyDriverID_I`: the coordinator's own
// answers (protocol version, touch API query) and requests for the other driver's tablets.
// The number answered right.
unsigned int ServedWithout(const SExpectations& expected_I, int busyDriverID_I,
                           unsigned int count_I)
{
    const int otherDriverID = 1 - busyDriverID_I;
    const std::vector<unsigned int> tablets = TabletsOf(expected_I, otherDriverID);
    end_to_end::Client client(kCoordinatorPortName);
    unsigned int right = 0;
    for (unsigned int i = 0; i < count_I; ++i)
    {
        if (i % 3 == 2)
        {
            CEventPacket packet = TabletRequest(tablets[i % tablets.size()], EParameterIDName);
            right += client.Send(packet) == KELSTATUS_SUCCESS &&
                     DriverOfAnswer(packet) == kDriverNames[otherDriverID];
        }
        else
        {
            const unsigned int sequence = 4 * i + 1 + i % 3; // kinds 1 and 2 of the mix
            CEventPacket packet = MakeRequest(200, sequence, expected_I);
            right += CheckAnswer(200, sequence, expected_I, client.Send(packet), packet).empty();
        }
    }
    return right;
}

// The status of one request for a tablet, and how long it took.
struct SOutcome
{
    KELSTATUS mStatus;
    std::string mDriver;
    double mSeconds;
};

SOutcome AskTablet(unsigned int systemID_I)
{
    end_to_end::Client client(kCoordinatorPortName);
    CEventPacket packet = TabletRequest(systemID_I, EParameterIDName);
    const auto start = Clock::now();
    const KELSTATUS status = client.Send(packet);
    return {status, status == KELSTATUS_SUCCESS ? DriverOfAnswer(packet) : "",
            std::chrono::duration<double>(Clock::now() - start).count()};
}

SSystemOptions PenFaults(const std::string& faults_I)
{
    SSystemOptions options;
    options.mPenFaults = faults_I;
    return options;
}

TEST(DriverFaultTests, ADriverEndingInTheMiddleOfARequestGivesItsClientAStatus)
{
    CReliabilitySystem system(
        PenFaults(R"([{"Request": "other", "Action": "exit", "ExitCode": 70, "Times": 1}])"));
    ASSERT_TRUE(system.Start()) << system.Problem();
    const std::vector<unsigned int> pen = TabletsOf(system.Expected(), 1);

    const SOutcome outcome = AskTablet(pen[0]);
    EXPECT_NE(outcome.mStatus, KELSTATUS_SUCCESS);
    EXPECT_LT(outcome.mSeconds, 5.0);
    EXPECT_EQ(system.Driver(1)->WaitForExit(std::chrono::seconds(5)), 70);

    // The others are served, and the gone driver's tablets fail at once, without a wait.
    EXPECT_EQ(ServedWithout(system.Expected(), 1, 30), 30u) << system.Logs();
    const SOutcome again = AskTablet(pen[1]);
    EXPECT_NE(again.mStatus, KELSTATUS_SUCCESS);
    EXPECT_LT(again.mSeconds, 2.0);
    EXPECT_TRUE(system.Coordinator().Running());
}

TEST(DriverFaultTests, ARestartedDriverIsReachedAgain)
{
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const std::vector<unsigned int> pen = TabletsOf(system.Expected(), 1);
    EXPECT_EQ(AskTablet(pen[0]).mDriver, "Pen");

    system.Driver(1)->Signal(SIGKILL);
    ASSERT_TRUE(system.Driver(1)->WaitForExit(std::chrono::seconds(5)).has_value());
    EXPECT_NE(AskTablet(pen[0]).mStatus, KELSTATUS_SUCCESS);

    ASSERT_TRUE(system.ReplaceDriver(1, DriverConfig(1, "Pen again"))) << system.Logs();
    // The coordinator's port to the driver connects again by itself: the very next request
    // reaches the new process (which does not know the tablet's system ID yet).
    AskTablet(pen[0]);
    EXPECT_NE(system.Driver(1)->Log().find("tablet ID " + std::to_string(pen[0])),
              std::string::npos)
        << system.Logs();
    // A sync, as a driver that starts asks for, tells it its tablets' IDs again.
    end_to_end::Client client(kCoordinatorPortName);
    CEventPacket flush =
        end_to_end::Packet(ECommandFlush, {{EObjectIDRoutingTable}, {EParameterIDTabletBlock}});
    EXPECT_EQ(client.Send(flush), KELSTATUS_SUCCESS);
    for (unsigned int id : pen)
    {
        EXPECT_EQ(AskTablet(id).mDriver, "Pen again") << "tablet " << id;
    }
    EXPECT_EQ(AskTablet(TabletsOf(system.Expected(), 0)[0]).mDriver, "Kelto");
}

TEST(DriverFaultTests, WhileADriverAnswersSlowlyOthersAreServed)
{
    CReliabilitySystem system(
        PenFaults(R"([{"Request": "other", "Action": "slow", "Milliseconds": 4000, "Times": 1}])"));
    ASSERT_TRUE(system.Start()) << system.Problem();
    const std::vector<unsigned int> pen = TabletsOf(system.Expected(), 1);

    CClientProcess asker({"ask", std::to_string(pen[0])});
    ASSERT_EQ(asker.ReadLine(), "asking");
    const auto asked = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // it reaches the driver
    EXPECT_EQ(ServedWithout(system.Expected(), 1, 30), 30u) << system.Logs();
    // All of them while the slow request was still waiting for its answer.
    EXPECT_FALSE(asker.HasLine());
    EXPECT_EQ(system.Driver(1)->Log().find("(slow: 4000 ms)"), std::string::npos);

    // And the slow request is not lost: its answer comes, from its driver.
    EXPECT_EQ(asker.ReadLine(), "status 0x0000 driver Pen");
    EXPECT_GE(std::chrono::duration<double>(Clock::now() - asked).count(), 3.5);
    EXPECT_NE(system.Driver(1)->Log().find("(slow: 4000 ms)"), std::string::npos);
    EXPECT_EQ(asker.WaitForExit(), 0);
}

TEST(DriverFaultTests, WhileADriverNeverAnswersOthersAreServedAndNoRequestIsLost)
{
    CReliabilitySystem system(
        PenFaults(R"([{"Request": "other", "Action": "hang", "Milliseconds": 600000}])"));
    ASSERT_TRUE(system.Start()) << system.Problem();
    const std::vector<unsigned int> pen = TabletsOf(system.Expected(), 1);

    // Two clients wait for the silent driver: the second request is sent by the coordinator
    // while it still waits for the first.
    CClientProcess first({"ask", std::to_string(pen[0])});
    ASSERT_TRUE(system.Driver(1)->WaitForLog("fault: hang", std::chrono::seconds(10)))
        << system.Logs();
    CClientProcess second({"ask", std::to_string(pen[1])});
    ASSERT_EQ(second.ReadLine(), "asking");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));

    EXPECT_EQ(ServedWithout(system.Expected(), 1, 30), 30u) << system.Logs();
    EXPECT_EQ(first.ReadLine(0.1), "asking");
    EXPECT_FALSE(first.HasLine());
    EXPECT_FALSE(second.HasLine());

    // The test ends the silence: both waiting clients get a status, neither an answer.
    system.Driver(1)->Signal(SIGKILL);
    EXPECT_EQ(first.ReadLine(10.0), "status 0xFFFF driver ");
    EXPECT_EQ(second.ReadLine(10.0), "status 0xFFFF driver ");
    EXPECT_EQ(ServedWithout(system.Expected(), 1, 10), 10u) << system.Logs();
    EXPECT_TRUE(system.Coordinator().Running());
}
} // namespace

namespace
{
// A stopped driver (SIGSTOP) and 64 requests for it: only a few wait for it, the others get
// 0xFFFF at once, and the coordinator's own answers and the other driver's requests come
// back within a second all the while.
TEST(DriverFaultTests, AStoppedDriverHoldsAFewRequestsAndNobodyElse)
{
    CReliabilitySystem system;
    ASSERT_TRUE(system.Start()) << system.Problem();
    const std::vector<unsigned int> pen = TabletsOf(system.Expected(), 1);
    system.Driver(1)->Signal(SIGSTOP);

    std::vector<std::unique_ptr<CClientProcess>> askers;
    for (int i = 0; i < 64; ++i)
    {
        askers.push_back(std::make_unique<CClientProcess>(
            std::vector<std::string>{"ask", std::to_string(pen[i % pen.size()])}));
    }
    for (auto& asker : askers)
    {
        EXPECT_EQ(asker->ReadLine(20.0), "asking");
    }
    // The refused ones answer at once; those that wait say nothing.
    const size_t waiting = CMacMessagingClient::kMaxWaitingRequests;
    std::vector<bool> answered(askers.size(), false);
    size_t refused = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (refused < askers.size() - waiting && Clock::now() < deadline)
    {
        for (size_t i = 0; i < askers.size(); ++i)
        {
            if (!answered[i] && askers[i]->HasLine())
            {
                answered[i] = true;
                refused += askers[i]->ReadLine(1.0) == "status 0xFFFF driver ";
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(refused, askers.size() - waiting) << system.Logs();

    for (int round = 0; round < 3; ++round)
    {
        const auto start = Clock::now();
        EXPECT_EQ(ServedWithout(system.Expected(), 1, 3), 3u) << system.Logs();
        EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 1.0);
    }
    // The driver goes on: those that waited get its answer.
    system.Driver(1)->Signal(SIGCONT);
    for (auto& asker : askers)
    {
        EXPECT_EQ(asker->WaitForExit(20.0), 0);
    }
    EXPECT_TRUE(system.Coordinator().Running());
}
} // namespace
