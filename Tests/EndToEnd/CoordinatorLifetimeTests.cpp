// The coordinator's life as a process: its port, its bundle's protocol version, the ways it
// ends, the stale coordinator it replaces and the start-up that fails.
#include "Tests/EndToEnd/EndToEndSupport.h"
#include "Tests/Support/CoordinatorProcess.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include "Mac/TabletDriver/Source/Coordinator/CMacInputs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <poll.h>
#include <regex>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
using end_to_end::Client;
using end_to_end::kAnswerSeconds;
using end_to_end::Packet;

// Printed by the first synchronisation, which runs once launching has finished: from then
// on the signal handlers are in place.
const char kLaunched[] = "CRouteTable::Sync";

class CoordinatorLifetimeTests : public ::testing::Test
{
protected:
    std::unique_ptr<CoordinatorProcess>
    Launch(const std::string& name, const std::vector<std::string>& environment = {},
           const std::string& program = CoordinatorProcess::ProgramPath(),
           const std::vector<std::string>& arguments = {})
    {
        auto process = std::make_unique<CoordinatorProcess>(Scratch(name + ".log"), program);
        EXPECT_TRUE(process->Start(environment, arguments));
        return process;
    }

    // Starts one and waits until it has launched.
    std::unique_ptr<CoordinatorProcess>
    Running(const std::string& name, const std::vector<std::string>& environment = {},
            const std::string& program = CoordinatorProcess::ProgramPath())
    {
        auto process = Launch(name, environment, program);
        EXPECT_TRUE(process->WaitForLog(kLaunched, kAnswerSeconds)) << process->Log();
        return process;
    }

    static CEventPacket VersionRequest(ECommand command)
    {
        return Packet(command, {{EObjectIDRoutingTable}, {EParameterIDFileVersion}});
    }

    // Files of the test live in its port directory and go with it.
    std::string Scratch(const std::string& name) const { return mPorts.Path() + "/" + name; }

    ScopedPortDirectory mPorts;
};

TEST_F(CoordinatorLifetimeTests, ProtocolVersionComesFromTheBundlesInformation)
{
    const std::string built = CoordinatorProcess::BuiltInfoPlist();
    std::smatch match;
    ASSERT_TRUE(std::regex_search(built, match,
                                  std::regex("<key>Protocal</key>\\s*<integer>(\\d+)</integer>")));
    const unsigned int builtVersion = static_cast<unsigned int>(std::stoul(match[1]));

    struct SCase
    {
        std::string mName;
        std::string mPlist;
        KELSTATUS mStatus;
        unsigned int mVersion;
    };
    const SCase cases[] = {
        {"built", "", KELSTATUS_SUCCESS, builtVersion},
        {"seven",
         std::regex_replace(built, std::regex("<integer>\\d+</integer>"), "<integer>7</integer>"),
         KELSTATUS_SUCCESS, 7},
        // Without the key the coordinator has no version to give.
        {"none",
         std::regex_replace(built,
                            std::regex("<key>Protocal</key>\\s*<integer>\\d+"
                                       "</integer>"),
                            ""),
         KELSTATUS_OS_BAD_RESOURCE, 0},
    };
    for (const SCase& c : cases)
    {
        const std::string program =
            c.mPlist.empty() ? CoordinatorProcess::ProgramPath()
                             : CoordinatorProcess::CopyBundle(Scratch(c.mName), c.mPlist);
        auto coordinator = Running(c.mName, {}, program);
        Client client(CMacInputs::kPortName);

        CEventPacket get = VersionRequest(ECommandGet);
        EXPECT_EQ(client.Send(get), c.mStatus) << c.mName;
        EXPECT_EQ(get.Status(), c.mStatus) << c.mName;
        if (c.mStatus == KELSTATUS_SUCCESS)
        {
            EXPECT_EQ(get.UnPackData_<unsigned int>(0xFFFFFFFF), c.mVersion) << c.mName;
        }
        // The version cannot be set.
        CEventPacket set = VersionRequest(ECommandSet);
        set.PackData_<unsigned int>(9);
        client.Send(set);
        EXPECT_EQ(set.Status(), KELSTATUS_METHOD_NOT_IMPLEMENTED) << c.mName;
        EXPECT_EQ(coordinator->Stop(), 0) << coordinator->Log();
    }
}

TEST_F(CoordinatorLifetimeTests, HangUpInterruptQuitAbortAndTerminateEndItCleanly)
{
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGABRT})
    {
        auto coordinator = Running("signal" + std::to_string(signal));
        coordinator->Signal(signal);
        EXPECT_EQ(coordinator->WaitForExit(kAnswerSeconds), 0) << "signal " << signal << "\n"
                                                               << coordinator->Log();
    }
}

// Under systemd: each system log line reaches the journal once (not a second time through
// standard error when that is the journal stream), and the service manager hears READY=1
// once the port is served and STOPPING=1 on the way out.
TEST_F(CoordinatorLifetimeTests, TellsTheServiceManagerAndLogsToTheJournalOnce)
{
    const std::string socketPath = Scratch("notify");
    const int notify = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    ASSERT_EQ(bind(notify, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    auto next = [notify]
    {
        pollfd wait = {notify, POLLIN, 0};
        char message[256] = {};
        if (poll(&wait, 1, static_cast<int>(kAnswerSeconds * 1000)) != 1)
        {
            return std::string("(nothing)");
        }
        return std::string(
            message, static_cast<size_t>(std::max<ssize_t>(0, recv(notify, message, 255, 0))));
    };

    // Its standard error is the log file; JOURNAL_STREAM names it, or no file.
    const std::string logPath = Scratch("journal.log");
    std::ofstream(logPath).close();
    struct stat log = {};
    ASSERT_EQ(stat(logPath.c_str(), &log), 0);
    for (const bool journal : {true, false})
    {
        SCOPED_TRACE(journal ? "standard error is the journal" : "it is not");
        const std::string stream =
            journal ? std::to_string(log.st_dev) + ":" + std::to_string(log.st_ino) : "0:0";
        auto coordinator = Launch(journal ? "journal" : "plain",
                                  {"JOURNAL_STREAM=" + stream, "NOTIFY_SOCKET=" + socketPath});
        EXPECT_EQ(next(), "READY=1");
        ASSERT_TRUE(coordinator->WaitForLog(kLaunched, kAnswerSeconds)) << coordinator->Log();
        const std::string copy =
            "TabletDriver[" + std::to_string(coordinator->Pid()) + "]: NO LOGGED IN USER";
        EXPECT_EQ(coordinator->Log().find(copy) != std::string::npos, !journal)
            << coordinator->Log();
        EXPECT_EQ(coordinator->Stop(), 0);
        EXPECT_EQ(next(), "STOPPING=1");
    }
    close(notify);
}

// Somebody else at the console is named in the log, but on this system release the
// coordinator keeps the identity it was started with.
TEST_F(CoordinatorLifetimeTests, NeverChangesIdentityForTheConsoleUser)
{
    auto somebody = Running("somebody", {"KELTO_CONSOLE_USER=someone:4242:4343"});
    EXPECT_NE(somebody->Log().find("Transition to User ID:4242 Group:4343"), std::string::npos)
        << somebody->Log();
    std::ifstream status("/proc/" + std::to_string(somebody->Pid()) + "/status");
    std::string line;
    while (std::getline(status, line) && line.rfind("Uid:", 0) != 0)
    {
    }
    unsigned long real = 0;
    unsigned long effective = 0;
    std::istringstream(line.substr(4)) >> real >> effective;
    EXPECT_EQ(effective, static_cast<unsigned long>(geteuid())) << line;
    EXPECT_EQ(somebody->Stop(), 0) << somebody->Log();
}

TEST_F(CoordinatorLifetimeTests, StaleCoordinatorIsKilledAndItsPortTakenOver)
{
    // A coordinator of another port directory (another session): not ours to end.
    const std::string otherPorts = Scratch("other-ports");
    ASSERT_EQ(mkdir(otherPorts.c_str(), 0700), 0);
    auto unrelated = Running("unrelated", {"KELTO_PORT_DIR=" + otherPorts});

    // A coordinator that holds our port name and no longer answers.
    auto stale = Running("stale");
    stale->Signal(SIGSTOP);

    auto fresh = Launch("fresh");
    ASSERT_TRUE(fresh->WaitForLog("CMacInputs::InitMessageServer succeeded.", 40)) << fresh->Log();
    EXPECT_NE(fresh->Log().find("Killing the other coordinator."), std::string::npos);
    EXPECT_EQ(stale->WaitForExit(kAnswerSeconds), 128 + SIGKILL);

    // The new one serves the name.
    Client client(CMacInputs::kPortName);
    CEventPacket get = VersionRequest(ECommandGet);
    EXPECT_EQ(client.Send(get), KELSTATUS_SUCCESS);
    EXPECT_EQ(fresh->WaitForExit(0), -1) << "the new coordinator must still run";
    EXPECT_EQ(unrelated->WaitForExit(0), -1) << "a coordinator of another directory was killed";
    EXPECT_EQ(fresh->Stop(), 0) << fresh->Log();
    EXPECT_EQ(unrelated->Stop(), 0) << unrelated->Log();
}

// A coordinator that ends leaves none of its port files (sockets and locks); what a killed
// one left is removed by the next one.
TEST_F(CoordinatorLifetimeTests, LeavesNoPortFilesAndClearsThoseOfAKilledOne)
{
    auto portFiles = [this]
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mPorts.Path()))
        {
            const std::string name = entry.path().filename().string();
            if (name.find("AppleEvents") != std::string::npos ||
                name.find("CoordinatorMessageServer") != std::string::npos)
            {
                names.push_back(name);
            }
        }
        return names;
    };
    auto killed = Running("killed");
    const std::string killedPid = std::to_string(killed->Pid());
    killed->Signal(SIGKILL);
    EXPECT_EQ(killed->WaitForExit(kAnswerSeconds), 128 + SIGKILL);
    EXPECT_EQ(portFiles().size(), 6u); // three ports, each a socket and a lock

    auto clean = Running("clean");
    for (const std::string& name : portFiles())
    {
        EXPECT_EQ(name.find(killedPid), std::string::npos) << name;
    }
    EXPECT_EQ(portFiles().size(), 6u);
    EXPECT_EQ(clean->Stop(), 0) << clean->Log();
    EXPECT_EQ(portFiles(), std::vector<std::string>());
}

// A second coordinator started by mistake leaves the one that answers alone; --replace
// replaces it.
TEST_F(CoordinatorLifetimeTests, AnsweringCoordinatorIsReplacedOnlyWhenAskedTo)
{
    auto running = Running("running");
    auto second = Launch("second");
    EXPECT_EQ(second->WaitForExit(40), 255);
    EXPECT_NE(second->Log().find("*** Another coordinator serves "
                                 "com.kelto.CoordinatorMessageServer and answers; it is left "
                                 "running (start with --replace to replace it) ***"),
              std::string::npos)
        << second->Log();
    EXPECT_EQ(second->Log().find("Killing the other coordinator."), std::string::npos);
    EXPECT_EQ(running->WaitForExit(0), -1) << "the answering coordinator was ended";

    auto replacing = Launch("replacing", {}, CoordinatorProcess::ProgramPath(), {"--replace"});
    ASSERT_TRUE(replacing->WaitForLog("CMacInputs::InitMessageServer succeeded.", 40))
        << replacing->Log();
    EXPECT_EQ(running->WaitForExit(kAnswerSeconds), 128 + SIGKILL);
    EXPECT_EQ(replacing->Stop(), 0) << replacing->Log();
}

// Without KELTO_PORT_DIR and XDG_RUNTIME_DIR the ports go to the shared temporary directory;
// when somebody else took the name there first (another user, when the test runs as root;
// otherwise a directory open to everybody), the coordinator and its clients go to the home
// directory instead, and the coordinator serves.
TEST_F(CoordinatorLifetimeTests, PortDirectoryTakenFirstInTheTemporaryDirectoryIsPassedBy)
{
    const std::string tmp = Scratch("tmp");
    const std::string taken = tmp + "/com.kelto.ports." + std::to_string(geteuid());
    ASSERT_EQ(mkdir(tmp.c_str(), 0700), 0);
    ASSERT_EQ(mkdir(taken.c_str(), 0700), 0);
    ASSERT_EQ(geteuid() == 0 ? chown(taken.c_str(), 65534, 65534) : chmod(taken.c_str(), 0777), 0);
    const std::vector<std::string> places = {"KELTO_PORT_DIR=", "XDG_RUNTIME_DIR=", "TMPDIR=" + tmp,
                                             "HOME=" + Scratch("home")};
    auto coordinator = Running("home", places);

    std::string command = "env";
    for (const std::string& place : places)
    {
        command += " '" + place + "'";
    }
    command += " timeout -s KILL 20 '" KEL_TEST_BINARY_DIR "/Tools/tabletctl/tabletctl' version";
    EXPECT_EQ(std::system((command + " >/dev/null").c_str()), 0) << command;
    struct stat socket = {};
    EXPECT_EQ(stat((Scratch("home") + "/.local/state/kelto/ports/"
                                      "com.kelto.CoordinatorMessageServer")
                       .c_str(),
                   &socket),
              0);
    EXPECT_EQ(coordinator->Stop(), 0) << coordinator->Log();
}

TEST_F(CoordinatorLifetimeTests, PortThatCannotBeHadFailsStartUpWithTheMessage)
{
    // A port directory open to others is refused, so the port can never be made; there is
    // no other coordinator to kill either.
    const std::string openPorts = Scratch("open-ports");
    ASSERT_EQ(mkdir(openPorts.c_str(), 0700), 0);
    ASSERT_EQ(chmod(openPorts.c_str(), 0755), 0);
    auto coordinator = Launch("refused", {"KELTO_PORT_DIR=" + openPorts});
    EXPECT_EQ(coordinator->WaitForExit(40), 255);
    const std::string log = coordinator->Log();
    EXPECT_NE(log.find(openPorts + ": open to group or others"), std::string::npos) << log;
    EXPECT_NE(log.find("Killing the other coordinator."), std::string::npos) << log;
    EXPECT_NE(log.find("CMacInputs::InitMessageServer failed."), std::string::npos) << log;
    EXPECT_NE(log.find("*** Coordinator termininating because initialization failed. ***"),
              std::string::npos)
        << log;
    // Start-up stopped before the application ran.
    EXPECT_EQ(log.find(kLaunched), std::string::npos) << log;
}
} // namespace
