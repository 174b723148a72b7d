#include "Common/Settings/CSettingsString.h"

#include "Common/ASN1Coding.h"
#include "Common/StringUtilities.h"

namespace
{
int HexDigitValue(char c)
{
    if (c >= '0' && c <= '9')
    {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f')
    {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F')
    {
        return c - 'A' + 10;
    }
    return -1;
}

// The code point of the four hexadecimal digits at `pos`, or -1.
int ReadUnicodeEscape(const std::string& buffer_I, size_t pos)
{
    if (buffer_I.size() - pos < 4)
    {
        return -1;
    }
    int codePoint = 0;
    for (size_t i = 0; i < 4; ++i)
    {
        int digit = HexDigitValue(buffer_I[pos + i]);
        if (digit < 0)
        {
            return -1;
        }
        codePoint = codePoint * 16 + digit;
    }
    return codePoint;
}
} // namespace

std::shared_ptr<CSettingsString> CSettingsString::New(std::string value)
{
    return std::make_shared<CSettingsString>(SPrivate(), std::move(value));
}

std::shared_ptr<CSettingsString>
CSettingsString::CastToString(std::shared_ptr<CSettingsObject> object_I)
{
    return CheckedCast<CSettingsString>(object_I, "string", "CSettingsString::CastToString",
                                        "CSettingsString");
}

std::shared_ptr<CSettingsObject> CSettingsString::DeepCopy() const
{
    return New(mValue);
}

std::string CSettingsString::GetTraceString() const
{
    return GetTypeName() + "[" + mValue + "]";
}

void CSettingsString::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeStringToArchive(mValue, archive_IO, false);
}

bool CSettingsString::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsString>(other_I);
    return other && other->mValue == mValue;
}

std::string CSettingsString::CreateJSONNode(int) const
{
    return "\"" + mValue + "\"";
}

std::shared_ptr<CSettingsString>
CSettingsString::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kStringID)
    {
        return nullptr;
    }
    return std::make_shared<CSettingsString>(
        SPrivate(), ASN1Coding::DecodeStringViewFromArchive(archive_I, pos_IO));
}

std::shared_ptr<CSettingsString> CSettingsString::ReadFromJSONNode(const std::string& buffer_I,
                                                                   size_t& pos_IO)
{
    std::string text;
    if (!ReadJSONText(buffer_I, pos_IO, text))
    {
        return nullptr;
    }
    return New(std::move(text));
}

bool CSettingsString::ReadJSONText(const std::string& buffer_I, size_t& pos_IO, std::string& text_O)
{
    if (pos_IO >= buffer_I.size() || buffer_I[pos_IO] != '"')
    {
        return false;
    }
    size_t pos = pos_IO + 1;
    std::string text;
    while (pos < buffer_I.size())
    {
        // Characters that need no unescaping go over as one run.
        size_t plain = pos;
        while (plain < buffer_I.size() && buffer_I[plain] != '"' && buffer_I[plain] != '\\')
        {
            ++plain;
        }
        if (plain == buffer_I.size())
        {
            return false; // no closing quote
        }
        text.append(buffer_I, pos, plain - pos);
        pos = plain;
        char c = buffer_I[pos++];
        if (c == '"')
        {
            pos_IO = pos;
            text_O = std::move(text);
            return true;
        }
        if (pos >= buffer_I.size())
        {
            return false;
        }
        char escaped = buffer_I[pos++];
        switch (escaped)
        {
        case '"':
        case '\\':
        case '/':
            text += escaped;
            break;
        case 'b':
            text += '\b';
            break;
        case 'f':
            text += '\f';
            break;
        case 'n':
            text += '\n';
            break;
        case 'r':
            text += '\r';
            break;
        case 't':
            text += '\t';
            break;
        case 'u':
        {
            int codePoint = ReadUnicodeEscape(buffer_I, pos);
            if (codePoint < 0)
            {
                return false;
            }
            text += StringUtilities::EncodeUnicodePointToUTF8(codePoint);
            pos += 4;
            break;
        }
        default:
            return false;
        }
    }
    return false;
}
