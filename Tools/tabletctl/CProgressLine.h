// A line of progress on standard error for the operations that may take a while (sync,
// quit --wait). It is shown only when standard error is a terminal, rewritten in place, and
// erased when the operation ends: nothing of it stays on the screen or reaches a pipe or a
// file.
#pragma once

#include <string>

class CProgressLine
{
public:
    CProgressLine();
    ~CProgressLine();
    CProgressLine(const CProgressLine&) = delete;
    CProgressLine& operator=(const CProgressLine&) = delete;

    void Show(const std::string& text_I);
    void Clear();

private:
    bool mTerminal = false;
    bool mShowing = false;
};
