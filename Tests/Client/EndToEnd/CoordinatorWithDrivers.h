// The system as a user runs it, for the client's end-to-end tests: the real coordinator and
// two simulated drivers (by default with the example configurations the demo uses), as
// processes in a port directory of the test's own, each stopped by its process ID when the
// object ends.
//
//   CoordinatorWithDrivers system;
//   ASSERT_TRUE(system.Start()) << system.Logs();
//   ... CKeltoClient or tabletctl, in this process's environment ...
#pragma once

#include "Client/CKeltoClient.h"
#include "Tests/EndToEnd/CoordinatorProcess.h"
#include "Tests/Support/SimulatedDriverProcess.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

class CoordinatorWithDrivers
{
public:
    // The shipped example configuration of that name (Tools/SimulatedDriver/examples/).
    static std::string Example(const std::string& fileName_I)
    {
        std::ifstream in(KEL_TEST_SOURCE_DIR "/Tools/SimulatedDriver/examples/" + fileName_I);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    explicit CoordinatorWithDrivers(std::string keltoConfig_I = Example("kelto-driver.json"),
                                    std::string penConfig_I = Example("pen-driver.json"))
        : mKelto(mPorts.Path(), keltoConfig_I), mPen(mPorts.Path(), penConfig_I),
          mCoordinator(mPorts.Path() + "/coordinator.log")
    {
    }

    // Starts the coordinator once both drivers serve their ports, and waits until it serves
    // its own and has sent the drivers the table of its first synchronisation (holding
    // `tablets_I` tablets). Every wait is bounded.
    bool Start(std::size_t tablets_I = 2)
    {
        if (!mKelto.WaitUntilServed() || !mPen.WaitUntilServed() || !mCoordinator.Start() ||
            !mCoordinator.WaitUntilServing(kSeconds))
        {
            return false;
        }
        CKeltoClient client(kSeconds);
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(kSeconds);
        std::vector<CKeltoClient::STablet> tablets;
        while (std::chrono::steady_clock::now() < deadline)
        {
            if (client.GetTablets(tablets) == KELSTATUS_SUCCESS && tablets.size() == tablets_I)
            {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    std::string Logs() const
    {
        return "--- coordinator\n" + mCoordinator.Log() + "--- Kelto driver\n" + mKelto.Log() +
               "--- Pen driver\n" + mPen.Log();
    }

    // Seconds any one wait of the tests may take.
    static constexpr double kSeconds = 10.0;

    ScopedPortDirectory mPorts;
    SimulatedDriverProcess mKelto;
    SimulatedDriverProcess mPen;
    CoordinatorProcess mCoordinator;
};
