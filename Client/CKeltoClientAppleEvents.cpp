// The Apple Event side of CKeltoClient: events addressed to the coordinator as an
// application, sent with AESend and answered by its reply event.
#include "Client/CKeltoClient.h"

#include <Carbon/Carbon.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

namespace
{
// Disposes of a descriptor at the end of the scope.
class StAEDesc
{
public:
    StAEDesc() { AEInitializeDesc(&mDesc); }
    ~StAEDesc() { AEDisposeDesc(&mDesc); }
    StAEDesc(const StAEDesc&) = delete;
    StAEDesc& operator=(const StAEDesc&) = delete;
    AEDesc* Get() { return &mDesc; }

private:
    AEDesc mDesc;
};

constexpr DescType kClassTablet = 'Tblt';

std::vector<unsigned char> DataOf(const AEDesc& desc_I)
{
    std::vector<unsigned char> data(static_cast<std::size_t>(AEGetDescDataSize(&desc_I)));
    if (!data.empty())
    {
        AEGetDescData(&desc_I, data.data(), static_cast<Size>(data.size()));
    }
    return data;
}

std::uint32_t AttributeOf(const AppleEvent& event_I, AEKeyword keyword_I)
{
    DescType value = 0;
    DescType actualType = 0;
    Size actualSize = 0;
    if (AEGetAttributePtr(&event_I, keyword_I, typeType, &actualType, &value, sizeof value,
                          &actualSize) != noErr)
    {
        return 0;
    }
    return value;
}

// A reply event as plain values; the result is its 'errn' parameter, or noErr.
OSErr ReadReply(const AppleEvent& reply_I, CKeltoClient::SAppleEvent& reply_O)
{
    CKeltoClient::SAppleEvent reply;
    reply.mClass = AttributeOf(reply_I, keyEventClassAttr);
    reply.mID = AttributeOf(reply_I, keyEventIDAttr);
    OSErr result = noErr;
    long count = 0;
    if (AECountItems(&reply_I, &count) == noErr)
    {
        for (long index = 1; index <= count; ++index)
        {
            StAEDesc item;
            AEKeyword keyword = 0;
            if (AEGetNthDesc(&reply_I, index, typeWildCard, &keyword, item.Get()) != noErr)
            {
                continue;
            }
            CKeltoClient::SAppleEventParameter parameter;
            parameter.mKeyword = keyword;
            parameter.mType = item.Get()->descriptorType;
            parameter.mData = DataOf(*item.Get());
            if (keyword == keyErrorNumber)
            {
                SInt32 number = 0;
                DescType actualType = 0;
                Size actualSize = 0;
                if (AEGetParamPtr(&reply_I, keyErrorNumber, typeSInt32, &actualType, &number,
                                  sizeof number, &actualSize) == noErr)
                {
                    result = static_cast<OSErr>(number);
                }
            }
            reply.mParameters.push_back(std::move(parameter));
        }
    }
    reply_O = std::move(reply);
    return result;
}

SInt32 Ticks(double seconds_I)
{
    constexpr double kTicksPerSecond = 60.0;
    constexpr double kMostTicks = 2147483647.0;
    return static_cast<SInt32>(std::min(std::ceil(seconds_I * kTicksPerSecond), kMostTicks));
}
} // namespace

int CKeltoClient::SendAppleEvent(const SAppleEvent& event_I, SAppleEvent& reply_O)
{
    StAEDesc target;
    OSErr error = AECreateDesc(typeApplicationBundleID, kCoordinatorBundleID,
                               static_cast<Size>(std::strlen(kCoordinatorBundleID)), target.Get());
    StAEDesc event;
    if (error == noErr)
    {
        error = AECreateAppleEvent(event_I.mClass, event_I.mID, target.Get(), kAutoGenerateReturnID,
                                   kAnyTransactionID, event.Get());
    }
    for (const SAppleEventParameter& parameter : event_I.mParameters)
    {
        if (error != noErr)
        {
            break;
        }
        error = AEPutParamPtr(event.Get(), parameter.mKeyword, parameter.mType,
                              parameter.mData.data(), static_cast<Size>(parameter.mData.size()));
    }
    if (error != noErr)
    {
        return error;
    }
    StAEDesc reply;
    error = AESend(event.Get(), reply.Get(), kAEWaitReply, kAENormalPriority, Ticks(mTimeout),
                   nullptr, nullptr);
    if (error != noErr)
    {
        return error;
    }
    return ReadReply(*reply.Get(), reply_O);
}

int CKeltoClient::CountTabletsByAppleEvent(long& count_O)
{
    SAppleEvent event;
    event.mClass = kAECoreSuite;
    event.mID = kAECountElements;
    const DescType tabletClass = kClassTablet;
    SAppleEventParameter objectClass;
    objectClass.mKeyword = keyAEObjectClass;
    objectClass.mType = typeType;
    objectClass.mData.resize(sizeof tabletClass);
    std::memcpy(objectClass.mData.data(), &tabletClass, sizeof tabletClass);
    event.mParameters.push_back(objectClass);

    SAppleEvent reply;
    const int error = SendAppleEvent(event, reply);
    if (error != noErr)
    {
        return error;
    }
    for (const SAppleEventParameter& parameter : reply.mParameters)
    {
        SInt32 count = 0;
        if (parameter.mKeyword == keyDirectObject && parameter.mType == typeSInt32 &&
            parameter.mData.size() == sizeof count)
        {
            std::memcpy(&count, parameter.mData.data(), sizeof count);
            count_O = count;
            return noErr;
        }
    }
    return errAEDescNotFound;
}
