// Named message ports: a local port serves requests by name; a remote port sends requests
// to the process that serves that name and waits for the reply.
//
// Names are per user: a port is a Unix domain socket in the user's port directory (see
// Compat/PortDirectory.h), and a peer of another user is refused. As on macOS, creating a
// local port for a name that a live process serves fails (NULL), a name whose process died
// is taken over, and creating a remote port for a name nobody serves fails (NULL).
//
// A request waits for its reply by running the current thread's run loop in `replyMode`, so
// the thread keeps serving its own local ports whose sources are in that mode; requests
// may be sent from inside those call-backs, also over the same remote port. Every request
// gets its own reply whatever order replies arrive in; a reply that arrives after its
// request timed out is dropped. A NULL `replyMode` sends one way: no reply is awaited and
// the server's reply is discarded.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

typedef struct __CFMessagePort* CFMessagePortRef;

enum
{
    kCFMessagePortSuccess = 0,
    kCFMessagePortSendTimeout = -1,
    kCFMessagePortReceiveTimeout = -2,
    kCFMessagePortIsInvalid = -3,
    kCFMessagePortTransportError = -4,
    kCFMessagePortBecameInvalidError = -5,
    // Here only, never on macOS: the server refused the connection or the request (too many
    // connections, a frame too large) and closed the connection; the port is invalid.
    kCFMessagePortRefused = -6
};

typedef struct
{
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFMessagePortContext;

// Runs for each request; `data` belongs to the port (retain it to keep it). The returned
// data (or NULL for "no data") is owned by the port, which sends and releases it.
typedef CFDataRef (*CFMessagePortCallBack)(CFMessagePortRef local, SInt32 msgid, CFDataRef data,
                                           void* info);

// `*shouldFreeInfo` is set true when the context's info was not taken: on failure, and
// when this process already has a local port of that name, which is returned retained.
CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                          CFMessagePortCallBack callout,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo);
// A valid remote port of that name in this process is returned again, retained.
CFMessagePortRef CFMessagePortCreateRemote(CFAllocatorRef allocator, CFStringRef name);

// A remote port whose server went away reports false (and is invalidated then).
Boolean CFMessagePortIsValid(CFMessagePortRef ms);
void CFMessagePortInvalidate(CFMessagePortRef ms);

SInt32 CFMessagePortSendRequest(CFMessagePortRef remote, SInt32 msgid, CFDataRef data,
                                CFTimeInterval sendTimeout, CFTimeInterval rcvTimeout,
                                CFStringRef replyMode, CFDataRef* returnData);

// The source that serves a local port on a run loop (one per port; returned retained).
CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef allocator,
                                                    CFMessagePortRef local, CFIndex order);

CF_EXTERN_C_END
