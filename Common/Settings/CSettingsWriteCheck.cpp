#include "Common/Settings/CSettingsWriteCheck.h"

#include <cstdio>

thread_local int CSettingsWriteCheck::sOpen = 0;
thread_local std::string CSettingsWriteCheck::sReason;

CSettingsWriteCheck::CSettingsWriteCheck()
{
    if (sOpen++ == 0)
    {
        sReason.clear();
    }
}

CSettingsWriteCheck::~CSettingsWriteCheck()
{
    --sOpen;
}

void CSettingsWriteCheck::Refuse(std::string reason_I)
{
    if (sReason.empty())
    {
        sReason = std::move(reason_I);
    }
}

bool CSettingsWriteCheck::ReportIfRefused(const char* writer_I) const
{
    if (sReason.empty())
    {
        return false;
    }
    std::fprintf(stderr, "%s: %s\n", writer_I, sReason.c_str());
    return true;
}
