// Drivers that start after the coordinator. Nothing tells the coordinator when a driver
// process starts or restarts, so its tablets stayed out of the table until a client asked
// for a sync. Here the port directory is watched (inotify) for the drivers' sockets
// appearing; each appearance is followed, on the run loop, by the call-back the owner gave
// (a sync). The watch is in the default mode only, so the call-back never runs nested in a
// wait for a driver. Where there is no port directory to watch (macOS), it does nothing.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <functional>
#include <string>
#include <vector>

class CDriverPortWatcher
{
public:
    CDriverPortWatcher() = default;
    ~CDriverPortWatcher();
    CDriverPortWatcher(const CDriverPortWatcher&) = delete;
    CDriverPortWatcher& operator=(const CDriverPortWatcher&) = delete;

    // Watches for the ports named `portNames_I` on the current thread's run loop; false when
    // the directory cannot be watched. A second call replaces the first.
    bool Start(const std::vector<std::string>& portNames_I, std::function<void()> appeared_I);
    void Stop();

private:
    static void ReadEvents(CFFileDescriptorRef descriptor_I, CFOptionFlags, void* info_I);

    std::vector<std::string> mFileNames;
    std::function<void()> mAppeared;
    CFFileDescriptorRef mDescriptor = nullptr;
    CFRunLoopSourceRef mSource = nullptr;
};
