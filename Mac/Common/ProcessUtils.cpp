#include "Mac/Common/ProcessUtils.h"

#include "Mac/Common/MacStringUtilities.h"

ProcessSerialNumber ProcessUtils::GetPSNForProcessWithName(const std::string& name,
                                                           bool includeCurrentProcess)
{
    ProcessSerialNumber current;
    GetCurrentProcess(&current);
    ProcessSerialNumber psn = {0, kNoProcess};
    while (GetNextProcess(&psn) == noErr)
    {
        Boolean isCurrent = false;
        SameProcess(&psn, &current, &isCurrent);
        if (isCurrent && !includeCurrentProcess)
        {
            continue;
        }
        CFStringRef processName = nullptr;
        if (CopyProcessName(&psn, &processName) != noErr || !processName)
        {
            continue; // ended while we looked
        }
        bool same = MacStringUtilities::GetStringForCFString(processName) == name;
        CFRelease(processName);
        if (same)
        {
            return psn;
        }
    }
    return {0, kNoProcess};
}

bool ProcessUtils::KillProcessWithPSN(const ProcessSerialNumber& psn)
{
    if (PSNIsNoProcess(psn))
    {
        return true;
    }
    OSErr err = KillProcess(&psn);
    return err == noErr || err == procNotFound;
}

bool ProcessUtils::PSNIsNoProcess(const ProcessSerialNumber& psn)
{
    return psn.highLongOfPSN == 0 && psn.lowLongOfPSN == kNoProcess;
}
