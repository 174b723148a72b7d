#include "Common/Settings/CSettingsNestingGuard.h"

#include "Common/Settings/CSettingsWriteCheck.h"

#include <cstdio>
#include <stdexcept>
#include <string>

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

bool CSettingsNestingGuard::RefuseWriteIfTooDeep() const
{
    if (TooDeep())
    {
        CSettingsWriteCheck::Refuse("containers nested deeper than " +
                                    std::to_string(kMaxNestingDepth) + " levels");
        return true;
    }
    return false;
}
