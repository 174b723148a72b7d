#include "Mac/Common/MacStringUtilities.h"

#include "Common/KelAssert.h"

#include <cctype>

std::string MacStringUtilities::GetStringForCFString(CFStringRef cfString)
{
    KelAssert(cfString);
    if (!cfString)
    {
        return {};
    }
    if (const char* direct = CFStringGetCStringPtr(cfString, kCFStringEncodingUTF8))
    {
        return direct;
    }
    CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(cfString), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<size_t>(size), '\0');
    if (!CFStringGetCString(cfString, buffer.data(), size, kCFStringEncodingUTF8))
    {
        return {};
    }
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    return buffer;
}

void MacStringUtilities::ConvertToLowercase(const char* source, char* destination,
                                            size_t destinationSize)
{
    if (!source || !destination || destinationSize == 0)
    {
        return;
    }
    size_t i = 0;
    for (; i + 1 < destinationSize && source[i] != '\0'; ++i)
    {
        destination[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(source[i])));
    }
    destination[i] = '\0';
}
