#include "Tools/tabletctl/RequestSyntax.h"

#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsObject.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/ToolFiles.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

namespace RequestSyntax
{
namespace
{
struct SName
{
    const char* mName;
    long long mValue;
};

#define KEL_SYNTAX_NAME(name, value) {#name, value},
const SName kIdentifiers[] = {KEL_EVENT_IDENTIFIER_LIST(KEL_SYNTAX_NAME)};
const SName kCommands[] = {KEL_COMMAND_LIST(KEL_SYNTAX_NAME)};
const SName kModes[] = {KEL_ADDRESSING_MODE_LIST(KEL_SYNTAX_NAME)};
#undef KEL_SYNTAX_NAME

std::string Lower(std::string text_I)
{
    std::transform(text_I.begin(), text_I.end(), text_I.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text_I;
}

bool StartsWith(const std::string& text_I, const std::string& prefix_I)
{
    return text_I.compare(0, prefix_I.size(), prefix_I) == 0;
}

bool LooksNumeric(const std::string& text_I)
{
    return !text_I.empty() && (std::isdigit(static_cast<unsigned char>(text_I[0])) != 0);
}

// The value whose name, or name without one of the prefixes, is text_I (ignoring case).
// A short form that several names share is refused with the candidates.
long long FindName(const std::string& text_I, const SName* begin_I, const SName* end_I,
                   std::initializer_list<const char*> prefixes_I, const char* what_I)
{
    const std::string wanted = Lower(text_I);
    std::vector<const SName*> matches;
    for (const SName* entry = begin_I; entry != end_I; ++entry)
    {
        const std::string name = Lower(entry->mName);
        bool match = name == wanted || name == "e" + wanted;
        for (const char* prefix : prefixes_I)
        {
            const std::string lowerPrefix = Lower(prefix);
            match = match ||
                    (StartsWith(name, lowerPrefix) && name.substr(lowerPrefix.size()) == wanted);
        }
        if (match)
        {
            // Two names of one value (the identifiers 23 and 24) are the same answer.
            const bool seen =
                std::any_of(matches.begin(), matches.end(),
                            [&](const SName* m) { return m->mValue == entry->mValue; });
            if (!seen)
            {
                matches.push_back(entry);
            }
        }
    }
    if (matches.size() == 1)
    {
        return matches.front()->mValue;
    }
    if (matches.empty())
    {
        throw CCommandError("unknown " + std::string(what_I) + " '" + text_I + "'");
    }
    std::string candidates;
    for (const SName* match : matches)
    {
        candidates += (candidates.empty() ? "" : ", ") + std::string(match->mName);
    }
    throw CCommandError("ambiguous " + std::string(what_I) + " '" + text_I + "': " + candidates);
}

std::string NameOf(long long value_I, const SName* begin_I, const SName* end_I)
{
    // The later of two names of one value, as the trace output names it.
    std::string name;
    for (const SName* entry = begin_I; entry != end_I; ++entry)
    {
        if (entry->mValue == value_I)
        {
            name = entry->mName;
        }
    }
    return name.empty() ? std::to_string(value_I) : name;
}

enum class ENumber
{
    eGood,
    eNotANumber,
    eOutOfRange
};

// Decimal, or hexadecimal with 0x; no sign.
ENumber ReadNumber(const std::string& text_I, std::uint64_t max_I, std::uint64_t& value_O)
{
    const bool hex = StartsWith(Lower(text_I), "0x");
    const std::string digits = hex ? text_I.substr(2) : text_I;
    const auto isDigit = [hex](unsigned char c)
    { return hex ? std::isxdigit(c) != 0 : std::isdigit(c) != 0; };
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), isDigit))
    {
        return ENumber::eNotANumber;
    }
    std::uint64_t value = 0;
    const std::uint64_t base = hex ? 16 : 10;
    for (unsigned char c : digits)
    {
        const std::uint64_t digit =
            std::isdigit(c) != 0 ? c - '0' : static_cast<std::uint64_t>(std::tolower(c) - 'a' + 10);
        if (digit > max_I || value > (max_I - digit) / base)
        {
            return ENumber::eOutOfRange;
        }
        value = value * base + digit;
    }
    value_O = value;
    return ENumber::eGood;
}

[[noreturn]] void NumberError(ENumber result_I, const std::string& text_I)
{
    throw CCommandError(
        (result_I == ENumber::eOutOfRange ? "number out of range: '" : "not a number: '") + text_I +
        "'");
}

long long ParseSigned(const std::string& text_I, long long min_I, long long max_I)
{
    const bool negative = !text_I.empty() && text_I[0] == '-';
    // The magnitude of min_I, written so that it does not overflow.
    const std::uint64_t limit =
        negative ? static_cast<std::uint64_t>(-(min_I + 1)) + 1 : static_cast<std::uint64_t>(max_I);
    std::uint64_t magnitude = 0;
    const ENumber result = ReadNumber(negative ? text_I.substr(1) : text_I, limit, magnitude);
    if (result != ENumber::eGood)
    {
        NumberError(result, text_I);
    }
    if (!negative)
    {
        return static_cast<long long>(magnitude);
    }
    return magnitude == limit ? min_I : -static_cast<long long>(magnitude);
}

template <typename T> std::vector<unsigned char> BytesOf(T value_I)
{
    std::vector<unsigned char> bytes(sizeof value_I);
    std::memcpy(bytes.data(), &value_I, sizeof value_I);
    return bytes;
}

template <typename T> std::vector<unsigned char> UnsignedData(const std::string& text_I)
{
    return BytesOf(static_cast<T>(ParseNumber(text_I, std::numeric_limits<T>::max())));
}

template <typename T> std::vector<unsigned char> SignedData(const std::string& text_I)
{
    return BytesOf(static_cast<T>(
        ParseSigned(text_I, std::numeric_limits<T>::min(), std::numeric_limits<T>::max())));
}

std::vector<unsigned char> HexData(const std::string& text_I)
{
    std::string digits;
    for (char c : text_I)
    {
        if (std::isspace(static_cast<unsigned char>(c)) == 0)
        {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0 ||
        !std::all_of(digits.begin(), digits.end(),
                     [](unsigned char c) { return std::isxdigit(c) != 0; }))
    {
        throw CCommandError("not hexadecimal bytes: '" + text_I + "'");
    }
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
    {
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::vector<unsigned char> SettingsData(const std::string& text_I)
{
    std::shared_ptr<CSettingsObject> root = CSettingsObject::ReadFromJSONBuffer(text_I);
    if (!root)
    {
        throw CCommandError("not settings JSON text (a map or an array): '" + text_I + "'");
    }
    return root->GetASN1Binary();
}

bool BoolValue(const std::string& text_I)
{
    const std::string lower = Lower(text_I);
    if (lower == "true" || lower == "1")
    {
        return true;
    }
    if (lower == "false" || lower == "0")
    {
        return false;
    }
    throw CCommandError("not a truth value (true, false, 1, 0): '" + text_I + "'");
}
} // namespace

std::uint64_t ParseNumber(const std::string& text_I, std::uint64_t max_I)
{
    std::uint64_t value = 0;
    const ENumber result = ReadNumber(text_I, max_I, value);
    if (result != ENumber::eGood)
    {
        NumberError(result, text_I);
    }
    return value;
}

ECommand ParseCommand(const std::string& text_I)
{
    if (LooksNumeric(text_I))
    {
        return static_cast<ECommand>(ParseNumber(text_I, std::numeric_limits<int>::max()));
    }
    return static_cast<ECommand>(
        FindName(text_I, std::begin(kCommands), std::end(kCommands), {"ECommand"}, "command"));
}

EEventIdentifier ParseIdentifier(const std::string& text_I)
{
    if (LooksNumeric(text_I))
    {
        return static_cast<EEventIdentifier>(ParseNumber(text_I, MAX_KEY_ID - 1));
    }
    return static_cast<EEventIdentifier>(
        FindName(text_I, std::begin(kIdentifiers), std::end(kIdentifiers),
                 {"EObjectID", "EParameterID", "EFilterID"}, "identifier"));
}

EAddressingMode ParseMode(const std::string& text_I)
{
    if (LooksNumeric(text_I))
    {
        return static_cast<EAddressingMode>(ParseNumber(text_I, MAX_ADDRESSING_MODE - 1));
    }
    if (Lower(text_I) == "all")
    {
        return EAddrModeAllSubordinate;
    }
    return static_cast<EAddressingMode>(FindName(text_I, std::begin(kModes), std::end(kModes),
                                                 {"EAddrMode", "EAddrModeBy"}, "addressing mode"));
}

CKeltoClient::SKey ParseKey(const std::string& text_I)
{
    CKeltoClient::SKey key;
    const std::size_t equals = text_I.find('=');
    const std::string head = text_I.substr(0, equals);
    const std::size_t at = head.find('@');
    key.mIdentifier = ParseIdentifier(head.substr(0, at));
    if (key.mIdentifier == EObjectIDNothing)
    {
        throw CCommandError("a key cannot be EObjectIDNothing: it ends the chain");
    }
    if (at != std::string::npos)
    {
        key.mMode = ParseMode(head.substr(at + 1));
    }
    if (equals == std::string::npos)
    {
        return key;
    }
    const std::string reference = text_I.substr(equals + 1);
    if (key.mMode == EAddrModeByString)
    {
        key.mText = reference;
    }
    else if (LooksNumeric(reference))
    {
        key.mReference = static_cast<std::uint32_t>(
            ParseNumber(reference, std::numeric_limits<std::uint32_t>::max()));
    }
    else
    {
        key.mReference = static_cast<std::uint32_t>(ParseIdentifier(reference));
    }
    return key;
}

std::vector<unsigned char> ParseData(const std::string& text_I)
{
    const std::size_t colon = text_I.find(':');
    if (colon == std::string::npos)
    {
        throw CCommandError("data must be TYPE:VALUE: '" + text_I + "'");
    }
    const std::string type = Lower(text_I.substr(0, colon));
    const std::string value = text_I.substr(colon + 1);
    if (type == "u8")
    {
        return UnsignedData<std::uint8_t>(value);
    }
    if (type == "u16")
    {
        return UnsignedData<std::uint16_t>(value);
    }
    if (type == "u32")
    {
        return UnsignedData<std::uint32_t>(value);
    }
    if (type == "u64")
    {
        return UnsignedData<std::uint64_t>(value);
    }
    if (type == "i8")
    {
        return SignedData<std::int8_t>(value);
    }
    if (type == "i16")
    {
        return SignedData<std::int16_t>(value);
    }
    if (type == "i32")
    {
        return SignedData<std::int32_t>(value);
    }
    if (type == "i64")
    {
        return SignedData<std::int64_t>(value);
    }
    if (type == "bool")
    {
        return {static_cast<unsigned char>(BoolValue(value) ? 1 : 0)};
    }
    if (type == "string")
    {
        std::vector<unsigned char> bytes(value.begin(), value.end());
        bytes.push_back(0);
        return bytes;
    }
    if (type == "hex")
    {
        return HexData(value);
    }
    if (type == "integer")
    {
        return CSettingsInteger::New(ParseSigned(value, std::numeric_limits<long long>::min(),
                                                 std::numeric_limits<long long>::max()))
            ->GetASN1Binary();
    }
    if (type == "settings")
    {
        return SettingsData(value);
    }
    if (type == "file")
    {
        return ToolFiles::ReadBytes(value);
    }
    throw CCommandError("unknown data type '" + text_I.substr(0, colon) + "'");
}

std::uint32_t ParseFourCharCode(const std::string& text_I)
{
    std::string code = text_I;
    if (code.size() == 6 && code.front() == '\'' && code.back() == '\'')
    {
        code = code.substr(1, 4);
    }
    if (StartsWith(Lower(code), "0x"))
    {
        return static_cast<std::uint32_t>(
            ParseNumber(code, std::numeric_limits<std::uint32_t>::max()));
    }
    if (code.size() == 4)
    {
        std::uint32_t value = 0;
        for (unsigned char c : code)
        {
            value = (value << 8) | c;
        }
        return value;
    }
    throw CCommandError("not a four-character code: '" + text_I + "'");
}

std::string IdentifierName(EEventIdentifier identifier_I)
{
    return NameOf(identifier_I, std::begin(kIdentifiers), std::end(kIdentifiers));
}

std::string CommandName(ECommand command_I)
{
    return NameOf(command_I, std::begin(kCommands), std::end(kCommands));
}

std::string ModeName(EAddressingMode mode_I)
{
    return NameOf(mode_I, std::begin(kModes), std::end(kModes));
}

std::string FourCharCodeText(std::uint32_t code_I)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const auto c = static_cast<unsigned char>((code_I >> shift) & 0xFF);
        if (c < 0x20 || c > 0x7E)
        {
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%08X", code_I);
            return hex;
        }
        text += static_cast<char>(c);
    }
    return text;
}
} // namespace RequestSyntax
