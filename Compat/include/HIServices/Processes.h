// The Process Manager subset: this user's running processes, their names, and killing one.
//
// A process serial number stands for one process: {0, kNoProcess} for none, {0,
// kCurrentProcess} for the calling process, and {1, pid} for the process with that ID. The
// processes are those of the calling process's real user that are alive (not zombies), in
// ascending process ID. A process's name is the name of its program: the kernel's command
// name, or the last path component of its first argument when the command name was cut to
// the kernel's 15 characters.
#pragma once

#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CoreFoundation.h>

#include <sys/types.h>

CF_EXTERN_C_BEGIN

typedef struct ProcessSerialNumber
{
    UInt32 highLongOfPSN;
    UInt32 lowLongOfPSN;
} ProcessSerialNumber;
typedef ProcessSerialNumber* ProcessSerialNumberPtr;

enum
{
    kNoProcess = 0,
    kSystemProcess = 1,
    kCurrentProcess = 2
};

OSErr GetCurrentProcess(ProcessSerialNumber* PSN);
// The process after `PSN` ({0, kNoProcess} asks for the first); procNotFound, with `PSN` set
// to {0, kNoProcess}, after the last.
OSErr GetNextProcess(ProcessSerialNumber* PSN);
OSStatus GetProcessPID(const ProcessSerialNumber* psn, pid_t* pid);
// The name (owned by the caller); procNotFound when the process is gone.
OSStatus CopyProcessName(const ProcessSerialNumber* psn, CFStringRef* name);
OSErr SameProcess(const ProcessSerialNumber* PSN1, const ProcessSerialNumber* PSN2,
                  Boolean* result);
// Kills the process at once (SIGKILL); procNotFound when there is no such process, paramErr
// when it may not be killed.
OSErr KillProcess(const ProcessSerialNumber* inProcess);

CF_EXTERN_C_END
