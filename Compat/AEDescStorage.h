// What an AEDesc's data handle points to. Private to the Apple Event code of this folder.
//
// A plain descriptor keeps its bytes; a list keeps its items (keyword '****'), a record and
// an event their keyword-descriptor pairs in insertion order; an event keeps its attributes
// besides. Item descriptors are owned and disposed of with the storage.
#pragma once

#include <AE/AEDataModel.h>

#include <cstdint>
#include <utility>
#include <vector>

struct OpaqueAEDataStorageType
{
    OpaqueAEDataStorageType() = default;
    OpaqueAEDataStorageType(const OpaqueAEDataStorageType&) = delete;
    OpaqueAEDataStorageType& operator=(const OpaqueAEDataStorageType&) = delete;
    ~OpaqueAEDataStorageType();

    std::vector<uint8_t> bytes;
    std::vector<std::pair<AEKeyword, AEDesc>> items;

    AEEventClass eventClass = 0;
    AEEventID eventID = 0;
    SInt32 returnID = 0;
    SInt32 transactionID = 0;
    AEDesc address{typeNull, nullptr};
};

namespace AEDescStorage
{
inline bool IsComposite(DescType type)
{
    return type == typeAEList || type == typeAERecord || type == typeAppleEvent;
}

// A descriptor of a composite type with empty storage; memFullErr only if allocation fails.
OSErr CreateComposite(DescType type, AEDesc* result);
} // namespace AEDescStorage
