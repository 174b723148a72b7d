// TransitRecord: the fixed-layout request of older drivers and clients, sent with message id
// 0, and TransitRecordReturn, the record that starts its reply.
//
// Request body: the 136-byte header below, then exactly sizeOfData bytes of data.
//
//   offset  size  field
//   0       120   keys: ten key records of 12 bytes, the first key of the chain first
//   120     4     sizeOfData: bytes of data that follow the header; below 0xFFFF
//   124     4     sourceOfRequest (ESourceOfRequest); the coordinator sends 0
//   128     4     command (ECommand)
//   132     4     reserved: not written by the sender, not read by the receiver
//
// Key record (12 bytes):
//
//   offset  size  field
//   0       4     mode: the key's mAddressingMode
//   4       2     identifier: the key's EEventIdentifier (16 bits)
//   6       2     padding
//   8       4     reference: the low 32 bits of the key's mReference
//
// Unused key records are all zero. Only the first ten keys of a chain travel, and a
// string-mode key loses its string: only the reference field travels.
//
// Reply body: the 8-byte return record, then returnDataSize bytes of data.
//
//   offset  size  field
//   0       4     wStatus: a KELSTATUS in the low 16 bits
//   4       4     returnDataSize
//
// Every field is unsigned and in the byte order of the receiving side: the coordinator
// writes a request and reads its return record in the driver's order (through the driver's
// flipper), and takes a record it receives to be in its own order. The data is never
// byte-reversed: its order belongs to whoever packed it.
//
// In memory both sides keep the return record right behind the 136 header bytes
// (TransitRecord::returnRec); it is not part of the request.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr unsigned int kTransitRecordKeyCount = 10;
constexpr std::size_t kTransitRecordHeaderSize = 136;
constexpr std::size_t kTransitRecordReturnSize = 8;
// Old clients take answers below this size only; a record whose answer would reach it is
// refused with a return record alone (status KELSTATUS_MEMORY_OVERRUN, no data).
constexpr std::uint32_t kMaxLegacyAnswerBytes = 1000;

struct TransitKeyRecord
{
    std::uint32_t mode;
    std::uint16_t identifier;
    std::uint16_t padding;
    std::uint32_t reference;
};

struct TransitRecordReturn
{
    std::uint32_t wStatus;
    std::uint32_t returnDataSize;
};

struct TransitRecord
{
    TransitKeyRecord keys[kTransitRecordKeyCount];
    std::uint32_t sizeOfData;
    std::uint32_t sourceOfRequest;
    std::uint32_t command;
    std::uint32_t reserved;
    // Not sent: where the sender keeps the return record of the answer.
    TransitRecordReturn returnRec;
};

static_assert(sizeof(TransitKeyRecord) == 12);
static_assert(offsetof(TransitKeyRecord, identifier) == 4);
static_assert(offsetof(TransitKeyRecord, reference) == 8);
static_assert(sizeof(TransitRecordReturn) == kTransitRecordReturnSize);
static_assert(offsetof(TransitRecordReturn, returnDataSize) == 4);
static_assert(offsetof(TransitRecord, sizeOfData) == 120);
static_assert(offsetof(TransitRecord, sourceOfRequest) == 124);
static_assert(offsetof(TransitRecord, command) == 128);
static_assert(offsetof(TransitRecord, reserved) == 132);
static_assert(offsetof(TransitRecord, returnRec) == kTransitRecordHeaderSize);
