// The coder of the settings archive: identifier, length and content octets of each node.
//
// The archive borrows the identifier and length octets of ASN.1 BER, but its integers,
// doubles and tags are its own. Both ends of a message port must produce and accept exactly
// these bytes.
//
// Identifier octet: class bits (0xC0) | constructed bit (0x20) | type (0x1F). Written with
// the constructed bit clear for universal types 0-7, 9, 10, 12 and 24 and for
// (application, 1), set for every other pair; the reader ignores the bit and takes no high
// tag numbers.
//
// Length octets: 0-127 in one octet; above that 0x80 | n followed by the length in n octets,
// most significant first (n the smallest count that holds it, 1 to 8); the single octet 0x80
// is the indefinite length, closed by end-of-contents octets 00 00.
//
// | Node              | (class, type)    | Octet | Length         | Content                   |
// |-------------------|------------------|-------|----------------|---------------------------|
// | end-of-contents   | universal, 0     | 00    | 00             | none                      |
// | CSettingsBool     | universal, 1     | 01    | 1              | FF true, 00 false         |
// | CSettingsInteger  | universal, 2     | 02    | 1-8, minimal   | 64-bit two's-complement   |
// |                   |                  |       |                | pattern as unsigned, MSB  |
// |                   |                  |       |                | first, no sign octet      |
// | CSettingsBytes    | universal, 4     | 04    | byte count     | the bytes                 |
// | CSettingsNULL     | universal, 5     | 05    | 0              | none (never read back)    |
// | CSettingsString   | universal, 12    | 0C    | byte count     | the bytes, no terminator  |
// | CSettingsMap      | application, 0   | 60    | 80 indefinite  | key string node, value    |
// |                   |                  |       |                | node, ... in key order;   |
// |                   |                  |       |                | then 00 00                |
// | CSettingsDouble   | application, 1   | 41    | 8              | IEEE 754 bits, MSB first  |
// | CSettingsArray    | application, 2   | 62    | 80 indefinite  | element nodes; 00 00      |
// | CSettingsKEString | application, 3   | 63    | byte count     | the bytes                 |
//
// An archive is the integer node 02 04 4B 65 6C 6D (the magic "Kelm") followed by the root
// object's node. -1 is 02 08 FF FF FF FF FF FF FF FF, 128 is 02 01 80 (not BER's 02 02 00 80).
//
// Decoders read at `pos` and advance it. Every read is bounded by the archive's size:
// running past the end throws std::out_of_range "ASN1 archive ended unexpectedly".
// Inconsistent lengths are reported as failed assertions and reading goes on as described
// at each decoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ASN1Coding
{
enum EClass : uint8_t
{
    eClassUniversal = 0x00,
    eClassApplication = 0x40,
    eClassContextSpecific = 0x80,
    eClassPrivate = 0xC0,
};

// The universal tag numbers of ASN.1; the application types of the archive reuse 0-3.
enum EDataType : uint8_t
{
    eTypeEndOfContents = 0,
    eTypeBoolean = 1,
    eTypeInteger = 2,
    eTypeBitString = 3,
    eTypeOctetString = 4,
    eTypeNull = 5,
    eTypeObjectIdentifier = 6,
    eTypeObjectDescriptor = 7,
    eTypeExternal = 8,
    eTypeReal = 9,
    eTypeEnumerated = 10,
    eTypeEmbeddedPDV = 11,
    eTypeUTF8String = 12,
    eTypeRelativeOID = 13,
    eTypeSequence = 16,
    eTypeSet = 17,
    eTypeNumericString = 18,
    eTypePrintableString = 19,
    eTypeT61String = 20,
    eTypeVideotexString = 21,
    eTypeIA5String = 22,
    eTypeUTCTime = 23,
    eTypeGeneralizedTime = 24,
    eTypeGraphicString = 25,
    eTypeVisibleString = 26,
    eTypeGeneralString = 27,
    eTypeUniversalString = 28,
    eTypeCharacterString = 29,
    eTypeBMPString = 30,
    eTypeMAX_VALUE = 30,
};

using Identifier = std::pair<EClass, EDataType>;

// The pairs of the settings nodes.
inline constexpr Identifier kEndOfContentsID{eClassUniversal, eTypeEndOfContents};
inline constexpr Identifier kBoolID{eClassUniversal, eTypeBoolean};
inline constexpr Identifier kIntegerID{eClassUniversal, eTypeInteger};
inline constexpr Identifier kBytesID{eClassUniversal, eTypeOctetString};
inline constexpr Identifier kNULLID{eClassUniversal, eTypeNull};
inline constexpr Identifier kStringID{eClassUniversal, eTypeUTF8String};
inline constexpr Identifier kMapID{eClassApplication, EDataType(0)};
inline constexpr Identifier kDoubleID{eClassApplication, EDataType(1)};
inline constexpr Identifier kArrayID{eClassApplication, EDataType(2)};
inline constexpr Identifier kKEStringID{eClassApplication, EDataType(3)};

// The length that the single octet 0x80 stands for.
inline constexpr size_t IndefiniteLength = ~size_t(0);
static_assert(sizeof(size_t) == 8, "archive lengths are 64-bit");

// The magic integer that opens every archive ("Kelm").
inline constexpr uint64_t kArchiveMagic = 0x4B656C6D;

uint8_t MakeIdentifier(const Identifier& identifier);
std::vector<uint8_t> MakeLength(size_t length);
uint8_t MakeIndefiniteLength();

void EncodeBoolToArchive(bool value, std::vector<uint8_t>& archive_IO);
void EncodeIntegerToArchive(uint64_t value, std::vector<uint8_t>& archive_IO);
void EncodeDoubleToArchive(double value, std::vector<uint8_t>& archive_IO);
void EncodeBytesToArchive(const std::vector<uint8_t>& value, std::vector<uint8_t>& archive_IO);
// keString false: universal 12; true: application 3.
void EncodeStringToArchive(const std::string& value, std::vector<uint8_t>& archive_IO,
                           bool keString);
void EncodeNULLToArchive(std::vector<uint8_t>& archive_IO);
void EncodeEndOfContentsIdentifierToArchive(std::vector<uint8_t>& archive_IO);

// Throws std::out_of_range "ASN1 archive ended unexpectedly".
[[noreturn]] void ThrowEndOfArchive();

// With `advance` false the position is left where it was (a peek). Inline: every node is
// identified once by the dispatcher and once more by its own reader.
inline Identifier DecodeIdentifierFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO,
                                              bool advance)
{
    if (pos_IO >= archive_I.size())
    {
        ThrowEndOfArchive();
    }
    const uint8_t octet = archive_I[pos_IO];
    if (advance)
    {
        ++pos_IO;
    }
    return {static_cast<EClass>(octet & 0xC0), static_cast<EDataType>(octet & 0x1F)};
}

// The identifier as one number (class and type bits do not overlap), for a switch.
constexpr unsigned IdentifierCode(const Identifier& identifier)
{
    return static_cast<unsigned>(identifier.first) | static_cast<unsigned>(identifier.second);
}
// IndefiniteLength for 0x80. A long form of more than 8 octets keeps the low 64 bits.
size_t DecodeLengthFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);

// Each reads the length and content that follow an identifier already consumed.
// Bool: one content octet whatever the length said; non-zero is true.
bool DecodeBoolFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
// More than 8 octets are all read; the low 64 bits are kept.
uint64_t DecodeIntegerFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
// Eight octets whatever the length said.
double DecodeDoubleFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
std::vector<uint8_t> DecodeBytesFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
std::string DecodeStringFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
// The same content as a view of the archive's own octets (valid while the archive is), for
// readers that build the string where it is kept.
std::string_view DecodeStringViewFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
// Reads the length only; it should be 0.
void DecodeNULLFromArchive(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
// True (advancing by 2) when 00 00 follows; false, without advancing, when the next octet is
// not 0 or when 00 is followed by anything but 00.
bool DecodeEndOfContentsIdentifierFromArchive(const std::vector<uint8_t>& archive_I,
                                              size_t& pos_IO);
} // namespace ASN1Coding
