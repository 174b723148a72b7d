// A signed 64-bit integer: decimal in JSON; in the archive its two's-complement pattern as
// an unsigned number in the fewest octets (so -1 takes eight).
#pragma once

#include "Common/Settings/CSettingsObject.h"

class CSettingsInteger : public CSettingsObject
{
public:
    CSettingsInteger(SPrivate, long long value) : mValue(value) {}
    static std::shared_ptr<CSettingsInteger> New(long long value);
    static std::string GetClassTypeName() { return "integer"; }

    long long GetValue() const { return mValue; }
    void SetValue(long long value) { mValue = value; }

    static std::shared_ptr<CSettingsInteger>
    CastToInteger(std::shared_ptr<CSettingsObject> object_I);
    // Parses with stoll rules (trailing characters ignored) after a complaint on standard
    // error when IsInteger rejects the text; `default_I` when nothing parses.
    static long long StringToInteger(const std::string& text_I, long long default_I);
    // Only digits and one leading '-'. A lone "-" passes (and then fails to parse); kept.
    static bool IsInteger(const std::string& text_I);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override;
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsInteger> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                              size_t& pos_IO);
    // The number run at `pos_IO` (which must start with a digit or '-') through
    // StringToInteger with default 0.
    static std::shared_ptr<CSettingsInteger> ReadFromJSONNode(const std::string& buffer_I,
                                                              size_t& pos_IO);

private:
    long long mValue;
};
