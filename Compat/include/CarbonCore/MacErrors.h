// The error numbers of the macOS headers that the interfaces here return.
#pragma once

#include <MacTypes.h>

enum
{
    paramErr = -50,
    memFullErr = -108,
    procNotFound = -600,
    connectionInvalid = -609,

    errAECoercionFail = -1700,
    errAEDescNotFound = -1701,
    errAECorruptData = -1702,
    errAEWrongDataType = -1703,
    errAENotAEDesc = -1704,
    errAEBadListItem = -1705,
    errAENotAppleEvent = -1707,
    errAEEventNotHandled = -1708,
    errAEReplyNotValid = -1709,
    errAEUnknownSendMode = -1710,
    errAETimeout = -1712,
    errAEUnknownAddressType = -1716,
    errAEHandlerNotFound = -1717,
    errAEIllegalIndex = -1719,
    errAENoSuchObject = -1728,
    errAEBufferTooSmall = -1741
};
