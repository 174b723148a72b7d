#include "Common/Settings/CSettingsBool.h"

#include "Common/ASN1Coding.h"
#include "Common/Settings/SettingsJSONLexer.h"
#include "Common/StringUtilities.h"

#include <exception>
#include <typeinfo>

std::shared_ptr<CSettingsBool> CSettingsBool::New(bool value)
{
    return std::make_shared<CSettingsBool>(SPrivate(), value);
}

std::shared_ptr<CSettingsBool> CSettingsBool::CastToBool(std::shared_ptr<CSettingsObject> object_I)
{
    return CheckedCast<CSettingsBool>(object_I, "bool", "CSettingsBool::CastToBool",
                                      "CSettingsBool");
}

bool CSettingsBool::StringToBool(const std::string& text_I, bool default_I)
{
    if (StringUtilities::IEquals(text_I, "true"))
    {
        return true;
    }
    if (StringUtilities::IEquals(text_I, "false"))
    {
        return false;
    }
    try
    {
        return std::stoi(text_I) != 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "StringToBool: %s a string to %s\n", error.what(), typeid(int).name());
    }
    return default_I;
}

std::shared_ptr<CSettingsObject> CSettingsBool::DeepCopy() const
{
    return New(mValue);
}

std::string CSettingsBool::GetStringValue() const
{
    return mValue ? "true" : "false";
}

std::string CSettingsBool::GetTraceString() const
{
    return GetTypeName() + "[" + GetStringValue() + "]";
}

void CSettingsBool::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeBoolToArchive(mValue, archive_IO);
}

bool CSettingsBool::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsBool>(other_I);
    return other && other->mValue == mValue;
}

std::string CSettingsBool::CreateJSONNode(int) const
{
    return GetStringValue();
}

std::shared_ptr<CSettingsBool>
CSettingsBool::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kBoolID)
    {
        return nullptr;
    }
    return New(ASN1Coding::DecodeBoolFromArchive(archive_I, pos_IO));
}

std::shared_ptr<CSettingsBool> CSettingsBool::ReadFromJSONNode(const std::string& buffer_I,
                                                               size_t& pos_IO)
{
    if (SettingsJSONLexer::TextAt(buffer_I, pos_IO, "true"))
    {
        pos_IO += 4;
        return New(true);
    }
    if (SettingsJSONLexer::TextAt(buffer_I, pos_IO, "false"))
    {
        pos_IO += 5;
        return New(false);
    }
    return nullptr;
}
