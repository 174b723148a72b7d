// A block of bytes: universal 4 in the archive; in JSON the one-entry object
// {"SbyteS":"<base64>"} with no white space at all (base64 without padding).
#pragma once

#include "Common/Settings/CSettingsObject.h"

class CSettingsBytes : public CSettingsObject
{
public:
    CSettingsBytes(SPrivate, const std::vector<uint8_t>& value) : mValue(value) {}
    static std::shared_ptr<CSettingsBytes> New(const std::vector<uint8_t>& value);
    static std::string GetClassTypeName() { return "bytes"; }
    // The key under which JSON text carries the bytes.
    static constexpr const char* kJSONKey = "SbyteS";

    std::vector<uint8_t> GetValue() const { return mValue; }
    void SetValue(const std::vector<uint8_t>& value) { mValue = value; }

    static std::shared_ptr<CSettingsBytes> CastToBytes(std::shared_ptr<CSettingsObject> object_I);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    // The bytes in base64.
    std::string GetStringValue() const override;
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsBytes> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                            size_t& pos_IO);
    // A JSON object that the map reader turns into a single "SbyteS" entry holding bytes;
    // null for any other object.
    static std::shared_ptr<CSettingsBytes> ReadFromJSONNode(const std::string& buffer_I,
                                                            size_t& pos_IO);

private:
    std::vector<uint8_t> mValue;
};
