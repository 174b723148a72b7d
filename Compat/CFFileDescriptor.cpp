#include <CoreFoundation/CFFileDescriptor.h>

#include "Compat/CFRunLoopPrivate.h"
#include "Compat/CFRuntime.h"

#include <atomic>
#include <memory>

#include <poll.h>
#include <unistd.h>

using CFRuntime::Fatal;

namespace
{
class CFileDescriptorHandler;
}

struct __CFFileDescriptor : CFRuntime::CFObject
{
    __CFFileDescriptor() : CFObject(CFRuntime::eTypeIDFileDescriptor) {}
    ~__CFFileDescriptor() override;

    int mFd = -1;
    bool mCloseOnInvalidate = false;
    CFFileDescriptorCallBack mCallout = nullptr;
    CFFileDescriptorContext mContext{};
    std::atomic<CFOptionFlags> mEnabled{0};
    std::atomic<bool> mValid{true};
    std::shared_ptr<CFileDescriptorHandler> mHandler;
    CFRunLoopSourceRef mSource = nullptr; // owned; made on first request
};

namespace
{
// Watches the descriptor for the enabled call-back types; each type fires once and is
// disabled before its call-back runs.
class CFileDescriptorHandler : public CFRunLoopPrivate::IFdHandler
{
public:
    explicit CFileDescriptorHandler(__CFFileDescriptor* owner) : mOwner(owner) {}
    void Detach() { mOwner = nullptr; }

    void CollectWatches(std::vector<CFRunLoopPrivate::SWatch>& watches) override
    {
        if (mOwner == nullptr || !mOwner->mValid.load())
        {
            return;
        }
        const CFOptionFlags enabled = mOwner->mEnabled.load();
        short events = 0;
        if ((enabled & kCFFileDescriptorReadCallBack) != 0)
        {
            events |= POLLIN;
        }
        if ((enabled & kCFFileDescriptorWriteCallBack) != 0)
        {
            events |= POLLOUT;
        }
        if (events != 0)
        {
            watches.push_back({mOwner->mFd, events});
        }
    }

    void Handle(int, short revents) override
    {
        if (mOwner == nullptr || !mOwner->mValid.load())
        {
            return;
        }
        CFOptionFlags fired = 0;
        const CFOptionFlags enabled = mOwner->mEnabled.load();
        // A hang-up or an error wakes the reader: its read() then reports it.
        if ((enabled & kCFFileDescriptorReadCallBack) != 0 &&
            (revents & (POLLIN | POLLHUP | POLLERR)) != 0)
        {
            fired |= kCFFileDescriptorReadCallBack;
        }
        if ((enabled & kCFFileDescriptorWriteCallBack) != 0 && (revents & (POLLOUT | POLLERR)) != 0)
        {
            fired |= kCFFileDescriptorWriteCallBack;
        }
        if (fired == 0)
        {
            return;
        }
        mOwner->mEnabled.fetch_and(~fired);
        __CFFileDescriptor* owner = mOwner;
        CFRetain(owner);
        if (owner->mCallout != nullptr)
        {
            owner->mCallout(owner, fired, owner->mContext.info);
        }
        CFRelease(owner);
    }

private:
    __CFFileDescriptor* mOwner;
};

__CFFileDescriptor* Descriptor(CFFileDescriptorRef f, const char* function)
{
    CFRuntime::Object(f, function);
    if (f->mTypeID != CFRuntime::eTypeIDFileDescriptor)
    {
        Fatal(function, "not a CFFileDescriptor");
    }
    return f;
}
} // namespace

__CFFileDescriptor::~__CFFileDescriptor()
{
    CFFileDescriptorInvalidate(this);
    if (mSource != nullptr)
    {
        CFRelease(mSource);
    }
}

CFFileDescriptorRef CFFileDescriptorCreate(CFAllocatorRef, CFFileDescriptorNativeDescriptor fd,
                                           Boolean closeOnInvalidate,
                                           CFFileDescriptorCallBack callout,
                                           const CFFileDescriptorContext* context)
{
    if (fd < 0)
    {
        return nullptr;
    }
    auto* descriptor = new __CFFileDescriptor;
    descriptor->mFd = fd;
    descriptor->mCloseOnInvalidate = closeOnInvalidate;
    descriptor->mCallout = callout;
    if (context != nullptr)
    {
        descriptor->mContext = *context;
        if (context->retain != nullptr)
        {
            descriptor->mContext.info = context->retain(context->info);
        }
    }
    descriptor->mHandler = std::make_shared<CFileDescriptorHandler>(descriptor);
    return descriptor;
}

CFFileDescriptorNativeDescriptor CFFileDescriptorGetNativeDescriptor(CFFileDescriptorRef f)
{
    return Descriptor(f, "CFFileDescriptorGetNativeDescriptor")->mFd;
}

void CFFileDescriptorEnableCallBacks(CFFileDescriptorRef f, CFOptionFlags callBackTypes)
{
    Descriptor(f, "CFFileDescriptorEnableCallBacks")->mEnabled.fetch_or(callBackTypes);
}

void CFFileDescriptorInvalidate(CFFileDescriptorRef f)
{
    __CFFileDescriptor* descriptor = Descriptor(f, "CFFileDescriptorInvalidate");
    if (!descriptor->mValid.exchange(false))
    {
        return;
    }
    descriptor->mHandler->Detach();
    if (descriptor->mSource != nullptr)
    {
        CFRunLoopSourceInvalidate(descriptor->mSource);
    }
    if (descriptor->mCloseOnInvalidate)
    {
        close(descriptor->mFd);
    }
    if (descriptor->mContext.release != nullptr)
    {
        descriptor->mContext.release(descriptor->mContext.info);
    }
}

CFRunLoopSourceRef CFFileDescriptorCreateRunLoopSource(CFAllocatorRef, CFFileDescriptorRef f,
                                                       CFIndex order)
{
    __CFFileDescriptor* descriptor = Descriptor(f, "CFFileDescriptorCreateRunLoopSource");
    if (!descriptor->mValid.load())
    {
        return nullptr;
    }
    if (descriptor->mSource == nullptr)
    {
        descriptor->mSource = CFRunLoopPrivate::CreateFdSource(order, descriptor->mHandler);
    }
    return CFRuntime::Retained(descriptor->mSource);
}
