// The message ports on which an application receives Apple Events (names and message ids in
// HIToolbox/AEInteraction.h). Private to Compat: NSApplication opens them, AESend addresses
// them.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <sys/types.h>

namespace AEEventPort
{
constexpr SInt32 kWaitReplyMessage = 'AEVT';
constexpr SInt32 kNoReplyMessage = 'AEVN';

std::string PidPortName(pid_t pid);
std::string BundlePortName(const std::string& bundleIdentifier);

// Opens this process's ports (the bundle one only when the main bundle has an identifier
// that no live process serves) and serves them on `runLoop` in the common modes. Later calls
// do nothing. False when not even the process port could be opened.
bool Open(CFRunLoopRef runLoop);

// Whether this process serves the port of that name.
bool Serves(const std::string& portName);

// What a port does with one request: the flattened reply event for 'AEVT', nothing for
// 'AEVN' or for bytes that are not one flattened event. Open to tests and the fuzz target.
CFDataRef HandleRequest(SInt32 messageID, const UInt8* bytes, CFIndex length);
} // namespace AEEventPort
