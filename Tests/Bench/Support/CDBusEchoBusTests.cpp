#include "Bench/Support/CDBusEchoBus.h"
#include "Bench/Support/CRawEchoServer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <thread>

#include <stdlib.h>

TEST(CDBusEchoBusTests, MethodCallsThroughThePrivateDaemonComeBackWithTheirOwnBytes)
{
    if (!std::filesystem::exists("/usr/bin/dbus-daemon"))
    {
        GTEST_SKIP() << "dbus-daemon is not installed";
    }
    std::string pattern = testing::TempDir() + "kel_dbus_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    {
        constexpr size_t kRequest = 24;
        constexpr size_t kReply = 64;
        CDBusEchoBus bus(pattern, kRequest, kReply);
        EXPECT_EQ(bus.Address(), "unix:path=" + pattern + "/dbus.sock");

        // Two clients from two threads at once, each call answered with its own bytes.
        auto client = [&](unsigned char seed, bool& ok)
        {
            CDBusEchoClient connection(bus.Address());
            ok = true;
            for (int call = 0; call < 20; ++call)
            {
                std::vector<unsigned char> request(kRequest);
                for (size_t i = 0; i < kRequest; ++i)
                {
                    request[i] = static_cast<unsigned char>(seed + call + i);
                }
                std::vector<unsigned char> expected(kReply);
                CRawEchoServer::FillReply(request.data(), kRequest, expected.data(), kReply);
                std::vector<unsigned char> reply;
                ok = ok && connection.Call(request, reply) && reply == expected;
            }
        };
        bool first = false;
        bool second = false;
        std::thread other(client, 100, std::ref(second));
        client(1, first);
        other.join();
        EXPECT_TRUE(first);
        EXPECT_TRUE(second);
    }
    // The daemon is gone with the bus: nobody answers on its socket any more.
    EXPECT_THROW(CDBusEchoClient("unix:path=" + pattern + "/dbus.sock"), std::runtime_error);
    std::filesystem::remove_all(pattern);
}
