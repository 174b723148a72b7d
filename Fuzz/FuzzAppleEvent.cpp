// Fuzz target for the flattened Apple Event form, which arrives from other processes (a
// driver's reply to a forwarded event, an event sent to the application's port). Whatever
// the bytes, unflattening stays inside them; what it accepts is walked with the accessors
// and flattens back to exactly the same bytes, since the form has one spelling per value.
// The same bytes then go through the application's event port as a request.
#include "Compat/AEEventPort.h"
#include "Fuzz/FuzzCheck.h"

#include <CoreServices/CoreServices.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
void Walk(const AEDesc& desc, int depth)
{
    long count = 0;
    if (depth > 70 || AECountItems(&desc, &count) != noErr)
    {
        char buffer[8];
        AEGetDescData(&desc, buffer, sizeof buffer);
        return;
    }
    for (long i = 1; i <= count; ++i)
    {
        AEKeyword key = 0;
        AEDesc item;
        Check(AEGetNthDesc(&desc, i, typeWildCard, &key, &item) == noErr);
        // The coercions a handler would ask for.
        SInt32 number = 0;
        OSType code = 0;
        AEGetNthPtr(&desc, i, typeSInt32, nullptr, nullptr, &number, 4, nullptr);
        AEGetNthPtr(&desc, i, typeType, nullptr, nullptr, &code, 4, nullptr);
        Walk(item, depth + 1);
        AEDisposeDesc(&item);
    }
    AEEventClass eventClass = 0;
    AEGetAttributePtr(&desc, keyEventClassAttr, typeType, nullptr, &eventClass, 4, nullptr);
}

void ThroughThePort(const uint8_t* data, size_t size)
{
    CFDataRef reply = AEEventPort::HandleRequest(AEEventPort::kWaitReplyMessage, data,
                                                 static_cast<CFIndex>(size));
    if (reply)
    {
        // Whatever was asked, the answer is a well-formed reply event.
        AEDesc event;
        Check(AEUnflattenDescFromBytes(CFDataGetBytePtr(reply), size_t(CFDataGetLength(reply)),
                                       &event) == noErr &&
              event.descriptorType == typeAppleEvent);
        AEDisposeDesc(&event);
        CFRelease(reply);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ThroughThePort(data, size);
    AEDesc desc;
    if (AEUnflattenDescFromBytes(data, size, &desc) != noErr)
    {
        Check(desc.descriptorType == typeNull && !desc.dataHandle);
        return 0;
    }
    Walk(desc, 0);

    AEDesc copy;
    Check(AEDuplicateDesc(&desc, &copy) == noErr);
    AEDisposeDesc(&desc);
    std::vector<char> again(static_cast<size_t>(AESizeOfFlattenedDesc(&copy)));
    Size actual = 0;
    Check(AEFlattenDesc(&copy, again.data(), Size(again.size()), &actual) == noErr &&
          again.size() == size && std::memcmp(again.data(), data, size) == 0);
    AEDisposeDesc(&copy);
    return 0;
}
