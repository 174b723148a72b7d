#include "Common/CKelException.h"

#include <sstream>

CKelException::CKelException(const char* file_I, int32_t line_I, const char* message_I,
                             KELSTATUS status_I)
    : mFile(file_I), mLine(line_I), mMessage(message_I != nullptr ? message_I : ""),
      mStatus(status_I)
{
    std::ostringstream text;
    if (mFile != nullptr)
    {
        text << "File: " << mFile << ", Line: " << mLine << ", ";
    }
    if (mStatus != 0)
    {
        // The stream stays in hexadecimal from here on; nothing numeric follows.
        text << "Status: " << std::hex << mStatus << ", ";
    }
    text << " \"" << mMessage << "\"";
    mText = text.str();
}

CKelException::~CKelException() = default;

const char* CKelException::what() const noexcept
{
    return mText.c_str();
}
