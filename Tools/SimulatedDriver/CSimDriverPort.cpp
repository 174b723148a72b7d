#include "Tools/SimulatedDriver/CSimDriverPort.h"

#include "Tools/SimulatedDriver/CSimulatedDriver.h"

#include <chrono>
#include <cstdio>
#include <thread>
#include <unistd.h>

const CFStringRef kSimDriverBusyMode = CFSTR("SimulatedDriverBusyMode");

CSimDriverPort::CSimDriverPort(CSimulatedDriver& driver_I, bool trace_I)
    : mDriver(driver_I), mResponder(driver_I), mFaults(driver_I.Config().faults), mTrace(trace_I)
{
}

CSimDriverPort::~CSimDriverPort()
{
    Close();
}

bool CSimDriverPort::Open(std::string& error_O)
{
    Close();
    CFStringRef name = CFStringCreateWithCString(nullptr, mDriver.Config().portName.c_str(),
                                                 kCFStringEncodingUTF8);
    if (name == nullptr)
    {
        error_O = "port name \"" + mDriver.Config().portName + "\" is not UTF-8 text";
        return false;
    }
    CFMessagePortContext context = {0, this, nullptr, nullptr, nullptr};
    Boolean shouldFreeInfo = false;
    mPort = CFMessagePortCreateLocal(nullptr, name, PortCallback, &context, &shouldFreeInfo);
    CFRelease(name);
    if (mPort == nullptr)
    {
        error_O = "cannot serve port \"" + mDriver.Config().portName +
                  "\": another process serves it, or the port directory is unusable";
        return false;
    }
    mSource = CFMessagePortCreateRunLoopSource(nullptr, mPort, 0);
    mRunLoop = CFRunLoopGetCurrent();
    CFRunLoopAddSource(mRunLoop, mSource, kCFRunLoopCommonModes);
    return true;
}

void CSimDriverPort::Close()
{
    if (mSource != nullptr)
    {
        CFRunLoopRemoveSource(mRunLoop, mSource, kCFRunLoopCommonModes);
        CFRelease(mSource);
        mSource = nullptr;
    }
    if (mPort != nullptr)
    {
        CFMessagePortInvalidate(mPort);
        CFRelease(mPort);
        mPort = nullptr;
    }
}

void CSimDriverPort::ResetFaults()
{
    mFaults = CSimFaultPlan(mDriver.Config().faults);
}

void CSimDriverPort::RequestStop()
{
    mStopRequested = true;
    // Stops the innermost run: a busy wait if there is one (it then stops the outer run
    // itself), else the run that serves the port.
    CFRunLoopStop(CFRunLoopGetCurrent());
}

CFDataRef CSimDriverPort::PortCallback(CFMessagePortRef, SInt32 msgid_I, CFDataRef data_I,
                                       void* info_I)
{
    return static_cast<CSimDriverPort*>(info_I)->HandleRequest(msgid_I, data_I);
}

CFDataRef CSimDriverPort::HandleRequest(SInt32 msgid_I, CFDataRef data_I)
{
    const std::uint8_t* bytes = data_I != nullptr ? CFDataGetBytePtr(data_I) : nullptr;
    const std::size_t size =
        data_I != nullptr ? static_cast<std::size_t>(CFDataGetLength(data_I)) : 0;
    SSimMessage message;
    mResponder.Read(msgid_I, bytes, size, message);

    std::optional<SSimFault> fault = mFaults.Next(message.kind, message.command);
    if (fault)
    {
        switch (fault->action)
        {
        case ESimFaultAction::eSlow:
            Busy(fault->milliseconds);
            if (mStopRequested)
            {
                Trace(message, "stopped while slow, no reply");
                CFRunLoopStop(CFRunLoopGetCurrent());
                return nullptr;
            }
            break;
        case ESimFaultAction::eHang:
            Trace(message, "fault: hang " + std::to_string(fault->milliseconds) + " ms");
            Busy(fault->milliseconds);
            if (mStopRequested)
            {
                CFRunLoopStop(CFRunLoopGetCurrent());
            }
            return nullptr;
        case ESimFaultAction::eEmpty:
            Trace(message, "fault: empty reply");
            return nullptr;
        case ESimFaultAction::eExit:
            Trace(message, "fault: exit " + std::to_string(fault->exitCode));
            std::fflush(stderr);
            // As a crash would: no reply, no clean-up, the port left for the next owner.
            _exit(fault->exitCode);
        }
    }

    std::string outcome;
    std::optional<std::vector<std::uint8_t>> reply = mResponder.Answer(message, outcome);
    if (fault)
    {
        outcome += " (slow: " + std::to_string(fault->milliseconds) + " ms)";
    }
    Trace(message, outcome);
    if (!reply)
    {
        return nullptr;
    }
    return CFDataCreate(nullptr, reply->data(), static_cast<CFIndex>(reply->size()));
}

void CSimDriverPort::Busy(unsigned int milliseconds_I)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds_I);
    while (!mStopRequested)
    {
        const Clock::duration left = deadline - Clock::now();
        if (left <= Clock::duration::zero())
        {
            return;
        }
        const double seconds = std::chrono::duration<double>(left).count();
        if (CFRunLoopRunInMode(kSimDriverBusyMode, seconds, true) == kCFRunLoopRunFinished)
        {
            // Nothing was added to the busy mode: nothing can interrupt the wait either.
            std::this_thread::sleep_for(
                std::min<Clock::duration>(left, std::chrono::milliseconds(20)));
        }
    }
}

void CSimDriverPort::Trace(const SSimMessage& message_I, const std::string& outcome_I) const
{
    if (!mTrace)
    {
        return;
    }
    std::fprintf(stderr, "simdriver[%s]: %s %s -> %s\n", mDriver.Config().name.c_str(),
                 SimMessageIDText(message_I.msgid).c_str(), message_I.description.c_str(),
                 outcome_I.c_str());
    std::fflush(stderr);
}
