#include "Common/Settings/CSettingsBytes.h"

#include "Common/ASN1Coding.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsNestingGuard.h"
#include "Common/StringUtilities.h"

std::shared_ptr<CSettingsBytes> CSettingsBytes::New(const std::vector<uint8_t>& value)
{
    return std::make_shared<CSettingsBytes>(SPrivate(), value);
}

std::shared_ptr<CSettingsBytes>
CSettingsBytes::CastToBytes(std::shared_ptr<CSettingsObject> object_I)
{
    return CheckedCast<CSettingsBytes>(object_I, "bytes", "CSettingsBytes::CastToBytes",
                                       "CSettingsBytes");
}

std::shared_ptr<CSettingsObject> CSettingsBytes::DeepCopy() const
{
    return New(mValue);
}

std::string CSettingsBytes::GetStringValue() const
{
    return StringUtilities::GetBase64(mValue);
}

std::string CSettingsBytes::GetTraceString() const
{
    return GetTypeName() + "[" + GetStringValue() + "]";
}

void CSettingsBytes::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeBytesToArchive(mValue, archive_IO);
}

bool CSettingsBytes::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsBytes>(other_I);
    return other && other->mValue == mValue;
}

std::string CSettingsBytes::CreateJSONNode(int) const
{
    // Written as a one-entry object, one level deeper than the bytes stand.
    CSettingsNestingGuard guard;
    guard.RefuseWriteIfTooDeep();
    return std::string("{\"") + kJSONKey + "\":\"" + GetStringValue() + "\"}";
}

std::shared_ptr<CSettingsBytes>
CSettingsBytes::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kBytesID)
    {
        return nullptr;
    }
    return New(ASN1Coding::DecodeBytesFromArchive(archive_I, pos_IO));
}

std::shared_ptr<CSettingsBytes> CSettingsBytes::ReadFromJSONNode(const std::string& buffer_I,
                                                                 size_t& pos_IO)
{
    std::shared_ptr<CSettingsMap> map = CSettingsMap::ReadFromJSONNode(buffer_I, pos_IO);
    if (!map || map->ObjectCount() != 1)
    {
        return nullptr;
    }
    std::shared_ptr<CSettingsObject> value = map->ObjectForKey(kJSONKey);
    return value ? value->CastTo<CSettingsBytes>() : nullptr;
}
