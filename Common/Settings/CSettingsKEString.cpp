#include "Common/Settings/CSettingsKEString.h"

#include "Common/ASN1Coding.h"
#include "Common/Settings/CSettingsString.h"

std::shared_ptr<CSettingsKEString> CSettingsKEString::New(std::string value)
{
    return std::make_shared<CSettingsKEString>(SPrivate(), std::move(value));
}

std::shared_ptr<CSettingsKEString>
CSettingsKEString::CastToKEString(std::shared_ptr<CSettingsObject> object_I)
{
    return CheckedCast<CSettingsKEString>(object_I, "kestring", "CSettingsKEString::CastToKEString",
                                          "CSettingsKEString");
}

std::shared_ptr<CSettingsObject> CSettingsKEString::DeepCopy() const
{
    return New(mValue);
}

std::string CSettingsKEString::GetTraceString() const
{
    return GetTypeName() + "[" + mValue + "]";
}

void CSettingsKEString::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeStringToArchive(mValue, archive_IO, true);
}

bool CSettingsKEString::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsKEString>(other_I);
    return other && other->mValue == mValue;
}

std::string CSettingsKEString::CreateJSONNode(int) const
{
    return "\"" + mValue + "\"";
}

std::shared_ptr<CSettingsKEString>
CSettingsKEString::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kKEStringID)
    {
        return nullptr;
    }
    return std::make_shared<CSettingsKEString>(
        SPrivate(), ASN1Coding::DecodeStringViewFromArchive(archive_I, pos_IO));
}

std::shared_ptr<CSettingsKEString> CSettingsKEString::ReadFromJSONNode(const std::string& buffer_I,
                                                                       size_t& pos_IO)
{
    std::string text;
    if (!CSettingsString::ReadJSONText(buffer_I, pos_IO, text))
    {
        return nullptr;
    }
    return New(text);
}
