// kel_test_driver: a scriptable peer for the messaging tests.
//
// kel_test_driver --port NAME [script] serves a driver port the way a tablet driver does and
// answers as the command line scripts it:
//
//   'ENDI'  one byte, the driver's byte order (--endi: a number, "empty" or "none"; by
//           default 1, or 2 with --byte-order reversed)
//   'KEPK'  the packet decoded and answered in place: a get of Driver/FileVersion gets the
//           --version bytes, anything else --status and --answer (or its own data back). With
//           --byte-order reversed the answer block is written in the other byte order.
//   0       a transit record: the same answers, as a return record and data. With
//           --byte-order reversed every field of the request is read reversed and every field
//           of the return record written reversed; the data is never reversed.
//   'AEVT'  the reply event: its direct object is that of the request (or "ok"), preceded by
//           an 'errn' item with --aevt-reply errn.
//
// --packet-reply, --transit-reply and --aevt-reply choose "empty" (a reply of no bytes) or
// "none" (no reply at all) instead; --transit-reply short answers 4 bytes and --aevt-reply
// garbage 3 bytes that are no flattened descriptor. --probe-failures N answers the first N
// version requests with --probe-status. --delay-ms waits before every answer, --exit-on N
// exits without answering when the Nth request arrives, --lifetime bounds the process.
// --journal appends one line per request: the message id and length in hexadecimal and
// decimal, then the request's bytes in hexadecimal.
//
// It uses the compatibility layer and the event packet directly, never the messaging classes
// under test, so that both sides of every exchange are written independently.
#include "Common/CEventPacket.h"
#include "Common/FileVersion.h"
#include "Common/KelStatus.h"
#include "Mac/Common/Communication/KelTestByteOrder.h"

#include <CLI/CLI.hpp>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace
{
struct Script
{
    std::string port;
    bool reversed = false;
    std::string endi;
    FileVersion version{6, 1, 2, FileVersion::EUnknownVersion, 0};
    unsigned probeFailures = 0;
    unsigned probeStatus = KELSTATUS_OBJECT_NOT_FOUND;
    unsigned status = KELSTATUS_SUCCESS;
    std::optional<std::vector<std::uint8_t>> answer;
    std::string packetReply = "answer";
    std::string transitReply = "answer";
    std::optional<std::uint32_t> returnSize;
    std::string aevtReply = "event";
    std::int32_t errn = -1708;
    unsigned delayMs = 0;
    unsigned exitOn = 0;
    std::string journal;

    unsigned requests = 0;
    unsigned versionRequests = 0;
};

Script gScript;

std::uint16_t Swap16(std::uint16_t v)
{
    return __builtin_bswap16(v);
}
std::uint32_t Swap32(std::uint32_t v)
{
    return __builtin_bswap32(v);
}

std::string Hex(const std::uint8_t* bytes, std::size_t length)
{
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 2);
    for (std::size_t i = 0; i < length; ++i)
    {
        text.push_back(kDigits[bytes[i] >> 4]);
        text.push_back(kDigits[bytes[i] & 15]);
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> FromHex(const std::string& text)
{
    if (text.size() % 2 != 0)
    {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2)
    {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

CFDataRef MakeData(const void* bytes, std::size_t length)
{
    return CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(bytes),
                        static_cast<CFIndex>(length));
}

void Journal(SInt32 msgid, CFDataRef data)
{
    if (gScript.journal.empty())
    {
        return;
    }
    const std::size_t length =
        data != nullptr ? static_cast<std::size_t>(CFDataGetLength(data)) : 0;
    std::FILE* file = std::fopen(gScript.journal.c_str(), "a");
    if (file == nullptr)
    {
        return;
    }
    std::fprintf(file, "%08x %zu %s\n", static_cast<unsigned>(msgid), length,
                 length != 0 ? Hex(CFDataGetBytePtr(data), length).c_str() : "-");
    std::fclose(file);
}

// Whether a request asks for the driver's file version, and the status to answer it with.
bool IsVersionRequest(std::uint32_t command, std::uint16_t firstKey, std::uint16_t secondKey)
{
    return command == ECommandGet && firstKey == EObjectIDDriver &&
           secondKey == EParameterIDFileVersion;
}

KELSTATUS VersionStatus()
{
    ++gScript.versionRequests;
    return gScript.versionRequests <= gScript.probeFailures
               ? static_cast<KELSTATUS>(gScript.probeStatus)
               : KELSTATUS_SUCCESS;
}

CFDataRef AnswerPacket(CFDataRef data)
{
    if (gScript.packetReply == "none")
    {
        return nullptr;
    }
    if (gScript.packetReply == "empty")
    {
        return MakeData(nullptr, 0);
    }
    const std::size_t length =
        data != nullptr ? static_cast<std::size_t>(CFDataGetLength(data)) : 0;
    std::vector<std::uint8_t> request(length);
    if (length != 0)
    {
        std::memcpy(request.data(), CFDataGetBytePtr(data), length);
    }
    CEventPacket packet;
    if (packet.DeserializeFromBuffer(request.data(), request.size(), nullptr) != KELSTATUS_SUCCESS)
    {
        packet.SetStatus(KELSTATUS_RESOURCE_BAD);
    }
    else if (IsVersionRequest(packet.Command(), packet.ObjectKey(0)->Identifier(),
                              packet.ObjectKey(1)->Identifier()))
    {
        const KELSTATUS status = VersionStatus();
        if (status == KELSTATUS_SUCCESS)
        {
            packet.PackData(sizeof(gScript.version), &gScript.version);
        }
        packet.SetStatus(status);
    }
    else
    {
        if (gScript.answer)
        {
            packet.PackData(static_cast<unsigned>(gScript.answer->size()), gScript.answer->data());
        }
        packet.SetStatus(static_cast<KELSTATUS>(gScript.status));
    }

    const unsigned int size = packet.GetSerializedSize(nullptr);
    std::vector<std::uint8_t> block(size);
    packet.SerializeToBuffer(block.data(), size, nullptr);
    if (gScript.reversed)
    {
        KelTestReverseSerializedBlock(block.data(), block.size());
    }
    return MakeData(block.data(), block.size());
}

CFDataRef AnswerTransitRecord(CFDataRef data)
{
    if (gScript.transitReply == "none")
    {
        return nullptr;
    }
    if (gScript.transitReply == "empty")
    {
        return MakeData(nullptr, 0);
    }
    if (gScript.transitReply == "short")
    {
        const std::uint8_t bytes[4] = {0, 0, 0, 0};
        return MakeData(bytes, sizeof(bytes));
    }
    const std::size_t length =
        data != nullptr ? static_cast<std::size_t>(CFDataGetLength(data)) : 0;
    constexpr std::size_t kHeader = 136;
    if (length < kHeader)
    {
        return nullptr;
    }
    const std::uint8_t* bytes = CFDataGetBytePtr(data);
    auto read32 = [&](std::size_t offset)
    {
        std::uint32_t v;
        std::memcpy(&v, bytes + offset, 4);
        return gScript.reversed ? Swap32(v) : v;
    };
    auto read16 = [&](std::size_t offset)
    {
        std::uint16_t v;
        std::memcpy(&v, bytes + offset, 2);
        return gScript.reversed ? Swap16(v) : v;
    };
    const std::uint32_t sizeOfData = read32(120);
    const std::uint32_t command = read32(128);
    const std::size_t available = length - kHeader;
    std::vector<std::uint8_t> requestData(
        bytes + kHeader, bytes + kHeader + std::min<std::size_t>(sizeOfData, available));

    std::uint32_t status = gScript.status;
    std::vector<std::uint8_t> answer = gScript.answer ? *gScript.answer : requestData;
    if (IsVersionRequest(command, read16(4), read16(12 + 4)))
    {
        status = VersionStatus();
        answer.assign(reinterpret_cast<const std::uint8_t*>(&gScript.version),
                      reinterpret_cast<const std::uint8_t*>(&gScript.version) +
                          sizeof(FileVersion));
    }
    std::uint32_t returnRecord[2] = {
        status, gScript.returnSize.value_or(static_cast<std::uint32_t>(answer.size()))};
    if (gScript.reversed)
    {
        returnRecord[0] = Swap32(returnRecord[0]);
        returnRecord[1] = Swap32(returnRecord[1]);
    }
    std::vector<std::uint8_t> reply(sizeof(returnRecord));
    std::memcpy(reply.data(), returnRecord, sizeof(returnRecord));
    reply.insert(reply.end(), answer.begin(), answer.end());
    return MakeData(reply.data(), reply.size());
}

CFDataRef AnswerEndianness()
{
    if (gScript.endi == "none")
    {
        return nullptr;
    }
    if (gScript.endi == "empty")
    {
        return MakeData(nullptr, 0);
    }
    const std::uint8_t code = gScript.endi.empty()
                                  ? (gScript.reversed ? 2 : 1)
                                  : static_cast<std::uint8_t>(std::stoul(gScript.endi, nullptr, 0));
    return MakeData(&code, 1);
}

CFDataRef AnswerAppleEvent(CFDataRef data)
{
    if (gScript.aevtReply == "none")
    {
        return nullptr;
    }
    if (gScript.aevtReply == "empty")
    {
        return MakeData(nullptr, 0);
    }
    if (gScript.aevtReply == "garbage")
    {
        return MakeData("xyz", 3);
    }
    AppleEvent request;
    AEInitializeDesc(&request);
    if (data != nullptr)
    {
        AEUnflattenDescFromBytes(CFDataGetBytePtr(data),
                                 static_cast<std::size_t>(CFDataGetLength(data)), &request);
    }
    AppleEvent reply;
    AEInitializeDesc(&reply);
    AECreateAppleEvent('aevt', 'ansr', nullptr, kAutoGenerateReturnID, kAnyTransactionID, &reply);
    if (gScript.aevtReply == "errn")
    {
        AEPutParamPtr(&reply, keyErrorNumber, typeSInt32, &gScript.errn, sizeof(gScript.errn));
    }
    AEDesc directObject;
    AEInitializeDesc(&directObject);
    if (AEGetParamDesc(&request, keyDirectObject, typeWildCard, &directObject) == noErr)
    {
        AEPutParamDesc(&reply, keyDirectObject, &directObject);
        AEDisposeDesc(&directObject);
    }
    else
    {
        AEPutParamPtr(&reply, keyDirectObject, typeChar, "ok", 2);
    }
    std::vector<char> flat(static_cast<std::size_t>(AESizeOfFlattenedDesc(&reply)));
    Size actual = 0;
    AEFlattenDesc(&reply, flat.data(), static_cast<Size>(flat.size()), &actual);
    AEDisposeDesc(&reply);
    AEDisposeDesc(&request);
    return MakeData(flat.data(), flat.size());
}

CFDataRef Serve(CFMessagePortRef, SInt32 msgid, CFDataRef data, void*)
{
    Journal(msgid, data);
    ++gScript.requests;
    if (gScript.exitOn != 0 && gScript.requests >= gScript.exitOn)
    {
        std::_Exit(0);
    }
    if (gScript.delayMs != 0)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(gScript.delayMs));
    }
    switch (msgid)
    {
    case 'ENDI':
        return AnswerEndianness();
    case 'KEPK':
        return AnswerPacket(data);
    case 0:
        return AnswerTransitRecord(data);
    case 'AEVT':
        return AnswerAppleEvent(data);
    default:
        return nullptr;
    }
}

CFStringRef MakeString(const std::string& text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
}

int RunServer()
{
    CFStringRef name = MakeString(gScript.port);
    CFMessagePortContext context = {0, nullptr, nullptr, nullptr, nullptr};
    Boolean shouldFree = false;
    CFMessagePortRef port =
        CFMessagePortCreateLocal(kCFAllocatorDefault, name, Serve, &context, &shouldFree);
    CFRelease(name);
    if (port == nullptr)
    {
        std::fprintf(stderr, "kel_test_driver: cannot serve %s\n", gScript.port.c_str());
        return 2;
    }
    CFRunLoopSourceRef source = CFMessagePortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
    CFRunLoopRun();
    CFRelease(source);
    CFMessagePortInvalidate(port);
    CFRelease(port);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Scriptable driver for the messaging tests"};
    std::string byteOrder = "host";
    std::string version = "6.1.2";
    std::string answerHex;
    unsigned lifetime = 60;
    std::uint32_t returnSize = 0;

    app.add_option("--port", gScript.port, "driver port to serve");
    app.add_option("--byte-order", byteOrder, "host or reversed")
        ->check(CLI::IsMember({"host", "reversed"}));
    app.add_option("--endi", gScript.endi, "answer to 'ENDI': a number, empty or none");
    app.add_option("--version", version, "driver version answered to a version request");
    app.add_option("--probe-failures", gScript.probeFailures, "version requests that fail first");
    app.add_option("--probe-status", gScript.probeStatus, "status of a failing version request");
    app.add_option("--status", gScript.status, "status of every other answer");
    app.add_option("--answer", answerHex, "data of every other answer, hexadecimal");
    app.add_option("--packet-reply", gScript.packetReply)
        ->check(CLI::IsMember({"answer", "empty", "none"}));
    app.add_option("--transit-reply", gScript.transitReply)
        ->check(CLI::IsMember({"answer", "empty", "none", "short"}));
    auto* returnSizeOption = app.add_option("--return-size", returnSize);
    app.add_option("--aevt-reply", gScript.aevtReply)
        ->check(CLI::IsMember({"event", "errn", "empty", "none", "garbage"}));
    app.add_option("--errn", gScript.errn);
    app.add_option("--delay-ms", gScript.delayMs);
    app.add_option("--exit-on", gScript.exitOn, "exit without answering the Nth request");
    app.add_option("--journal", gScript.journal);
    app.add_option("--lifetime", lifetime, "seconds before the process ends by itself");
    CLI11_PARSE(app, argc, argv);

    alarm(lifetime);
    gScript.reversed = byteOrder == "reversed";
    gScript.version = FileVersion(version, false);
    if (returnSizeOption->count() != 0)
    {
        gScript.returnSize = returnSize;
    }
    if (!answerHex.empty())
    {
        gScript.answer = FromHex(answerHex == "-" ? std::string() : answerHex);
    }

    if (gScript.port.empty())
    {
        std::fprintf(stderr, "kel_test_driver: --port is required\n");
        return 2;
    }
    return RunServer();
}
