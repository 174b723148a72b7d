// Apple Event descriptors: plain data, lists, records and events, and their flattened form.
//
// A descriptor owns its data: AECreate... and AEGet...Desc give the caller a descriptor to
// dispose of with AEDisposeDesc; AEPut... copy what they are given. An AEDesc is a plain
// struct, so assigning one hands the data over without copying (AEDuplicateDesc copies).
// Data bytes are kept as given, in the byte order of the process that made them.
//
// Coercion (the desired type of AEGet...) goes only as far as this program needs: typeWildCard
// and the stored type itself always succeed; the integer types ('shor', 'long', 'magn',
// 'comp') convert among themselves when the value fits; the four-character-code types
// ('type', 'enum', 'keyw', 'prop') convert among themselves. Anything else gives
// errAECoercionFail.
//
// Flattened form (AEFlattenDesc / AEUnflattenDescFromBytes). Header fields are big-endian;
// the data bytes of a plain descriptor are copied as they are.
//
//   offset  size  field
//   0       4     magic 'AEfl'
//   4       ...   one node
//
//   node:
//   0       4     descriptor type
//   4       4     N, the number of body bytes that follow
//   8       N     body, by descriptor type:
//                 'null'  nothing (N = 0)
//                 'list'  count (4), then count nodes
//                 'reco'  count (4), then count times: keyword (4), node
//                 'aevt'  event class (4), event ID (4), return ID (4, signed), transaction
//                         ID (4, signed), address node, parameter count (4), then that many
//                         times: keyword (4), node
//                 others  the data bytes
//
// Every nested node lies wholly inside its parent's body and the items fill the body
// exactly; nesting deeper than 64 levels is refused. Reading is bounded by the buffer size
// given, so bytes from another process cannot make it read outside them.
#pragma once

#include <CarbonCore/MacErrors.h>
#include <MacTypes.h>

#ifdef __cplusplus
extern "C"
{
#endif

    typedef FourCharCode DescType;
    typedef FourCharCode AEKeyword;
    typedef FourCharCode AEEventClass;
    typedef FourCharCode AEEventID;
    typedef SInt16 AEReturnID;
    typedef SInt32 AETransactionID;
    typedef void* SRefCon;

    enum
    {
        typeBoolean = 'bool',
        typeChar = 'TEXT',
        typeSInt16 = 'shor',
        typeSInt32 = 'long',
        typeUInt32 = 'magn',
        typeSInt64 = 'comp',
        typeLongInteger = typeSInt32,
        typeShortInteger = typeSInt16,
        typeUTF8Text = 'utf8',
        typeType = 'type',
        typeEnumerated = 'enum',
        typeKeyword = 'keyw',
        typeProperty = 'prop',
        typeAEList = 'list',
        typeAERecord = 'reco',
        typeAppleEvent = 'aevt',
        typeWildCard = '****',
        typeNull = 'null',
        typeProcessSerialNumber = 'psn ',
        typeKernelProcessID = 'kpid',
        typeApplicationBundleID = 'bund'
    };

    enum
    {
        keyDirectObject = '----',
        keyErrorNumber = 'errn',
        keyErrorString = 'errs',
        keyEventClassAttr = 'evcl',
        keyEventIDAttr = 'evid',
        keyAddressAttr = 'addr',
        keyReturnIDAttr = 'rtid',
        keyTransactionIDAttr = 'tran'
    };

    enum
    {
        kAutoGenerateReturnID = -1,
        kAnyTransactionID = 0
    };

    typedef struct OpaqueAEDataStorageType* AEDataStorage;

    typedef struct AEDesc
    {
        DescType descriptorType;
        AEDataStorage dataHandle;
    } AEDesc;
    typedef AEDesc* AEDescPtr;
    typedef AEDesc AEDescList;
    typedef AEDesc AERecord;
    typedef AEDesc AEAddressDesc;
    typedef AEDesc AppleEvent;
    typedef AppleEvent* AppleEventPtr;

    typedef struct AEKeyDesc
    {
        AEKeyword descKey;
        AEDesc descContent;
    } AEKeyDesc;

    // Descriptors.
    void AEInitializeDesc(AEDesc* desc);
    OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result);
    OSErr AEDisposeDesc(AEDesc* theAEDesc);
    OSErr AEDuplicateDesc(const AEDesc* theAEDesc, AEDesc* result);
    // The data of a plain descriptor; lists, records and events have none here (size 0).
    Size AEGetDescDataSize(const AEDesc* theAEDesc);
    OSErr AEGetDescData(const AEDesc* theAEDesc, void* dataPtr, Size maximumSize);

    // Lists and records. Indexes start at 1; putting at index 0 or count + 1 appends. An event
    // counts and indexes its parameters as a record does.
    OSErr AECreateList(const void* factoringPtr, Size factoredSize, Boolean isRecord,
                       AEDescList* resultList);
    OSErr AECountItems(const AEDescList* theAEDescList, long* theCount);
    OSErr AEPutPtr(AEDescList* theAEDescList, long index, DescType typeCode, const void* dataPtr,
                   Size dataSize);
    OSErr AEPutDesc(AEDescList* theAEDescList, long index, const AEDesc* theAEDesc);
    OSErr AEGetNthPtr(const AEDescList* theAEDescList, long index, DescType desiredType,
                      AEKeyword* theAEKeyword, DescType* typeCode, void* dataPtr, Size maximumSize,
                      Size* actualSize);
    OSErr AEGetNthDesc(const AEDescList* theAEDescList, long index, DescType desiredType,
                       AEKeyword* theAEKeyword, AEDesc* result);

    // Records and event parameters: putting an existing keyword replaces it in its place.
    OSErr AEPutKeyPtr(AERecord* theAERecord, AEKeyword theAEKeyword, DescType typeCode,
                      const void* dataPtr, Size dataSize);
    OSErr AEPutKeyDesc(AERecord* theAERecord, AEKeyword theAEKeyword, const AEDesc* theAEDesc);
    OSErr AEGetKeyPtr(const AERecord* theAERecord, AEKeyword theAEKeyword, DescType desiredType,
                      DescType* typeCode, void* dataPtr, Size maximumSize, Size* actualSize);
    OSErr AEGetKeyDesc(const AERecord* theAERecord, AEKeyword theAEKeyword, DescType desiredType,
                       AEDesc* result);
    OSErr AEDeleteKeyDesc(AERecord* theAERecord, AEKeyword theAEKeyword);

    // Events. `target` may be NULL (no address).
    OSErr AECreateAppleEvent(AEEventClass theAEEventClass, AEEventID theAEEventID,
                             const AEAddressDesc* target, AEReturnID returnID,
                             AETransactionID transactionID, AppleEvent* result);
    OSErr AEPutParamPtr(AppleEvent* theAppleEvent, AEKeyword theAEKeyword, DescType typeCode,
                        const void* dataPtr, Size dataSize);
    OSErr AEGetParamPtr(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                        DescType desiredType, DescType* actualType, void* dataPtr, Size maximumSize,
                        Size* actualSize);
    OSErr AEGetParamDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                         DescType desiredType, AEDesc* result);
    // The attributes keyEventClassAttr, keyEventIDAttr, keyReturnIDAttr, keyTransactionIDAttr
    // and keyAddressAttr.
    OSErr AEGetAttributePtr(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                            DescType desiredType, DescType* typeCode, void* dataPtr,
                            Size maximumSize, Size* actualSize);
    OSErr AEGetAttributeDesc(const AppleEvent* theAppleEvent, AEKeyword theAEKeyword,
                             DescType desiredType, AEDesc* result);

    // The flattened form (layout above).
    Size AESizeOfFlattenedDesc(const AEDesc* theAEDesc);
    // errAEBufferTooSmall when `bufferSize` is below the flattened size; `actualSize` gets that
    // size in any case.
    OSStatus AEFlattenDesc(const AEDesc* theAEDesc, Ptr buffer, Size bufferSize, Size* actualSize);
    // Reads exactly `bufferLen` bytes; errAECorruptData for anything that is not one whole
    // flattened descriptor. Use this one for bytes from another process.
    OSStatus AEUnflattenDescFromBytes(const void* buffer, size_t bufferLen, AEDesc* result);

#ifdef __cplusplus
}
#endif
