// Descriptors, lists, records and events: creation, access, coercion and disposal.
#include "Compat/AEDescStorage.h"

#include <atomic>
#include <cstring>
#include <limits>
#include <new>

OpaqueAEDataStorageType::~OpaqueAEDataStorageType()
{
    for (auto& item : items)
    {
        AEDisposeDesc(&item.second);
    }
    AEDisposeDesc(&address);
}

namespace
{
using Storage = OpaqueAEDataStorageType;
using Items = std::vector<std::pair<AEKeyword, AEDesc>>;

Storage* StorageOf(const AEDesc* desc)
{
    return desc ? desc->dataHandle : nullptr;
}

bool IsPlain(const AEDesc& desc)
{
    return !AEDescStorage::IsComposite(desc.descriptorType);
}

// Makes `result` a plain descriptor holding a copy of the bytes.
OSErr CreatePlain(DescType type, const uint8_t* bytes, size_t size, AEDesc* result)
{
    AEInitializeDesc(result);
    if (type == typeNull)
    {
        return noErr;
    }
    auto* storage = new (std::nothrow) Storage;
    if (!storage)
    {
        return memFullErr;
    }
    try
    {
        storage->bytes.assign(bytes, bytes + size);
    }
    catch (const std::bad_alloc&)
    {
        delete storage;
        return memFullErr;
    }
    result->descriptorType = type;
    result->dataHandle = storage;
    return noErr;
}

OSErr CopyDesc(const AEDesc& source, AEDesc* result);

OSErr CopyItems(const Items& from, Items& to)
{
    for (const auto& item : from)
    {
        AEDesc copy;
        OSErr err = CopyDesc(item.second, &copy);
        if (err != noErr)
        {
            return err;
        }
        to.emplace_back(item.first, copy);
    }
    return noErr;
}

OSErr CopyDesc(const AEDesc& source, AEDesc* result)
{
    const Storage* from = source.dataHandle;
    if (IsPlain(source) || !from)
    {
        return from ? CreatePlain(source.descriptorType, from->bytes.data(), from->bytes.size(),
                                  result)
                    : CreatePlain(source.descriptorType, nullptr, 0, result);
    }
    OSErr err = AEDescStorage::CreateComposite(source.descriptorType, result);
    if (err != noErr)
    {
        return err;
    }
    Storage* to = result->dataHandle;
    to->eventClass = from->eventClass;
    to->eventID = from->eventID;
    to->returnID = from->returnID;
    to->transactionID = from->transactionID;
    err = CopyDesc(from->address, &to->address);
    if (err == noErr)
    {
        err = CopyItems(from->items, to->items);
    }
    if (err != noErr)
    {
        AEDisposeDesc(result);
    }
    return err;
}

// --- Coercion of plain data -------------------------------------------------------------

bool IntegerSize(DescType type, size_t& size)
{
    switch (type)
    {
    case typeSInt16:
        size = 2;
        return true;
    case typeSInt32:
    case typeUInt32:
        size = 4;
        return true;
    case typeSInt64:
        size = 8;
        return true;
    default:
        return false;
    }
}

bool IsCodeType(DescType type)
{
    return type == typeType || type == typeEnumerated || type == typeKeyword ||
           type == typeProperty;
}

bool ReadInteger(DescType type, const std::vector<uint8_t>& bytes, int64_t& value)
{
    size_t size = 0;
    if (!IntegerSize(type, size) || bytes.size() != size)
    {
        return false;
    }
    switch (type)
    {
    case typeSInt16:
    {
        int16_t v;
        std::memcpy(&v, bytes.data(), 2);
        value = v;
        return true;
    }
    case typeSInt32:
    {
        int32_t v;
        std::memcpy(&v, bytes.data(), 4);
        value = v;
        return true;
    }
    case typeUInt32:
    {
        uint32_t v;
        std::memcpy(&v, bytes.data(), 4);
        value = v;
        return true;
    }
    default:
    {
        int64_t v;
        std::memcpy(&v, bytes.data(), 8);
        value = v;
        return true;
    }
    }
}

template <typename T> bool StoreIfFits(int64_t value, std::vector<uint8_t>& out)
{
    if (value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max())
    {
        return false;
    }
    T v = static_cast<T>(value);
    out.resize(sizeof v);
    std::memcpy(out.data(), &v, sizeof v);
    return true;
}

bool WriteInteger(DescType type, int64_t value, std::vector<uint8_t>& out)
{
    switch (type)
    {
    case typeSInt16:
        return StoreIfFits<int16_t>(value, out);
    case typeSInt32:
        return StoreIfFits<int32_t>(value, out);
    case typeUInt32:
        return StoreIfFits<uint32_t>(value, out);
    case typeSInt64:
        return StoreIfFits<int64_t>(value, out);
    default:
        return false;
    }
}

// Coerces `source` to `desiredType` into `result` (a new descriptor the caller owns).
OSErr CoerceInto(const AEDesc& source, DescType desiredType, AEDesc* result)
{
    AEInitializeDesc(result);
    if (desiredType == typeWildCard || desiredType == source.descriptorType)
    {
        return CopyDesc(source, result);
    }
    const Storage* storage = source.dataHandle;
    if (!IsPlain(source) || !storage || desiredType == typeNull ||
        AEDescStorage::IsComposite(desiredType))
    {
        return errAECoercionFail;
    }
    const std::vector<uint8_t>& bytes = storage->bytes;
    if (IsCodeType(source.descriptorType) && IsCodeType(desiredType) && bytes.size() == 4)
    {
        return CreatePlain(desiredType, bytes.data(), bytes.size(), result);
    }
    int64_t value = 0;
    std::vector<uint8_t> converted;
    if (ReadInteger(source.descriptorType, bytes, value) &&
        WriteInteger(desiredType, value, converted))
    {
        return CreatePlain(desiredType, converted.data(), converted.size(), result);
    }
    return errAECoercionFail;
}

// Copies the (coerced) data of `item` to the caller's buffer, as every AEGet...Ptr does.
OSErr ReadPtr(const AEDesc& item, DescType desiredType, DescType* typeCode, void* dataPtr,
              Size maximumSize, Size* actualSize)
{
    if (maximumSize < 0 || (!dataPtr && maximumSize > 0))
    {
        return paramErr;
    }
    AEDesc coerced;
    OSErr err = CoerceInto(item, desiredType, &coerced);
    if (err != noErr)
    {
        return err;
    }
    if (!IsPlain(coerced))
    {
        AEDisposeDesc(&coerced);
        return errAECoercionFail;
    }
    Size size = AEGetDescDataSize(&coerced);
    AEGetDescData(&coerced, dataPtr, maximumSize);
    if (typeCode)
    {
        *typeCode = coerced.descriptorType;
    }
    if (actualSize)
    {
        *actualSize = size;
    }
    AEDisposeDesc(&coerced);
    return noErr;
}

// --- Item containers ----------------------------------------------------------------------

enum EContainer
{
    eList = 1,
    eRecord = 2,
    eEvent = 4
};

Items* ItemsOf(const AEDesc* desc, int accepted, OSErr& err)
{
    err = noErr;
    if (!desc)
    {
        err = paramErr;
        return nullptr;
    }
    int kind = desc->descriptorType == typeAEList       ? eList
               : desc->descriptorType == typeAERecord   ? eRecord
               : desc->descriptorType == typeAppleEvent ? eEvent
                                                        : 0;
    if (!(kind & accepted) || !desc->dataHandle)
    {
        err = errAEWrongDataType;
        return nullptr;
    }
    return &desc->dataHandle->items;
}

Items::iterator FindKey(Items& items, AEKeyword key)
{
    for (auto it = items.begin(); it != items.end(); ++it)
    {
        if (it->first == key)
        {
            return it;
        }
    }
    return items.end();
}

OSErr PutKey(AEDesc* record, AEKeyword key, const AEDesc* value)
{
    OSErr err;
    Items* items = ItemsOf(record, eRecord | eEvent, err);
    if (!items)
    {
        return err;
    }
    if (!value)
    {
        return paramErr;
    }
    AEDesc copy;
    err = CopyDesc(*value, &copy);
    if (err != noErr)
    {
        return err;
    }
    auto it = FindKey(*items, key);
    if (it != items->end())
    {
        AEDisposeDesc(&it->second);
        it->second = copy;
    }
    else
    {
        items->emplace_back(key, copy);
    }
    return noErr;
}

const AEDesc* GetKey(const AEDesc* record, AEKeyword key, OSErr& err)
{
    Items* items = ItemsOf(record, eRecord | eEvent, err);
    if (!items)
    {
        return nullptr;
    }
    auto it = FindKey(*items, key);
    if (it == items->end())
    {
        err = errAEDescNotFound;
        return nullptr;
    }
    return &it->second;
}

OSErr DeleteKey(AEDesc* record, AEKeyword key)
{
    OSErr err;
    Items* items = ItemsOf(record, eRecord | eEvent, err);
    if (!items)
    {
        return err;
    }
    auto it = FindKey(*items, key);
    if (it == items->end())
    {
        return errAEDescNotFound;
    }
    AEDisposeDesc(&it->second);
    items->erase(it);
    return noErr;
}

const std::pair<AEKeyword, AEDesc>* GetNth(const AEDesc* list, long index, OSErr& err)
{
    Items* items = ItemsOf(list, eList | eRecord | eEvent, err);
    if (!items)
    {
        return nullptr;
    }
    if (index < 1 || static_cast<size_t>(index) > items->size())
    {
        err = errAEIllegalIndex;
        return nullptr;
    }
    return &(*items)[static_cast<size_t>(index) - 1];
}

// The attributes of an event, as temporary descriptors.
OSErr MakeAttribute(const AppleEvent* event, AEKeyword key, AEDesc* result)
{
    if (!event || event->descriptorType != typeAppleEvent || !event->dataHandle)
    {
        return errAENotAppleEvent;
    }
    const Storage& s = *event->dataHandle;
    switch (key)
    {
    case keyEventClassAttr:
        return AECreateDesc(typeType, &s.eventClass, 4, result);
    case keyEventIDAttr:
        return AECreateDesc(typeType, &s.eventID, 4, result);
    case keyReturnIDAttr:
    {
        SInt16 returnID = static_cast<SInt16>(s.returnID);
        return AECreateDesc(typeSInt16, &returnID, 2, result);
    }
    case keyTransactionIDAttr:
        return AECreateDesc(typeSInt32, &s.transactionID, 4, result);
    case keyAddressAttr:
        return CopyDesc(s.address, result);
    default:
        return errAEDescNotFound;
    }
}

std::atomic<int> sNextReturnID{0};

SInt16 GenerateReturnID()
{
    // Never 0 and never kAutoGenerateReturnID itself.
    for (;;)
    {
        auto id = static_cast<SInt16>(++sNextReturnID);
        if (id != 0 && id != kAutoGenerateReturnID)
        {
            return id;
        }
    }
}
} // namespace

OSErr AEDescStorage::CreateComposite(DescType type, AEDesc* result)
{
    AEInitializeDesc(result);
    auto* storage = new (std::nothrow) Storage;
    if (!storage)
    {
        return memFullErr;
    }
    result->descriptorType = type;
    result->dataHandle = storage;
    return noErr;
}

// --- Descriptors ------------------------------------------------------------------------

void AEInitializeDesc(AEDesc* desc)
{
    desc->descriptorType = typeNull;
    desc->dataHandle = nullptr;
}

OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result)
{
    if (!result)
    {
        return paramErr;
    }
    AEInitializeDesc(result);
    if (dataSize < 0 || (!dataPtr && dataSize > 0))
    {
        return paramErr;
    }
    if (AEDescStorage::IsComposite(typeCode))
    {
        return errAEWrongDataType;
    }
    return CreatePlain(typeCode, static_cast<const uint8_t*>(dataPtr),
                       static_cast<size_t>(dataSize), result);
}

OSErr AEDisposeDesc(AEDesc* theAEDesc)
{
    if (!theAEDesc)
    {
        return paramErr;
    }
    delete theAEDesc->dataHandle;
    AEInitializeDesc(theAEDesc);
    return noErr;
}

OSErr AEDuplicateDesc(const AEDesc* theAEDesc, AEDesc* result)
{
    if (!theAEDesc || !result)
    {
        return paramErr;
    }
    return CopyDesc(*theAEDesc, result);
}

Size AEGetDescDataSize(const AEDesc* theAEDesc)
{
    const Storage* storage = StorageOf(theAEDesc);
    if (!storage || !IsPlain(*theAEDesc))
    {
        return 0;
    }
    return static_cast<Size>(storage->bytes.size());
}

OSErr AEGetDescData(const AEDesc* theAEDesc, void* dataPtr, Size maximumSize)
{
    if (!theAEDesc || maximumSize < 0 || (!dataPtr && maximumSize > 0))
    {
        return paramErr;
    }
    Size size = AEGetDescDataSize(theAEDesc);
    Size count = size < maximumSize ? size : maximumSize;
    if (count > 0)
    {
        std::memcpy(dataPtr, theAEDesc->dataHandle->bytes.data(), static_cast<size_t>(count));
    }
    return noErr;
}

// --- Lists --------------------------------------------------------------------------------

OSErr AECreateList(const void*, Size, Boolean isRecord, AEDescList* resultList)
{
    if (!resultList)
    {
        return paramErr;
    }
    return AEDescStorage::CreateComposite(isRecord ? typeAERecord : typeAEList, resultList);
}

OSErr AECountItems(const AEDescList* theAEDescList, long* theCount)
{
    OSErr err;
    Items* items = ItemsOf(theAEDescList, eList | eRecord | eEvent, err);
    if (!items)
    {
        return err;
    }
    if (theCount)
    {
        *theCount = static_cast<long>(items->size());
    }
    return noErr;
}

OSErr AEPutDesc(AEDescList* theAEDescList, long index, const AEDesc* theAEDesc)
{
    OSErr err;
    Items* items = ItemsOf(theAEDescList, eList, err);
    if (!items)
    {
        return err;
    }
    if (!theAEDesc)
    {
        return paramErr;
    }
    long count = static_cast<long>(items->size());
    if (index < 0 || index > count + 1)
    {
        return errAEIllegalIndex;
    }
    AEDesc copy;
    err = CopyDesc(*theAEDesc, &copy);
    if (err != noErr)
    {
        return err;
    }
    if (index == 0 || index == count + 1)
    {
        items->emplace_back(typeWildCard, copy);
    }
    else
    {
        AEDesc& slot = (*items)[static_cast<size_t>(index) - 1].second;
        AEDisposeDesc(&slot);
        slot = copy;
    }
    return noErr;
}

OSErr AEPutPtr(AEDescList* theAEDescList, long index, DescType typeCode, const void* dataPtr,
               Size dataSize)
{
    AEDesc item;
    OSErr err = AECreateDesc(typeCode, dataPtr, dataSize, &item);
    if (err == noErr)
    {
        err = AEPutDesc(theAEDescList, index, &item);
    }
    AEDisposeDesc(&item);
    return err;
}

OSErr AEGetNthDesc(const AEDescList* theAEDescList, long index, DescType desiredType,
                   AEKeyword* theAEKeyword, AEDesc* result)
{
    if (!result)
    {
        return paramErr;
    }
    AEInitializeDesc(result);
    OSErr err;
    const auto* item = GetNth(theAEDescList, index, err);
    if (!item)
    {
        return err;
    }
    err = CoerceInto(item->second, desiredType, result);
    if (err == noErr && theAEKeyword)
    {
        *theAEKeyword = item->first;
    }
    return err;
}

OSErr AEGetNthPtr(const AEDescList* theAEDescList, long index, DescType desiredType,
                  AEKeyword* theAEKeyword, DescType* typeCode, void* dataPtr, Size maximumSize,
                  Size* actualSize)
{
    OSErr err;
    const auto* item = GetNth(theAEDescList, index, err);
    if (!item)
    {
        return err;
    }
    err = ReadPtr(item->second, desiredType, typeCode, dataPtr, maximumSize, actualSize);
    if (err == noErr && theAEKeyword)
    {
        *theAEKeyword = item->first;
    }
    return err;
}

// --- Records ------------------------------------------------------------------------------

OSErr AEPutKeyDesc(AERecord* theAERecord, AEKeyword theAEKeyword, const AEDesc* theAEDesc)
{
    return PutKey(theAERecord, theAEKeyword, theAEDesc);
}

OSErr AEPutKeyPtr(AERecord* theAERecord, AEKeyword theAEKeyword, DescType typeCode,
                  const void* dataPtr, Size dataSize)
{
    AEDesc value;
    OSErr err = AECreateDesc(typeCode, dataPtr, dataSize, &value);
    if (err == noErr)
    {
        err = PutKey(theAERecord, theAEKeyword, &value);
    }
    AEDisposeDesc(&value);
    return err;
}

OSErr AEGetKeyDesc(const AERecord* theAERecord, AEKeyword theAEKeyword, DescType desiredType,
                   AEDesc* result)
{
    if (!result)
    {
        return paramErr;
    }
    AEInitializeDesc(result);
    OSErr err;
    const AEDesc* value = GetKey(theAERecord, theAEKeyword, err);
    return value ? CoerceInto(*value, desiredType, result) : err;
}

OSErr AEGetKeyPtr(const AERecord* theAERecord, AEKeyword theAEKeyword, DescType desiredType,
                  DescType* typeCode, void* dataPtr, Size maximumSize, Size* actualSize)
{
    OSErr err;
    const AEDesc* value = GetKey(theAERecord, theAEKeyword, err);
    return value ? ReadPtr(*value, desiredType, typeCode, dataPtr, maximumSize, actualSize) : err;
}

OSErr AEDeleteKeyDesc(AERecord* theAERecord, AEKeyword theAEKeyword)
{
    return DeleteKey(theAERecord, theAEKeyword);
}

// --- Events -------------------------------------------------------------------------------

OSErr AECreateAppleEvent(AEEventClass theAEEventClass, AEEventID theAEEventID,
                         const AEAddressDesc* target, AEReturnID returnID,
                         AETransactionID transactionID, AppleEvent* result)
{
    if (!result)
    {
        return paramErr;
    }
    OSErr err = AEDescStorage::CreateComposite(typeAppleEvent, result);
    if (err != noErr)
    {
        return err;
    }
    Storage& s = *result->dataHandle;
    s.eventClass = theAEEventClass;
    s.eventID = theAEEventID;
    s.returnID = returnID == kAutoGenerateReturnID ? GenerateReturnID() : returnID;
    s.transactionID = transactionID;
    if (target)
    {
        err = CopyDesc(*target, &s.address);
        if (err != noErr)
        {
            AEDisposeDesc(result);
        }
    }
    return err;
}

OSErr AEPutParamPtr(AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType typeCode,
                    const void* dataPtr, Size dataSize)
{
    return AEPutKeyPtr(theAppleEvent, theAEKeyword, typeCode, dataPtr, dataSize);
}

OSErr AEGetParamPtr(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType desiredType,
                    DescType* actualType, void* dataPtr, Size maximumSize, Size* actualSize)
{
    return AEGetKeyPtr(theAppleEvent, theAEKeyword, desiredType, actualType, dataPtr, maximumSize,
                       actualSize);
}

OSErr AEGetParamDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType desiredType,
                     AEDesc* result)
{
    return AEGetKeyDesc(theAppleEvent, theAEKeyword, desiredType, result);
}

OSErr AEGetAttributeDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                         DescType desiredType, AEDesc* result)
{
    if (!result)
    {
        return paramErr;
    }
    AEDesc attribute;
    OSErr err = MakeAttribute(theAppleEvent, theAEKeyword, &attribute);
    if (err != noErr)
    {
        AEInitializeDesc(result);
        return err;
    }
    err = CoerceInto(attribute, desiredType, result);
    AEDisposeDesc(&attribute);
    return err;
}

OSErr AEGetAttributePtr(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                        DescType desiredType, DescType* typeCode, void* dataPtr, Size maximumSize,
                        Size* actualSize)
{
    AEDesc attribute;
    OSErr err = MakeAttribute(theAppleEvent, theAEKeyword, &attribute);
    if (err != noErr)
    {
        return err;
    }
    err = ReadPtr(attribute, desiredType, typeCode, dataPtr, maximumSize, actualSize);
    AEDisposeDesc(&attribute);
    return err;
}
