// Apple Event handlers: the table of handlers by event class and ID.
//
// An event is dispatched to the handler installed for its class and ID, looked up in this
// order: the exact pair, the class with ID '****', '****' with the ID, and '****' twice;
// the application table first, then the system table. A handler returns an error number;
// when it fails and the reply is an event without keyErrorNumber, that number is put there.
// An event that finds no handler is answered errAEEventNotHandled.
//
// Handlers run on the thread that runs the main run loop: the application receives events
// on a message port of its own (see NSApplication), or directly from AESend when the target
// is this process.
#pragma once

#include <AE/AEDataModel.h>

#ifdef __cplusplus
extern "C"
{
#endif

    enum
    {
        kCoreEventClass = 'aevt',
        kAEOpenApplication = 'oapp',
        kAEReopenApplication = 'rapp',
        kAEOpenDocuments = 'odoc',
        kAEPrintDocuments = 'pdoc',
        kAEQuitApplication = 'quit',
        kAEAnswer = 'ansr'
    };

    typedef OSErr (*AEEventHandlerProcPtr)(const AppleEvent* theAppleEvent, AppleEvent* reply,
                                           SRefCon handlerRefcon);
    typedef AEEventHandlerProcPtr AEEventHandlerUPP;

    static inline AEEventHandlerUPP NewAEEventHandlerUPP(AEEventHandlerProcPtr userRoutine)
    {
        return userRoutine;
    }

    // Installing for a pair that has a handler replaces it. A NULL handler is paramErr.
    OSErr AEInstallEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                                AEEventHandlerUPP handler, SRefCon handlerRefcon,
                                Boolean isSysHandler);
    // Removes the handler of exactly this pair if it is `handler` (or any, when `handler` is
    // NULL); errAEHandlerNotFound otherwise.
    OSErr AERemoveEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                               AEEventHandlerUPP handler, Boolean isSysHandler);
    // The handler of exactly this pair; errAEHandlerNotFound when there is none.
    OSErr AEGetEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                            AEEventHandlerUPP* handler, SRefCon* handlerRefcon,
                            Boolean isSysHandler);

#ifdef __cplusplus
}
#endif
