// A text (bytes, UTF-8 by convention): universal 12 in the archive, a JSON string.
//
// The JSON writer does no escaping at all: a string holding '"', '\' or a control character
// is written raw, and the output is then not valid JSON. Files written this way are read by
// other programs that expect exactly these bytes, so this is kept.
#pragma once

#include "Common/Settings/CSettingsObject.h"

#include <string_view>

class CSettingsString : public CSettingsObject
{
public:
    CSettingsString(SPrivate, std::string value) : mValue(std::move(value)) {}
    // For readers that hold the text in a larger buffer: copied once, into place.
    CSettingsString(SPrivate, std::string_view value) : mValue(value) {}
    static std::shared_ptr<CSettingsString> New(std::string value);
    static std::string GetClassTypeName() { return "string"; }

    std::string GetValue() const { return mValue; }
    void SetValue(const std::string& value) { mValue = value; }

    static std::shared_ptr<CSettingsString> CastToString(std::shared_ptr<CSettingsObject> object_I);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override { return mValue; }
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    // Byte by byte, case-sensitive; never equal to a CSettingsKEString.
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsString> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                             size_t& pos_IO);
    static std::shared_ptr<CSettingsString> ReadFromJSONNode(const std::string& buffer_I,
                                                             size_t& pos_IO);

    // The text of the JSON string at `pos_IO` (which must be '"'), unescaped, with `pos_IO`
    // just past the closing quote. Escapes: \" \\ \/ \b \f \n \r \t, and \u with exactly four
    // hexadecimal digits, each converted by itself to UTF-8 (surrogate pairs are not
    // combined). Raw control characters and bytes above 0x7F are copied unchanged. False for
    // any other escape, a \u without four hexadecimal digits, or the end of the text before
    // the closing quote.
    static bool ReadJSONText(const std::string& buffer_I, size_t& pos_IO, std::string& text_O);

private:
    std::string mValue;
};
