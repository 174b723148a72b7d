// The application and system handler tables, and dispatch.
#include "Compat/AEDispatch.h"

#include <map>
#include <mutex>
#include <utility>

namespace
{
struct SHandler
{
    AEEventHandlerUPP handler;
    SRefCon refcon;
};

using Table = std::map<std::pair<AEEventClass, AEEventID>, SHandler>;

struct STables
{
    std::mutex mutex;
    Table application;
    Table system;
};

STables& Tables()
{
    static STables tables;
    return tables;
}

Table& TableFor(STables& tables, Boolean isSysHandler)
{
    return isSysHandler ? tables.system : tables.application;
}

bool Lookup(const Table& table, AEEventClass eventClass, AEEventID eventID, SHandler& found)
{
    const std::pair<AEEventClass, AEEventID> keys[] = {{eventClass, eventID},
                                                       {eventClass, typeWildCard},
                                                       {typeWildCard, eventID},
                                                       {typeWildCard, typeWildCard}};
    for (const auto& key : keys)
    {
        auto it = table.find(key);
        if (it != table.end())
        {
            found = it->second;
            return true;
        }
    }
    return false;
}
} // namespace

OSErr AEInstallEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                            AEEventHandlerUPP handler, SRefCon handlerRefcon, Boolean isSysHandler)
{
    if (!handler)
    {
        return paramErr;
    }
    STables& tables = Tables();
    std::lock_guard<std::mutex> lock(tables.mutex);
    TableFor(tables, isSysHandler)[{theAEEventClass, theAEEventID}] = {handler, handlerRefcon};
    return noErr;
}

OSErr AERemoveEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                           AEEventHandlerUPP handler, Boolean isSysHandler)
{
    STables& tables = Tables();
    std::lock_guard<std::mutex> lock(tables.mutex);
    Table& table = TableFor(tables, isSysHandler);
    auto it = table.find({theAEEventClass, theAEEventID});
    if (it == table.end() || (handler && it->second.handler != handler))
    {
        return errAEHandlerNotFound;
    }
    table.erase(it);
    return noErr;
}

OSErr AEGetEventHandler(AEEventClass theAEEventClass, AEEventID theAEEventID,
                        AEEventHandlerUPP* handler, SRefCon* handlerRefcon, Boolean isSysHandler)
{
    STables& tables = Tables();
    std::lock_guard<std::mutex> lock(tables.mutex);
    Table& table = TableFor(tables, isSysHandler);
    auto it = table.find({theAEEventClass, theAEEventID});
    if (it == table.end())
    {
        return errAEHandlerNotFound;
    }
    if (handler)
    {
        *handler = it->second.handler;
    }
    if (handlerRefcon)
    {
        *handlerRefcon = it->second.refcon;
    }
    return noErr;
}

OSErr AEDispatch::CreateReply(const AppleEvent* event, AppleEvent* reply)
{
    AEReturnID returnID = 0;
    AETransactionID transactionID = 0;
    OSErr err = AEGetAttributePtr(event, keyReturnIDAttr, typeSInt16, nullptr, &returnID,
                                  sizeof returnID, nullptr);
    if (err == noErr)
    {
        err = AEGetAttributePtr(event, keyTransactionIDAttr, typeSInt32, nullptr, &transactionID,
                                sizeof transactionID, nullptr);
    }
    if (err != noErr)
    {
        AEInitializeDesc(reply);
        return err;
    }
    return AECreateAppleEvent(kCoreEventClass, kAEAnswer, nullptr, returnID, transactionID, reply);
}

OSErr AEDispatch::DispatchEvent(const AppleEvent* event, AppleEvent* reply)
{
    AEEventClass eventClass = 0;
    AEEventID eventID = 0;
    OSErr err = AEGetAttributePtr(event, keyEventClassAttr, typeType, nullptr, &eventClass,
                                  sizeof eventClass, nullptr);
    if (err == noErr)
    {
        err = AEGetAttributePtr(event, keyEventIDAttr, typeType, nullptr, &eventID, sizeof eventID,
                                nullptr);
    }
    if (err != noErr)
    {
        return errAENotAppleEvent;
    }

    SHandler found{};
    bool haveHandler;
    {
        STables& tables = Tables();
        std::lock_guard<std::mutex> lock(tables.mutex);
        haveHandler = Lookup(tables.application, eventClass, eventID, found) ||
                      Lookup(tables.system, eventClass, eventID, found);
    }
    // The handler runs without the lock: it may install or remove handlers, or send events.
    err = haveHandler ? found.handler(event, reply, found.refcon) : OSErr(errAEEventNotHandled);

    if (err != noErr && reply && reply->descriptorType == typeAppleEvent)
    {
        AEDesc existing;
        if (AEGetParamDesc(reply, keyErrorNumber, typeWildCard, &existing) == errAEDescNotFound)
        {
            SInt32 number = err;
            AEPutParamPtr(reply, keyErrorNumber, typeSInt32, &number, sizeof number);
        }
        AEDisposeDesc(&existing);
    }
    return err;
}
