// The other process of the message port tests. It prints one line per result on standard
// output and ends by itself after a minute at the latest.
//
//   serve NAME          serve NAME (common modes and "PeerReplyMode"), print "ready"; ids:
//                         'ECHO' the data back; 'SLEP' sleep the decimal milliseconds given;
//                         'CALL' "PORT:TEXT" send 'PING' TEXT to PORT and answer
//                         "B got: <reply>"; 'QUIT' stop serving
//   create NAME         try to serve NAME: print "created" or "refused"
//   send-as UID NAME    become UID, connect to NAME's socket without the library (as a
//                         stranger would) and send an 'ECHO': print "answered" or "refused"
#include <CoreFoundation/CoreFoundation.h>

#include "Compat/CPortFrameDecoder.h"
#include "Compat/PortDirectory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
const CFStringRef kPeerReplyMode = CFSTR("PeerReplyMode");

void Say(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

CFDataRef MakeData(const std::string& text)
{
    return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                        static_cast<CFIndex>(text.size()));
}

std::string Text(CFDataRef data)
{
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                       static_cast<size_t>(CFDataGetLength(data)));
}

CFDataRef Call(const std::string& request)
{
    const size_t colon = request.find(':');
    CFStringRef name =
        CFStringCreateWithCString(nullptr, request.substr(0, colon).c_str(), kCFStringEncodingUTF8);
    CFMessagePortRef remote = CFMessagePortCreateRemote(nullptr, name);
    CFRelease(name);
    if (remote == nullptr)
    {
        return MakeData("B failed: no port");
    }
    CFDataRef data = MakeData(request.substr(colon + 1));
    CFDataRef reply = nullptr;
    const SInt32 result =
        CFMessagePortSendRequest(remote, 'PING', data, 10, 10, kPeerReplyMode, &reply);
    CFRelease(data);
    CFRelease(remote);
    if (result != kCFMessagePortSuccess || reply == nullptr)
    {
        return MakeData("B failed: " + std::to_string(result));
    }
    CFDataRef answer = MakeData("B got: " + Text(reply));
    CFRelease(reply);
    return answer;
}

CFDataRef Serve(CFMessagePortRef, SInt32 msgid, CFDataRef data, void*)
{
    switch (msgid)
    {
    case 'ECHO':
        return CFDataCreateCopy(nullptr, data);
    case 'SLEP':
        usleep(static_cast<useconds_t>(std::atoi(Text(data).c_str())) * 1000);
        return MakeData("slept");
    case 'CALL':
        return Call(Text(data));
    case 'QUIT':
        CFRunLoopStop(CFRunLoopGetCurrent());
        return MakeData("bye");
    default:
        return nullptr;
    }
}

int RunServer(CFStringRef name)
{
    Boolean shouldFree = false;
    CFMessagePortRef port = CFMessagePortCreateLocal(nullptr, name, Serve, nullptr, &shouldFree);
    if (port == nullptr)
    {
        Say("refused");
        return 1;
    }
    CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(nullptr, port, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kPeerReplyMode);
    Say("ready");
    CFRunLoopRun();
    CFMessagePortInvalidate(port);
    CFRelease(source);
    CFRelease(port);
    return 0;
}

int SendAs(uid_t uid, const std::string& name)
{
    // The test opened its directory to others for this, so it is not checked here.
    const char* directory = std::getenv("KELTO_PORT_DIR");
    const std::string path =
        std::string(directory != nullptr ? directory : "") + "/" + PortDirectory::FileName(name);
    if (setgid(uid) != 0 || setuid(uid) != 0)
    {
        Say("cannot become " + std::to_string(uid));
        return 1;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        Say(std::string("cannot connect: ") + std::strerror(errno));
        return 1;
    }
    const auto frame =
        EncodePortFrame(kPortRequestMagic, 1, 'ECHO', reinterpret_cast<const UInt8*>("x"), 1);
    send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    UInt8 reply[kPortFrameHeaderSize + 1]; // the echo of one byte
    const ssize_t count = recv(fd, reply, sizeof reply, MSG_WAITALL);
    Say(count > 0 ? "answered" : "refused");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    alarm(60);
    const std::string command = argc > 1 ? argv[1] : "";
    if ((command == "serve" || command == "create") && argc == 3)
    {
        CFStringRef name = CFStringCreateWithCString(nullptr, argv[2], kCFStringEncodingUTF8);
        int status = 0;
        if (command == "serve")
        {
            status = RunServer(name);
        }
        else
        {
            CFMessagePortRef port =
                CFMessagePortCreateLocal(nullptr, name, Serve, nullptr, nullptr);
            Say(port != nullptr ? "created" : "refused");
            if (port != nullptr)
            {
                CFRelease(port);
            }
        }
        CFRelease(name);
        return status;
    }
    if (command == "send-as" && argc == 4)
    {
        return SendAs(static_cast<uid_t>(std::atoi(argv[2])), argv[3]);
    }
    std::fprintf(stderr, "usage: see the comment at the top of PortTestPeer.cpp\n");
    return 2;
}
