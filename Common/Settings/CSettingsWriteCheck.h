// Keeps the writers to what the readers take back.
//
// While a tree is written (archive or JSON text), a container deeper than the readers'
// nesting limit (CSettingsNestingGuard.h), or a double that JSON text cannot hold (NaN or an
// infinity), refuses the write: the writer that meets it records the first reason here and
// goes no deeper, and the entry point (GetASN1Binary, GetJSONString, SaveJSONToFile) gives
// nothing and prints "<entry point>: <reason>" on standard error. Without this, a tree 300
// levels deep was written and then refused by both readers, and [nan, -inf, 1] came back
// from its own JSON text as [1].
//
// A check is per thread; checks nested in one another (SaveJSONToFile calls GetJSONString)
// share the outermost one's reason.
#pragma once

#include <string>

class CSettingsWriteCheck
{
public:
    CSettingsWriteCheck();
    ~CSettingsWriteCheck();
    CSettingsWriteCheck(const CSettingsWriteCheck&) = delete;
    CSettingsWriteCheck& operator=(const CSettingsWriteCheck&) = delete;

    // Records `reason_I` unless a reason is recorded already.
    static void Refuse(std::string reason_I);
    // Prints "<writer_I>: <reason>" on standard error when the write was refused; returns
    // whether it was.
    bool ReportIfRefused(const char* writer_I) const;

private:
    static thread_local int sOpen;
    static thread_local std::string sReason;
};
