#include "Tests/Support/TestProcess.h"

#include "Tests/Support/SanitizerReport.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <thread>

namespace
{
constexpr std::chrono::milliseconds kPoll{5};

template <typename Done> bool WaitUntil(std::chrono::milliseconds timeout_I, Done done_I)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout_I;
    while (!done_I())
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(kPoll);
    }
    return true;
}
} // namespace

TestProcess::TestProcess(std::vector<std::string> arguments_I, std::string logPath_I,
                         const std::vector<std::string>& environment_I)
    : mProgram(arguments_I.at(0)), mLogPath(std::move(logPath_I)),
      mChild(CChildProcess::Spawn(arguments_I, environment_I, mLogPath))
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

bool TestProcess::Signal(int signal_I)
{
    return IsRunning() && kill(mChild->Pid(), signal_I) == 0;
}

std::string TestProcess::Log() const
{
    std::ifstream file(mLogPath, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

bool TestProcess::WaitForLog(const std::string& text, std::chrono::milliseconds timeout_I) const
{
    return WaitUntil(timeout_I, [&] { return Log().find(text) != std::string::npos; });
}

std::string TestProcess::ReadLine(std::chrono::milliseconds timeout_I)
{
    std::string line;
    // One more look once the process has ended: what it wrote last is in the file by then.
    bool ended = false;
    WaitUntil(timeout_I,
              [&]
              {
                  const bool last = ended;
                  ended = !IsRunning();
                  const std::string log = Log();
                  const size_t end = log.find('\n', mReadOffset);
                  if (end != std::string::npos)
                  {
                      line = log.substr(mReadOffset, end - mReadOffset);
                      mReadOffset = end + 1;
                      return true;
                  }
                  return last;
              });
    return line;
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
