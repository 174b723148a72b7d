#include "Bench/Support/CDBusEchoBus.h"

#include "Bench/Support/CRawEchoServer.h"
#include "Bench/Support/UnixSockets.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>

#include <poll.h>
#include <unistd.h>

namespace
{
constexpr int kStartMilliseconds = 10000;

struct SService
{
    size_t mRequestSize;
    std::vector<unsigned char> mReply;
};

int Route(sd_bus_message* message_I, void* userData_I, sd_bus_error*)
{
    auto* service = static_cast<SService*>(userData_I);
    const void* bytes = nullptr;
    size_t length = 0;
    int result = sd_bus_message_read_array(message_I, 'y', &bytes, &length);
    if (result < 0)
    {
        return result;
    }
    if (length > 0)
    {
        CRawEchoServer::FillReply(static_cast<const unsigned char*>(bytes), length,
                                  service->mReply.data(), service->mReply.size());
    }
    sd_bus_message* reply = nullptr;
    result = sd_bus_message_new_method_return(message_I, &reply);
    if (result >= 0)
    {
        result =
            sd_bus_message_append_array(reply, 'y', service->mReply.data(), service->mReply.size());
    }
    if (result >= 0)
    {
        result = sd_bus_send(nullptr, reply, nullptr);
    }
    sd_bus_message_unref(reply);
    return result < 0 ? result : 1;
}

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD(CDBusEchoBus::kMethod, "ay", "ay", Route, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

sd_bus* OpenBus(const std::string& address_I)
{
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0)
    {
        return nullptr;
    }
    if (sd_bus_set_address(bus, address_I.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
        sd_bus_start(bus) < 0)
    {
        sd_bus_unref(bus);
        return nullptr;
    }
    return bus;
}

int Serve(const std::string& address_I, size_t replySize_I, int readyFd_I)
{
    SService service{0, std::vector<unsigned char>(replySize_I)};
    sd_bus* bus = OpenBus(address_I);
    if (bus == nullptr ||
        sd_bus_add_object_vtable(bus, nullptr, CDBusEchoBus::kObject, CDBusEchoBus::kInterface,
                                 kVtable, &service) < 0 ||
        sd_bus_request_name(bus, CDBusEchoBus::kService, 0) < 0)
    {
        return 1;
    }
    const char ready = 1;
    if (write(readyFd_I, &ready, 1) != 1)
    {
        return 1;
    }
    close(readyFd_I);
    for (;;)
    {
        const int result = sd_bus_process(bus, nullptr);
        if (result < 0)
        {
            return 1;
        }
        if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)
        {
            return 1;
        }
    }
}
} // namespace

CDBusEchoBus::CDBusEchoBus(const std::string& directory_I, size_t requestSize_I, size_t replySize_I)
{
    if (requestSize_I == 0)
    {
        throw std::runtime_error("a request has at least one byte");
    }
    const std::string socketPath = directory_I + "/dbus.sock";
    const std::string configPath = directory_I + "/dbus.conf";
    mAddress = "unix:path=" + socketPath;
    std::ofstream(configPath)
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <listen>"
        << mAddress
        << "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
    mDaemon = CChildProcess::Spawn(
        {"/usr/bin/dbus-daemon", "--config-file=" + configPath, "--nofork", "--nopidfile"}, {},
        directory_I + "/dbus-daemon.log");
    const int probe = mDaemon ? UnixSockets::Connect(socketPath, kStartMilliseconds / 1000.0) : -1;
    if (probe < 0)
    {
        throw std::runtime_error("dbus-daemon did not start");
    }
    close(probe);

    int ready[2];
    if (pipe(ready) != 0)
    {
        throw std::runtime_error("no pipe");
    }
    mService = CChildProcess::Fork(
        [&]
        {
            close(ready[0]);
            return Serve(mAddress, replySize_I, ready[1]);
        });
    close(ready[1]);
    pollfd fd = {ready[0], POLLIN, 0};
    char byte = 0;
    const bool started =
        mService && poll(&fd, 1, kStartMilliseconds) == 1 && read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    if (!started)
    {
        throw std::runtime_error("the D-Bus service did not start");
    }
}

CDBusEchoBus::~CDBusEchoBus()
{
    mService.reset();
    mDaemon.reset();
}

CDBusEchoClient::CDBusEchoClient(const std::string& address_I) : mBus(OpenBus(address_I))
{
    if (mBus == nullptr)
    {
        throw std::runtime_error("cannot connect to " + address_I);
    }
}

CDBusEchoClient::~CDBusEchoClient()
{
    sd_bus_flush_close_unref(mBus);
}

bool CDBusEchoClient::Call(const std::vector<unsigned char>& request_I,
                           std::vector<unsigned char>& reply_O)
{
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    int result =
        sd_bus_message_new_method_call(mBus, &call, CDBusEchoBus::kService, CDBusEchoBus::kObject,
                                       CDBusEchoBus::kInterface, CDBusEchoBus::kMethod);
    if (result >= 0)
    {
        result = sd_bus_message_append_array(call, 'y', request_I.data(), request_I.size());
    }
    if (result >= 0)
    {
        result = sd_bus_call(mBus, call, 0, nullptr, &reply);
    }
    const void* bytes = nullptr;
    size_t length = 0;
    if (result >= 0)
    {
        result = sd_bus_message_read_array(reply, 'y', &bytes, &length);
    }
    if (result >= 0)
    {
        const auto* first = static_cast<const unsigned char*>(bytes);
        reply_O.assign(first, first + length);
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return result >= 0;
}
