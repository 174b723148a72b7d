#include "Common/Settings/CSettingsNestingGuard.h"

#include <cstdio>
#include <stdexcept>

thread_local int CSettingsNestingGuard::sDepth = 0;

void CSettingsNestingGuard::ThrowIfTooDeep() const
{
    if (TooDeep())
    {
        throw std::runtime_error("settings archive nested too deeply");
    }
}

bool CSettingsNestingGuard::ReportIfTooDeep(const char* reader_I) const
{
    if (TooDeep())
    {
        std::fprintf(stderr, "%s: containers nested deeper than %d levels\n", reader_I,
                     kMaxNestingDepth);
        return true;
    }
    return false;
}
