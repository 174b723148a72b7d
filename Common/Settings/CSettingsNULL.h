// The null value: "null" in JSON, 05 00 in the archive. It is written to the archive but the
// archive's node dispatcher does not read it back, so a tree holding a null cannot make the
// round trip through an archive; only ReadFromASN1Node of this class accepts 05 00.
#pragma once

#include "Common/Settings/CSettingsObject.h"

class CSettingsNULL : public CSettingsObject
{
public:
    explicit CSettingsNULL(SPrivate) {}
    static std::shared_ptr<CSettingsNULL> New();
    static std::string GetClassTypeName() { return "null"; }

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override { return std::string(); }
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    std::string CreateJSONNode(int indent) const override;

    static std::shared_ptr<CSettingsNULL> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                           size_t& pos_IO);
    // The four characters "null"; null otherwise.
    static std::shared_ptr<CSettingsNULL> ReadFromJSONNode(const std::string& buffer_I,
                                                           size_t& pos_IO);
};
