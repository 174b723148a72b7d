#include "Common/Settings/CSettingsNULL.h"

#include "Common/ASN1Coding.h"
#include "Common/Settings/SettingsJSONLexer.h"

std::shared_ptr<CSettingsNULL> CSettingsNULL::New()
{
    return std::make_shared<CSettingsNULL>(SPrivate());
}

std::shared_ptr<CSettingsObject> CSettingsNULL::DeepCopy() const
{
    return New();
}

std::string CSettingsNULL::GetTraceString() const
{
    return GetTypeName() + "[]";
}

void CSettingsNULL::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeNULLToArchive(archive_IO);
}

bool CSettingsNULL::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    return std::dynamic_pointer_cast<CSettingsNULL>(other_I) != nullptr;
}

std::string CSettingsNULL::CreateJSONNode(int) const
{
    return "null";
}

std::shared_ptr<CSettingsNULL>
CSettingsNULL::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kNULLID)
    {
        return nullptr;
    }
    ASN1Coding::DecodeNULLFromArchive(archive_I, pos_IO);
    return New();
}

std::shared_ptr<CSettingsNULL> CSettingsNULL::ReadFromJSONNode(const std::string& buffer_I,
                                                               size_t& pos_IO)
{
    if (!SettingsJSONLexer::TextAt(buffer_I, pos_IO, "null"))
    {
        return nullptr;
    }
    pos_IO += 4;
    return New();
}
