#include "Common/Settings/CSettingsDouble.h"

#include "Common/ASN1Coding.h"
#include "Common/Settings/CSettingsWriteCheck.h"
#include "Common/Settings/SettingsJSONLexer.h"
#include "Common/StringUtilities.h"

#include <cmath>
#include <exception>
#include <typeinfo>

std::shared_ptr<CSettingsDouble> CSettingsDouble::New(double value)
{
    return std::make_shared<CSettingsDouble>(SPrivate(), value);
}

std::shared_ptr<CSettingsDouble>
CSettingsDouble::CastToDouble(std::shared_ptr<CSettingsObject> object_I)
{
    return CheckedCast<CSettingsDouble>(object_I, "double", "CSettingsDouble::CastToDouble",
                                        "CSettingsDouble");
}

double CSettingsDouble::StringToDouble(const std::string& text_I, double default_I)
{
    try
    {
        return std::stod(text_I);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "StringToDouble: %s a string to %s\n", error.what(),
                     typeid(double).name());
    }
    return default_I;
}

std::shared_ptr<CSettingsObject> CSettingsDouble::DeepCopy() const
{
    return New(mValue);
}

std::string CSettingsDouble::GetStringValue() const
{
    return std::to_string(mValue);
}

std::string CSettingsDouble::GetTraceString() const
{
    return GetTypeName() + "[" + GetStringValue() + "]";
}

void CSettingsDouble::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    ASN1Coding::EncodeDoubleToArchive(mValue, archive_IO);
}

bool CSettingsDouble::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsDouble>(other_I);
    return other && other->mValue == mValue;
}

std::string CSettingsDouble::CreateJSONNode(int) const
{
    if (!std::isfinite(mValue))
    {
        CSettingsWriteCheck::Refuse("the double " + GetStringValue() + " has no JSON form");
    }
    return GetStringValue();
}

std::shared_ptr<CSettingsDouble>
CSettingsDouble::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kDoubleID)
    {
        return nullptr;
    }
    return New(ASN1Coding::DecodeDoubleFromArchive(archive_I, pos_IO));
}

std::shared_ptr<CSettingsDouble> CSettingsDouble::ReadFromJSONNode(const std::string& buffer_I,
                                                                   size_t& pos_IO)
{
    if (pos_IO >= buffer_I.size() || !SettingsJSONLexer::StartsNumber(buffer_I[pos_IO]))
    {
        return nullptr;
    }
    std::string run = SettingsJSONLexer::TakeNumberRun(buffer_I, pos_IO);
    return New(StringToDouble(StringUtilities::Trim_Copy(run), 0.0));
}
