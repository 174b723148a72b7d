#include "Tests/Support/TestProcess.h"

#include "Tests/Support/SanitizerReport.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

TestProcess::TestProcess(std::vector<std::string> arguments_I, std::string logPath_I)
    : mProgram(arguments_I.at(0)), mLogPath(std::move(logPath_I)),
      mChild(CChildProcess::Spawn(arguments_I, {}, mLogPath))
{
}

TestProcess::~TestProcess()
{
    Stop();
    const std::string report = SanitizerReport(Log());
    if (!report.empty() && !mReportExpected)
    {
        ADD_FAILURE() << mProgram << ":\n" << report;
    }
}

bool TestProcess::IsRunning()
{
    return mChild && mChild->IsRunning();
}

std::optional<int> TestProcess::WaitForExit(std::chrono::milliseconds timeout_I)
{
    return mChild ? mChild->WaitForExit(timeout_I) : std::nullopt;
}

int TestProcess::Stop(std::chrono::milliseconds grace_I)
{
    return mChild ? mChild->Stop(grace_I) : -1;
}

std::string TestProcess::Log() const
{
    std::ifstream file(mLogPath, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

bool PortServed(const std::string& portName_I)
{
    CFStringRef name =
        CFStringCreateWithCString(nullptr, portName_I.c_str(), kCFStringEncodingUTF8);
    if (name == nullptr)
    {
        return false;
    }
    CFMessagePortRef port = CFMessagePortCreateRemote(nullptr, name);
    CFRelease(name);
    if (port == nullptr)
    {
        return false;
    }
    // Released, never invalidated: a remote port is shared by everything in this process
    // that reaches the same name, the test's own clients among them.
    CFRelease(port);
    return true;
}
