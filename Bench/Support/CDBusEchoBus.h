// What a Linux user would pick instead of message ports: a private D-Bus daemon on a socket
// of the benchmark's own, and a service on it whose method answers a byte array of
// `requestSize` bytes with one of `replySize` bytes (the reply repeats the request's bytes,
// as CRawEchoServer's does). Clients call it through sd-bus, one connection each, from one
// thread each.
#pragma once

#include "Bench/Support/CChildProcess.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

struct sd_bus;

class CDBusEchoBus
{
public:
    // Starts dbus-daemon with a configuration of its own in `directory_I` and the service
    // on it; returns once the service owns its name. Throws std::runtime_error when either
    // cannot be started within ten seconds.
    CDBusEchoBus(const std::string& directory_I, size_t requestSize_I, size_t replySize_I);
    ~CDBusEchoBus();

    // "unix:path=...", for sd_bus_set_address.
    const std::string& Address() const { return mAddress; }

    static constexpr const char* kService = "com.kelto.Bench";
    static constexpr const char* kObject = "/com/kelto/Bench";
    static constexpr const char* kInterface = "com.kelto.Bench";
    static constexpr const char* kMethod = "Route";

private:
    std::string mAddress;
    std::unique_ptr<CChildProcess> mDaemon;
    std::unique_ptr<CChildProcess> mService;
};

// One client connection to the bus.
class CDBusEchoClient
{
public:
    // Throws std::runtime_error when the connection cannot be made.
    explicit CDBusEchoClient(const std::string& address_I);
    ~CDBusEchoClient();
    CDBusEchoClient(const CDBusEchoClient&) = delete;
    CDBusEchoClient& operator=(const CDBusEchoClient&) = delete;

    // One method call; false when it fails. The answer's bytes are in reply_O.
    bool Call(const std::vector<unsigned char>& request_I, std::vector<unsigned char>& reply_O);

private:
    sd_bus* mBus = nullptr;
};
