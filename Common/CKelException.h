// CKelException: the one exception class of the system, for the few failures that cannot be
// reported through a return value (a full key chain). It never crosses a module boundary.
//
// what() is built once, at construction:
//   [File: <file>, Line: <line>, ][Status: <status in lower-case hex>, ] "<message>"
// The file part appears only with a file, the status part only with a non-zero status, and
// the message part always starts with a blank. So the status 0x100 with no file gives
// `Status: 100,  "AddKey full"` (two blanks before the quote), and neither file nor status
// gives ` "AddKey full"` (a leading blank). Both blanks are kept on purpose.
#pragma once

#include "Common/KelStatus.h"

#include <cstdint>
#include <exception>
#include <string>

class CKelException : public std::exception
{
public:
    // file_I is not copied (a source file name, usually a literal) and may be null.
    CKelException(const char* file_I, int32_t line_I, const char* message_I, KELSTATUS status_I);
    ~CKelException() override;

    const char* what() const noexcept override;

    const char* File() const { return mFile; }
    int32_t Line() const { return mLine; }
    const std::string& Message() const { return mMessage; }
    KELSTATUS Status() const { return mStatus; }

private:
    const char* mFile;
    int32_t mLine;
    std::string mMessage;
    KELSTATUS mStatus;
    std::string mText;
};
