// A text of the same kind as CSettingsString that keeps its own identity in the archive
// (application 3, octet 0x63: the constructed bit follows from the identifier rule although
// the content is plain bytes). JSON cannot tell the two apart: it is written as an ordinary
// string and read back as a CSettingsString; that loss is intended.
#pragma once

#include "Common/Settings/CSettingsObject.h"

#include <string_view>

class CSettingsKEString : public CSettingsObject
{
public:
    CSettingsKEString(SPrivate, std::string value) : mValue(std::move(value)) {}
    // For readers that hold the text in a larger buffer: copied once, into place.
    CSettingsKEString(SPrivate, std::string_view value) : mValue(value) {}
    static std::shared_ptr<CSettingsKEString> New(std::string value);
    static std::string GetClassTypeName() { return "kestring"; }

    std::string GetValue() const { return mValue; }
    void SetValue(const std::string& value) { mValue = value; }

    static std::shared_ptr<CSettingsKEString>
    CastToKEString(std::shared_ptr<CSettingsObject> object_I);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override { return mValue; }
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    // Byte by byte, case-sensitive; never equal to a CSettingsString.
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsKEString>
    ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO);
    // A JSON string read as a kestring. The value dispatcher never calls this: strings in
    // JSON text always come back as CSettingsString.
    static std::shared_ptr<CSettingsKEString> ReadFromJSONNode(const std::string& buffer_I,
                                                               size_t& pos_IO);

private:
    std::string mValue;
};
