// Bounds how deeply containers may nest while an archive or a JSON text is read.
//
// The readers recurse once per container level (map or array reader -> node dispatcher ->
// container reader), so an archive of a few megabytes of 62 80 62 80 ... or a text of
// "[[[[..." would otherwise run the stack out. Each container reader holds one guard for as
// long as it reads; the guard counts the containers open on this thread, and a reader whose
// guard is past kMaxNestingDepth fails like any other malformed input: the archive readers
// throw std::runtime_error "settings archive nested too deeply" (ReadFromASN1Binary prints it
// and gives null), the JSON readers print one line to standard error and give null.
//
// 256 levels: real trees (touch capabilities, settings files) nest fewer than ten, and 256
// frames of the readers stay far below the stack of any thread, sanitizers included.
#pragma once

class CSettingsNestingGuard
{
public:
    static constexpr int kMaxNestingDepth = 256;

    CSettingsNestingGuard() { ++sDepth; }
    ~CSettingsNestingGuard() { --sDepth; }
    CSettingsNestingGuard(const CSettingsNestingGuard&) = delete;
    CSettingsNestingGuard& operator=(const CSettingsNestingGuard&) = delete;

    // Whether this guard's container lies deeper than the limit.
    bool TooDeep() const { return sDepth > kMaxNestingDepth; }

    // Throws the archive readers' error when TooDeep.
    void ThrowIfTooDeep() const;
    // Prints the JSON readers' line for `reader_I` when TooDeep; returns TooDeep.
    bool ReportIfTooDeep(const char* reader_I) const;
    // For the writers: refuses the write in progress (CSettingsWriteCheck.h) when TooDeep, so
    // that nothing is written that the readers would refuse; returns TooDeep.
    bool RefuseWriteIfTooDeep() const;

private:
    static thread_local int sDepth;
};
