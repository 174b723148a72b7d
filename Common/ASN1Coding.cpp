#include "Common/ASN1Coding.h"

#include "Common/KelAssert.h"

#include <bit>
#include <stdexcept>

namespace ASN1Coding
{
namespace
{
// Universal types written without the constructed bit: 0-7, 9, 10, 12 and 24 (bit n, type n).
constexpr uint32_t kPrimitiveUniversalTypes = 0x010016FF;
constexpr uint8_t kConstructedBit = 0x20;

// Throws unless `count` octets remain at `pos`.
void RequireOctets(const std::vector<uint8_t>& archive_I, size_t pos, size_t count)
{
    if (pos > archive_I.size() || archive_I.size() - pos < count)
    {
        ThrowEndOfArchive();
    }
}

uint8_t ReadOctet(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    RequireOctets(archive_I, pos_IO, 1);
    return archive_I[pos_IO++];
}

size_t MinByteLengthOfInt(uint64_t value)
{
    for (size_t bytes = 8; bytes > 1; --bytes)
    {
        if ((value >> ((bytes - 1) * 8)) != 0)
        {
            return bytes;
        }
    }
    return 1;
}

// The low `byteLength` bytes of `value`, most significant first.
void WriteIntegerOfLengthToArchive(uint64_t value, size_t byteLength,
                                   std::vector<uint8_t>& archive_IO)
{
    for (size_t i = byteLength; i > 0; --i)
    {
        archive_IO.push_back(static_cast<uint8_t>(value >> ((i - 1) * 8)));
    }
}

// Reads `byteLength_I` octets, most significant first; beyond 8 the high octets shift out.
uint64_t ReadIntegerOfLength(const std::vector<uint8_t>& archive_I, size_t& pos_IO,
                             size_t byteLength_I)
{
    KelAssert(byteLength_I <= 8);
    RequireOctets(archive_I, pos_IO, byteLength_I);
    uint64_t value = 0;
    for (size_t i = 0; i < byteLength_I; ++i)
    {
        value = (value << 8) | archive_I[pos_IO++];
    }
    return value;
}

// A counted content: the length must not exceed what remains.
size_t DecodeContentLength(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    size_t length = DecodeLengthFromArchive(archive_I, pos_IO);
    RequireOctets(archive_I, pos_IO, length);
    return length;
}

// The length octets of MakeLength, appended in place (no vector per node).
void AppendLength(size_t length, std::vector<uint8_t>& archive_IO)
{
    if (length == IndefiniteLength)
    {
        archive_IO.push_back(MakeIndefiniteLength());
    }
    else if (length <= 127)
    {
        archive_IO.push_back(static_cast<uint8_t>(length));
    }
    else
    {
        const size_t byteCount = MinByteLengthOfInt(length);
        archive_IO.push_back(static_cast<uint8_t>(0x80 | byteCount));
        WriteIntegerOfLengthToArchive(length, byteCount, archive_IO);
    }
}

void EncodeIdentifierAndLength(const Identifier& identifier, size_t length,
                               std::vector<uint8_t>& archive_IO)
{
    archive_IO.push_back(MakeIdentifier(identifier));
    AppendLength(length, archive_IO);
}
} // namespace

void ThrowEndOfArchive()
{
    throw std::out_of_range("ASN1 archive ended unexpectedly");
}

uint8_t MakeIdentifier(const Identifier& identifier)
{
    const auto [eClass, eType] = identifier;
    if (!(eType <= eTypeMAX_VALUE))
    {
        KelAssert(eType <= eTypeMAX_VALUE);
        return 0;
    }
    bool constructed = true;
    if (eClass == eClassUniversal && eType <= 24)
    {
        constructed = ((kPrimitiveUniversalTypes >> eType) & 1) == 0;
    }
    else if (eClass == eClassApplication && eType == 1)
    {
        constructed = false;
    }
    return static_cast<uint8_t>(static_cast<unsigned>(eClass) | static_cast<unsigned>(eType) |
                                (constructed ? kConstructedBit : 0u));
}

std::vector<uint8_t> MakeLength(size_t length)
{
    std::vector<uint8_t> octets;
    AppendLength(length, octets);
    return octets;
}

uint8_t MakeIndefiniteLength()
{
    return 0x80;
}

void EncodeBoolToArchive(bool value, std::vector<uint8_t>& archive_IO)
{
    EncodeIdentifierAndLength(kBoolID, 1, archive_IO);
    archive_IO.push_back(value ? 0xFF : 0x00);
}

void EncodeIntegerToArchive(uint64_t value, std::vector<uint8_t>& archive_IO)
{
    size_t byteLength = MinByteLengthOfInt(value);
    EncodeIdentifierAndLength(kIntegerID, byteLength, archive_IO);
    WriteIntegerOfLengthToArchive(value, byteLength, archive_IO);
}

void EncodeDoubleToArchive(double value, std::vector<uint8_t>& archive_IO)
{
    EncodeIdentifierAndLength(kDoubleID, sizeof(double), archive_IO);
    WriteIntegerOfLengthToArchive(std::bit_cast<uint64_t>(value), sizeof(double), archive_IO);
}

void EncodeBytesToArchive(const std::vector<uint8_t>& value, std::vector<uint8_t>& archive_IO)
{
    EncodeIdentifierAndLength(kBytesID, value.size(), archive_IO);
    archive_IO.insert(archive_IO.end(), value.begin(), value.end());
}

void EncodeStringToArchive(const std::string& value, std::vector<uint8_t>& archive_IO,
                           bool keString)
{
    EncodeIdentifierAndLength(keString ? kKEStringID : kStringID, value.size(), archive_IO);
    archive_IO.insert(archive_IO.end(), value.begin(), value.end());
}

void EncodeNULLToArchive(std::vector<uint8_t>& archive_IO)
{
    EncodeIdentifierAndLength(kNULLID, 0, archive_IO);
}

void EncodeEndOfContentsIdentifierToArchive(std::vector<uint8_t>& archive_IO)
{
    archive_IO.push_back(0x00);
    archive_IO.push_back(0x00);
}

size_t DecodeLengthFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    uint8_t octet = ReadOctet(archive_I, pos_IO);
    if (octet == 0x80)
    {
        return IndefiniteLength;
    }
    if ((octet & 0x80) == 0)
    {
        return octet;
    }
    // A long form may claim up to 127 octets; all are read, the low 64 bits kept.
    size_t byteCount = octet & 0x7F;
    RequireOctets(archive_I, pos_IO, byteCount);
    uint64_t length = 0;
    for (size_t i = 0; i < byteCount; ++i)
    {
        length = (length << 8) | archive_I[pos_IO++];
    }
    return length;
}

bool DecodeBoolFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    RequireOctets(archive_I, pos_IO, 2);
    size_t length = DecodeLengthFromArchive(archive_I, pos_IO);
    KelAssert(length == 1);
    return ReadOctet(archive_I, pos_IO) != 0;
}

uint64_t DecodeIntegerFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    size_t byteLength = DecodeLengthFromArchive(archive_I, pos_IO);
    return ReadIntegerOfLength(archive_I, pos_IO, byteLength);
}

double DecodeDoubleFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    size_t length = DecodeLengthFromArchive(archive_I, pos_IO);
    KelAssert(length == sizeof(double));
    return std::bit_cast<double>(ReadIntegerOfLength(archive_I, pos_IO, sizeof(double)));
}

std::vector<uint8_t> DecodeBytesFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    size_t length = DecodeContentLength(archive_I, pos_IO);
    auto first = archive_I.begin() + static_cast<std::ptrdiff_t>(pos_IO);
    pos_IO += length;
    return std::vector<uint8_t>(first, first + static_cast<std::ptrdiff_t>(length));
}

std::string DecodeStringFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    return std::string(DecodeStringViewFromArchive(archive_I, pos_IO));
}

std::string_view DecodeStringViewFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    size_t length = DecodeContentLength(archive_I, pos_IO);
    std::string_view value(reinterpret_cast<const char*>(archive_I.data() + pos_IO), length);
    pos_IO += length;
    return value;
}

void DecodeNULLFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    size_t length = DecodeLengthFromArchive(archive_I, pos_IO);
    KelAssert(!length);
}

bool DecodeEndOfContentsIdentifierFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    RequireOctets(archive_I, pos_IO, 1);
    if (archive_I[pos_IO] != 0)
    {
        return false;
    }
    RequireOctets(archive_I, pos_IO, 2);
    if (archive_I[pos_IO + 1] != 0)
    {
        return false;
    }
    pos_IO += 2;
    return true;
}
} // namespace ASN1Coding
