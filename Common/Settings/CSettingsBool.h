// A truth value: "true"/"false" in JSON, 01 01 FF/00 in the archive.
#pragma once

#include "Common/Settings/CSettingsObject.h"

class CSettingsBool : public CSettingsObject
{
public:
    CSettingsBool(SPrivate, bool value) : mValue(value) {}
    static std::shared_ptr<CSettingsBool> New(bool value);
    static std::string GetClassTypeName() { return "bool"; }

    bool GetValue() const { return mValue; }
    void SetValue(bool value) { mValue = value; }

    // Null for null; the same object for a "bool"; otherwise a line on standard error and null.
    static std::shared_ptr<CSettingsBool> CastToBool(std::shared_ptr<CSettingsObject> object_I);
    // "true"/"false" in any case, else a base-10 int that is not zero; `default_I` (after a
    // line on standard error) when the text is no number at all.
    static bool StringToBool(const std::string& text_I, bool default_I);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override;
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsBool> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                           size_t& pos_IO);
    // The characters "true" or "false" (case-sensitive); null otherwise.
    static std::shared_ptr<CSettingsBool> ReadFromJSONNode(const std::string& buffer_I,
                                                           size_t& pos_IO);

private:
    bool mValue;
};
