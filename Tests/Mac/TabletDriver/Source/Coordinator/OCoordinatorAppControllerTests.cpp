#include "Mac/TabletDriver/Source/Coordinator/OCoordinatorAppController.h"

#include <gtest/gtest.h>

#include <csignal>
#include <set>

namespace
{
const int kFiveSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGTERM};

TEST(OCoordinatorAppControllerTests, OnlyHangUpInterruptQuitAbortAndTerminateEndTheApplication)
{
    const std::set<int> ending(std::begin(kFiveSignals), std::end(kFiveSignals));
    // The numbers the mask stands for are those of this system's signals.
    EXPECT_EQ(ending, (std::set<int>{1, 2, 3, 6, 15}));
    for (int signal = -40; signal <= 70; ++signal)
    {
        EXPECT_EQ(SignalTerminatesApplication(signal), ending.count(signal) == 1)
            << "signal " << signal;
    }
    // Numbers far outside the mask must not shift into it.
    EXPECT_FALSE(SignalTerminatesApplication(16 + 15));
    EXPECT_FALSE(SignalTerminatesApplication(64 + 1));
}

TEST(OCoordinatorAppControllerTests, LaunchInstallsTheHandlerForTheFiveSignalsBlockingEachOther)
{
    struct sigaction saved[5];
    for (int i = 0; i < 5; ++i)
    {
        sigaction(kFiveSignals[i], nullptr, &saved[i]);
    }

    OCoordinatorAppController controller;
    controller.applicationWillFinishLaunching(nullptr);

    for (int signal : kFiveSignals)
    {
        struct sigaction installed = {};
        ASSERT_EQ(sigaction(signal, nullptr, &installed), 0);
        EXPECT_EQ(installed.sa_handler, respondToSignal) << "signal " << signal;
        EXPECT_EQ(installed.sa_flags & (SA_SIGINFO | SA_RESTART | SA_NODEFER | SA_RESETHAND |
                                        SA_ONSTACK | SA_NOCLDSTOP),
                  0)
            << "signal " << signal;
        for (int other = 1; other < 32; ++other)
        {
            const bool blocked = sigismember(&installed.sa_mask, other) == 1;
            EXPECT_EQ(blocked, SignalTerminatesApplication(other))
                << "signal " << signal << " blocking " << other;
        }
    }
    // SIGPIPE and the user signals keep what they had.
    struct sigaction pipe = {};
    sigaction(SIGPIPE, nullptr, &pipe);
    EXPECT_NE(pipe.sa_handler, respondToSignal);

    for (int i = 0; i < 5; ++i)
    {
        sigaction(kFiveSignals[i], &saved[i], nullptr);
    }
}
} // namespace
