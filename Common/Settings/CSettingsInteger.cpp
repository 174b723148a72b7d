#include "Common/Settings/CSettingsInteger.h"

#include "Common/ASN1Coding.h"
#include "Common/Settings/SettingsJSONLexer.h"
#include "Common/StringUtilities.h"

#include <exception>
#include <typeinfo>

std::shared_ptr<CSettingsInteger> CSettingsInteger::New(long long value)
{
    return std::make_shared<CSettingsInteger>(SPrivate(), value);
}

std::shared_ptr<CSettingsInteger>
CSettingsInteger::CastToInteger(std::shared_ptr<CSettingsObject> object_I)
{
    return CheckedCast<CSettingsInteger>(object_I, "integer", "CSettingsInteger::CastToInteger",
                                         "CSettingsInteger");
}

long long CSettingsInteger::StringToInteger(const std::string& text_I, long long default_I)
{
    if (!IsInteger(text_I))
    {
        std::fprintf(stderr, "CSettingsInteger::StringToInteger: ERROR: bad integer: %s\n",
                     text_I.c_str());
    }
    try
    {
        return std::stoll(text_I);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "StringToInteger: %s a string to %s\n", error.what(),
                     typeid(long long).name());
    }
    return default_I;
}

bool CSettingsInteger::IsInteger(const std::string& text_I)
{
    if (text_I.empty() || text_I.find_first_not_of("-0123456789") != std::string::npos)
    {
        return false;
    }
    size_t minus = text_I.find('-');
    return minus == std::string::npos || (minus == 0 && text_I.find('-', 1) == std::string::npos);
}

std::shared_ptr<CSettingsObject> CSettingsInteger::DeepCopy() const
{
    return New(mValue);
}

std::string CSettingsInteger::GetStringValue() const
{
    return std::to_string(mValue);
}

std::string CSettingsInteger::GetTraceString() const
{
    return GetTypeName() + "[" + GetStringValue() + "]";
}

void CSettingsInteger::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeIntegerToArchive(static_cast<uint64_t>(mValue), archive_IO);
}

bool CSettingsInteger::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsInteger>(other_I);
    return other && other->mValue == mValue;
}

std::string CSettingsInteger::CreateJSONNode(int) const
{
    return GetStringValue();
}

std::shared_ptr<CSettingsInteger>
CSettingsInteger::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kIntegerID)
    {
        return nullptr;
    }
    return New(static_cast<long long>(ASN1Coding::DecodeIntegerFromArchive(archive_I, pos_IO)));
}

std::shared_ptr<CSettingsInteger> CSettingsInteger::ReadFromJSONNode(const std::string& buffer_I,
                                                                     size_t& pos_IO)
{
    if (pos_IO >= buffer_I.size() || !SettingsJSONLexer::StartsNumber(buffer_I[pos_IO]))
    {
        return nullptr;
    }
    std::string run = SettingsJSONLexer::TakeNumberRun(buffer_I, pos_IO);
    return New(StringToInteger(StringUtilities::Trim_Copy(run), 0));
}
