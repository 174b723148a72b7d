// An IEEE 754 double: six decimals in JSON (2.5 is 2.500000, so JSON keeps only what six
// decimals hold); its raw 64-bit pattern in the archive, which keeps every value exactly.
#pragma once

#include "Common/Settings/CSettingsObject.h"

class CSettingsDouble : public CSettingsObject
{
public:
    CSettingsDouble(SPrivate, double value) : mValue(value) {}
    static std::shared_ptr<CSettingsDouble> New(double value);
    static std::string GetClassTypeName() { return "double"; }

    double GetValue() const { return mValue; }
    void SetValue(double value) { mValue = value; }

    static std::shared_ptr<CSettingsDouble> CastToDouble(std::shared_ptr<CSettingsObject> object_I);
    // stod rules; `default_I` after a line on standard error when nothing parses.
    static double StringToDouble(const std::string& text_I, double default_I);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override;
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    // By ==: NaN never equals NaN, 0.0 equals -0.0.
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsDouble> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                             size_t& pos_IO);
    // The number run at `pos_IO` (which must start with a digit or '-') through
    // StringToDouble with default 0.0.
    static std::shared_ptr<CSettingsDouble> ReadFromJSONNode(const std::string& buffer_I,
                                                             size_t& pos_IO);

private:
    double mValue;
};
