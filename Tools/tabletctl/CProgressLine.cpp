#include "Tools/tabletctl/CProgressLine.h"

#include <cstdio>
#include <unistd.h>

CProgressLine::CProgressLine() : mTerminal(isatty(STDERR_FILENO) == 1) {}

CProgressLine::~CProgressLine()
{
    Clear();
}

void CProgressLine::Show(const std::string& text_I)
{
    if (mTerminal)
    {
        // Back to the start of the line, the text, the rest of the line erased.
        std::fprintf(stderr, "\r%s\033[K", text_I.c_str());
        std::fflush(stderr);
        mShowing = true;
    }
}

void CProgressLine::Clear()
{
    if (mShowing)
    {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        mShowing = false;
    }
}
