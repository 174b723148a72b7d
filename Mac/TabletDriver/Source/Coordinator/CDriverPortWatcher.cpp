#include "Mac/TabletDriver/Source/Coordinator/CDriverPortWatcher.h"

#include <algorithm>
#include <chrono>
#include <thread>

#if defined(__linux__)
#include "Compat/PortDirectory.h"

#include <sys/inotify.h>
#include <unistd.h>
#endif

namespace
{
// A socket appears when its server binds it, a moment before it listens: the sync waits
// that moment out, so that it does not find the driver refusing the connection.
constexpr auto kSettle = std::chrono::milliseconds(20);
} // namespace

CDriverPortWatcher::~CDriverPortWatcher()
{
    Stop();
}

bool CDriverPortWatcher::Start(const std::vector<std::string>& portNames_I,
                               std::function<void()> appeared_I)
{
    Stop();
#if defined(__linux__)
    std::string error;
    const std::string directory = PortDirectory::Resolve(&error);
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (directory.empty() || fd < 0 ||
        inotify_add_watch(fd, directory.c_str(), IN_CREATE | IN_MOVED_TO) < 0)
    {
        if (fd >= 0)
        {
            close(fd);
        }
        return false;
    }
    mFileNames.clear();
    for (const std::string& name : portNames_I)
    {
        mFileNames.push_back(PortDirectory::FileName(name));
    }
    mAppeared = std::move(appeared_I);
    CFFileDescriptorContext context = {0, this, nullptr, nullptr, nullptr};
    mDescriptor = CFFileDescriptorCreate(kCFAllocatorDefault, fd, true, ReadEvents, &context);
    CFFileDescriptorEnableCallBacks(mDescriptor, kCFFileDescriptorReadCallBack);
    mSource = CFFileDescriptorCreateRunLoopSource(kCFAllocatorDefault, mDescriptor, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource, kCFRunLoopDefaultMode);
    return true;
#else
    (void)portNames_I;
    (void)appeared_I;
    return false;
#endif
}

void CDriverPortWatcher::Stop()
{
    if (mSource != nullptr)
    {
        CFRunLoopSourceInvalidate(mSource);
        CFRelease(mSource);
        mSource = nullptr;
    }
    if (mDescriptor != nullptr)
    {
        CFFileDescriptorInvalidate(mDescriptor);
        CFRelease(mDescriptor);
        mDescriptor = nullptr;
    }
}

void CDriverPortWatcher::ReadEvents(CFFileDescriptorRef descriptor_I, CFOptionFlags, void* info_I)
{
#if defined(__linux__)
    auto* self = static_cast<CDriverPortWatcher*>(info_I);
    bool appeared = false;
    alignas(inotify_event) char events[4096];
    ssize_t got = 0;
    while ((got = read(CFFileDescriptorGetNativeDescriptor(descriptor_I), events, sizeof events)) >
           0)
    {
        for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= got;)
        {
            const auto* event = reinterpret_cast<const inotify_event*>(events + at);
            if (event->len > 0 && std::find(self->mFileNames.begin(), self->mFileNames.end(),
                                            event->name) != self->mFileNames.end())
            {
                appeared = true;
            }
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    CFFileDescriptorEnableCallBacks(descriptor_I, kCFFileDescriptorReadCallBack);
    if (appeared && self->mAppeared)
    {
        std::this_thread::sleep_for(kSettle);
        self->mAppeared();
    }
#else
    (void)descriptor_I;
    (void)info_I;
#endif
}
