#include "Common/StringUtilities.h"

#include <cctype>
#include <charconv>
#include <cstdio>
#include <cwctype>

namespace
{
// The C library's character functions for each character width. Narrow characters go through
// unsigned char: passing a negative char to tolower is undefined.
char LowerChar(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}
wchar_t LowerChar(wchar_t c)
{
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}
char UpperChar(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}
wchar_t UpperChar(wchar_t c)
{
    return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
}
bool IsSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool IsSpace(wchar_t c)
{
    return std::iswspace(static_cast<std::wint_t>(c)) != 0;
}

template <typename S> std::vector<S> TokenizeT(const S& text, const S& delimiters, bool removeEmpty)
{
    std::vector<S> tokens;
    typename S::size_type pos = 0;
    while (pos < text.size())
    {
        typename S::size_type next = text.find_first_of(delimiters, pos);
        S token = text.substr(pos, next == S::npos ? S::npos : next - pos);
        if (!token.empty() || !removeEmpty)
        {
            tokens.push_back(token);
        }
        if (next == S::npos)
        {
            break;
        }
        pos = next + 1;
    }
    return tokens;
}

template <typename S> void ToLowerT(S& text)
{
    for (auto& c : text)
    {
        c = LowerChar(c);
    }
}

template <typename S> void ToUpperT(S& text)
{
    for (auto& c : text)
    {
        c = UpperChar(c);
    }
}

template <typename S> void TrimT(S& text)
{
    typename S::size_type begin = 0;
    while (begin < text.size() && IsSpace(text[begin]))
    {
        ++begin;
    }
    text.erase(0, begin);
    typename S::size_type end = text.size();
    while (end > 0 && IsSpace(text[end - 1]))
    {
        --end;
    }
    text.erase(end);
}

template <typename S> S LowerCopy(S text)
{
    ToLowerT(text);
    return text;
}

template <typename S> bool IEqualsT(const S& a, const S& b)
{
    return a == b || LowerCopy(a) == LowerCopy(b);
}

template <typename S> typename S::size_type IFindFirstT(const S& text, const S& sub)
{
    return LowerCopy(text).find(LowerCopy(sub));
}

template <typename S> void IReplaceAllT(S& text, const S& from, const S& to)
{
    if (from.empty())
    {
        return;
    }
    // Case changes keep every character in place, so positions in the lower-cased copy are
    // positions in the text.
    const S lowerText = LowerCopy(text);
    const S lowerFrom = LowerCopy(from);
    S result;
    typename S::size_type pos = 0;
    for (;;)
    {
        typename S::size_type found = lowerText.find(lowerFrom, pos);
        if (found == S::npos)
        {
            break;
        }
        result.append(text, pos, found - pos);
        result += to;
        pos = found + from.size();
    }
    result.append(text, pos, S::npos);
    text.swap(result);
}

template <typename S> bool StartsWithT(const S& text, const S& prefix)
{
    if (text.empty() || text.size() < prefix.size())
    {
        return false;
    }
    return text.compare(0, prefix.size(), prefix) == 0;
}

template <typename S> bool EndsWithT(const S& text, const S& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

const char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The six bits a base64 character stands for, or -1 for a character outside the alphabet.
int Base64Value(char c)
{
    if (c >= 'A' && c <= 'Z')
    {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z')
    {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9')
    {
        return c - '0' + 52;
    }
    if (c == '+')
    {
        return 62;
    }
    if (c == '/')
    {
        return 63;
    }
    return -1;
}

// The hexadecimal number at the start of text, read as far as it has hex digits (0 if none).
uint32_t LeadingHex(const std::string& text)
{
    uint32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return value;
}
} // namespace

namespace StringUtilities
{
std::vector<std::string> Tokenize(const std::string& text_I, const std::string& delimiters_I,
                                  bool removeEmpty_I)
{
    return TokenizeT(text_I, delimiters_I, removeEmpty_I);
}
std::vector<std::wstring> Tokenize(const std::wstring& text_I, const std::wstring& delimiters_I,
                                   bool removeEmpty_I)
{
    return TokenizeT(text_I, delimiters_I, removeEmpty_I);
}

void ToLower(std::string& text_IO)
{
    ToLowerT(text_IO);
}
void ToLower(std::wstring& text_IO)
{
    ToLowerT(text_IO);
}
void ToUpper(std::string& text_IO)
{
    ToUpperT(text_IO);
}
void ToUpper(std::wstring& text_IO)
{
    ToUpperT(text_IO);
}
std::string ToLower_Copy(const std::string& text_I)
{
    return LowerCopy(text_I);
}
std::wstring ToLower_Copy(const std::wstring& text_I)
{
    return LowerCopy(text_I);
}
std::string ToUpper_Copy(const std::string& text_I)
{
    std::string copy = text_I;
    ToUpperT(copy);
    return copy;
}
std::wstring ToUpper_Copy(const std::wstring& text_I)
{
    std::wstring copy = text_I;
    ToUpperT(copy);
    return copy;
}

void Trim(std::string& text_IO)
{
    TrimT(text_IO);
}
void Trim(std::wstring& text_IO)
{
    TrimT(text_IO);
}
std::string Trim_Copy(const std::string& text_I)
{
    std::string copy = text_I;
    TrimT(copy);
    return copy;
}
std::wstring Trim_Copy(const std::wstring& text_I)
{
    std::wstring copy = text_I;
    TrimT(copy);
    return copy;
}

bool IEquals(const std::string& a_I, const std::string& b_I)
{
    return IEqualsT(a_I, b_I);
}
bool IEquals(const std::wstring& a_I, const std::wstring& b_I)
{
    return IEqualsT(a_I, b_I);
}

std::string::size_type IFindFirst(const std::string& text_I, const std::string& sub_I)
{
    return IFindFirstT(text_I, sub_I);
}
std::wstring::size_type IFindFirst(const std::wstring& text_I, const std::wstring& sub_I)
{
    return IFindFirstT(text_I, sub_I);
}
bool IContains(const std::string& text_I, const std::string& sub_I)
{
    return IFindFirstT(text_I, sub_I) != std::string::npos;
}
bool IContains(const std::wstring& text_I, const std::wstring& sub_I)
{
    return IFindFirstT(text_I, sub_I) != std::wstring::npos;
}
bool Contains(const std::string& text_I, const std::string& sub_I)
{
    return text_I.find(sub_I) != std::string::npos;
}
bool Contains(const std::wstring& text_I, const std::wstring& sub_I)
{
    return text_I.find(sub_I) != std::wstring::npos;
}

void IReplaceAll(std::string& text_IO, const std::string& from_I, const std::string& to_I)
{
    IReplaceAllT(text_IO, from_I, to_I);
}
void IReplaceAll(std::wstring& text_IO, const std::wstring& from_I, const std::wstring& to_I)
{
    IReplaceAllT(text_IO, from_I, to_I);
}

bool StartsWith(const std::string& text_I, const std::string& prefix_I)
{
    return StartsWithT(text_I, prefix_I);
}
bool StartsWith(const std::wstring& text_I, const std::wstring& prefix_I)
{
    return StartsWithT(text_I, prefix_I);
}
bool EndsWith(const std::string& text_I, const std::string& suffix_I)
{
    return EndsWithT(text_I, suffix_I);
}
bool EndsWith(const std::wstring& text_I, const std::wstring& suffix_I)
{
    return EndsWithT(text_I, suffix_I);
}
bool IEndsWith(const std::string& text_I, const std::string& suffix_I)
{
    return EndsWithT(LowerCopy(text_I), LowerCopy(suffix_I));
}
bool IEndsWith(const std::wstring& text_I, const std::wstring& suffix_I)
{
    return EndsWithT(LowerCopy(text_I), LowerCopy(suffix_I));
}

std::string GetBase64(const std::vector<uint8_t>& bytes_I)
{
    std::string text;
    text.reserve((bytes_I.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes_I.size(); i += 3)
    {
        const std::size_t n = bytes_I.size() - i < 3 ? bytes_I.size() - i : 3;
        uint32_t group = static_cast<uint32_t>(bytes_I[i]) << 16;
        if (n > 1)
        {
            group |= static_cast<uint32_t>(bytes_I[i + 1]) << 8;
        }
        if (n > 2)
        {
            group |= bytes_I[i + 2];
        }
        // n bytes give n + 1 characters; no padding.
        for (std::size_t k = 0; k <= n; ++k)
        {
            text += kBase64Alphabet[(group >> (18 - 6 * k)) & 0x3F];
        }
    }
    return text;
}

std::vector<uint8_t> GetBytesFromBase64(const std::string& text_I)
{
    std::vector<uint8_t> bytes;
    bytes.reserve(text_I.size() / 4 * 3 + 2);
    for (std::size_t i = 0; i < text_I.size(); i += 4)
    {
        const std::size_t n = text_I.size() - i < 4 ? text_I.size() - i : 4;
        uint32_t group = 0;
        for (std::size_t k = 0; k < n; ++k)
        {
            const int value = Base64Value(text_I[i + k]);
            if (value < 0)
            {
                return {}; // one bad character spoils the whole text
            }
            group |= static_cast<uint32_t>(value) << (18 - 6 * k);
        }
        // n characters carry n - 1 whole bytes; a lone last character carries none.
        for (std::size_t k = 0; k + 1 < n; ++k)
        {
            bytes.push_back(static_cast<uint8_t>(group >> (16 - 8 * k)));
        }
    }
    return bytes;
}

std::string EncodeUnicodePointToUTF8(int codePoint_I)
{
    std::string out;
    if (codePoint_I < 0 || codePoint_I > 0x10FFFF)
    {
        return out;
    }
    const unsigned cp = static_cast<unsigned>(codePoint_I);
    if (cp < 0x80)
    {
        out += static_cast<char>(cp);
    }
    else if (cp < 0x800)
    {
        out += static_cast<char>(0xC0 | ((cp >> 6) & 0x1F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
    else if (cp <= 0xFFFF)
    {
        out += static_cast<char>(0xE0 | ((cp >> 12) & 0x0F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
    else
    {
        // Deliberately not standard UTF-8: see the header.
        out += static_cast<char>(0xE0);
        out += static_cast<char>(0x80);
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return out;
}

int DecodeUTF8ToUnicodePoint(const std::string& text_I, std::size_t& pos_IO, bool* ok_O)
{
    bool ok = false;
    int codePoint = 0;
    if (pos_IO >= text_I.size())
    {
        ok = pos_IO == 0;
    }
    else
    {
        const unsigned char lead = static_cast<unsigned char>(text_I[pos_IO]);
        int following = -1;
        if (lead < 0x80)
        {
            following = 0;
            codePoint = lead;
        }
        else if (lead >= 0xC2 && lead <= 0xDF)
        {
            following = 1;
            codePoint = lead & 0x1F;
        }
        else if (lead >= 0xE0 && lead <= 0xEF)
        {
            following = 2;
            codePoint = lead & 0x0F;
        }
        else if (lead >= 0xF0 && lead <= 0xF4)
        {
            following = 3;
            codePoint = lead & 0x07;
        }
        ok = following >= 0 && text_I.size() - pos_IO > static_cast<std::size_t>(following);
        for (int k = 1; ok && k <= following; ++k)
        {
            const unsigned char next = static_cast<unsigned char>(text_I[pos_IO + k]);
            ok = (next & 0xC0) == 0x80;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        if (ok)
        {
            pos_IO += 1 + static_cast<std::size_t>(following);
        }
        else
        {
            codePoint = 0xFFFD;
            ++pos_IO;
        }
    }
    if (ok_O != nullptr)
    {
        *ok_O = ok;
    }
    return codePoint;
}

bool IsValidUTF8(const std::string& text_I)
{
    std::size_t pos = 0;
    while (pos < text_I.size())
    {
        bool ok = false;
        DecodeUTF8ToUnicodePoint(text_I, pos, &ok);
        if (!ok)
        {
            return false;
        }
    }
    return true;
}

std::string StringFromRemoteID(uint32_t id_I)
{
    char text[16];
    std::snprintf(text, sizeof(text), "R#%02X-%06X", static_cast<unsigned>(id_I >> 24),
                  static_cast<unsigned>(id_I & 0xFFFFFF));
    return text;
}

uint32_t StringToRemoteID(const std::string& text_I)
{
    if (text_I.size() != 11 || text_I.compare(0, 2, "R#") != 0)
    {
        return 0;
    }
    const uint32_t high = LeadingHex(text_I.substr(2, 2));
    const uint32_t low = LeadingHex(text_I.substr(5));
    return (high << 24) + low;
}

std::string StringFromWirelessID(uint32_t id_I)
{
    char text[16];
    std::snprintf(text, sizeof(text), "WL#%06X", static_cast<unsigned>(id_I));
    return text;
}
} // namespace StringUtilities
