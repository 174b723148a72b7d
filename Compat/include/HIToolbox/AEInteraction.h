// Sending Apple Events to other applications.
//
// Every application (NSApplicationMain) receives events on message ports of its own: one
// named "AppleEvents.pid.<process ID>", and one named "AppleEvents.bundle.<bundle
// identifier>" when its main bundle has an identifier that no running application serves
// yet. A request carries the flattened event (AE/AEDataModel.h) with message id 'AEVT' when
// the sender waits for the reply, 'AEVN' when it does not; the reply data is the flattened
// reply event. The handlers run on the receiver's main run loop.
//
// AESend finds the receiver from the event's address: typeKernelProcessID (a pid_t),
// typeProcessSerialNumber, or typeApplicationBundleID (the identifier's UTF-8 bytes). An
// event addressed to the calling process (its process ID, {0, kCurrentProcess}, or a bundle
// port it serves itself) goes straight to its handlers. With kAEWaitReply the reply
// ('aevt'/'ansr', the handler's error in keyErrorNumber) is returned in `reply`, for the
// caller to dispose of; with kAENoReply `reply` is a null descriptor.
//
// Results: noErr once the event was handled or delivered, whatever the handler returned (its
// error is in the reply); procNotFound when nobody serves the address; errAETimeout when the
// receiver did not take or answer the event within the time-out; connectionInvalid when the
// connection broke; errAEReplyNotValid for a reply that is no event;
// errAEUnknownAddressType for an address of another kind or none. kAEQueueReply is not
// offered here (errAEUnknownSendMode). Priorities, the idle and filter procedures are
// accepted and not used; while it waits, the calling thread runs its run loop in a private
// mode, so it serves no events of its own meanwhile.
#pragma once

#include <AE/AE.h>

#ifdef __cplusplus
extern "C"
{
#endif

    typedef SInt32 AESendMode;
    typedef SInt16 AESendPriority;

    enum
    {
        kAENoReply = 0x00000001,
        kAEQueueReply = 0x00000002,
        kAEWaitReply = 0x00000003,
        kAEDontReconnect = 0x00000080,
        kAEWantReceipt = 0x00000200,
        kAENeverInteract = 0x00000010,
        kAECanInteract = 0x00000020,
        kAEAlwaysInteract = 0x00000030,
        kAECanSwitchLayer = 0x00000040,
        kAEDontRecord = 0x00001000,
        kAEDontExecute = 0x00002000,
        kAEProcessNonReplyEvents = 0x00008000
    };

    enum
    {
        kAENormalPriority = 0x00000000,
        kAEHighPriority = 0x00000001
    };

    // Time-outs in ticks (1/60 s): the default is one minute; kNoTimeOut waits for ever.
    enum
    {
        kAEDefaultTimeout = -1,
        kNoTimeOut = -2
    };

    typedef Boolean (*AEIdleProcPtr)(void* theEvent, SInt32* sleepTime, void** mouseRgn);
    typedef Boolean (*AEFilterProcPtr)(void* theEvent, SInt32 returnID,
                                       AETransactionID transactionID, const AEAddressDesc* sender);
    typedef AEIdleProcPtr AEIdleUPP;
    typedef AEFilterProcPtr AEFilterUPP;

    OSErr AESend(const AppleEvent* theAppleEvent, AppleEvent* reply, AESendMode sendMode,
                 AESendPriority sendPriority, SInt32 timeOutInTicks, AEIdleUPP idleProc,
                 AEFilterUPP filterProc);

#ifdef __cplusplus
}
#endif
