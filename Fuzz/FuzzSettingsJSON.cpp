// Fuzz target for the settings JSON reader (settings files anyone may edit). Besides staying
// in bounds and within the nesting limit:
// - a tree that JSON text can carry (no quote or backslash in its texts, no empty container,
//   no "SbyteS" key, finite doubles) writes a text that reads back and writes the same text;
// - a tree without nulls goes through the archive and back to the same archive.
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsString.h"
#include "Fuzz/FuzzCheck.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace
{
bool PlainText(const std::string& text)
{
    return text.find_first_of("\"\\") == std::string::npos;
}

// Whether JSON text (`json_IO`) and the archive (`archive_IO`: no null anywhere; the lookups
// report a stored null as absent) carry the tree back unchanged; both start true.
void Carried(const std::shared_ptr<CSettingsObject>& object, bool& json_IO, bool& archive_IO)
{
    std::vector<std::shared_ptr<CSettingsObject>> children;
    if (!object)
    {
        archive_IO = false;
    }
    else if (auto map = CSettingsMap::CastToMap(object, false))
    {
        json_IO &= map->ObjectCount() != 0 && !map->IsKeyPresent("SbyteS");
        for (const std::string& key : map->GetKeys())
        {
            json_IO &= PlainText(key);
            children.push_back(map->ObjectForKey(key));
        }
    }
    else if (auto array = CSettingsArray::CastToArray(object, false))
    {
        json_IO &= array->ObjectCount() != 0;
        for (size_t i = 0; i < array->ObjectCount(); ++i)
        {
            children.push_back(array->ObjectForIndex(i));
        }
    }
    else if (auto text = object->CastTo<CSettingsString>())
    {
        json_IO &= PlainText(text->GetValue());
    }
    else if (auto number = object->CastTo<CSettingsDouble>())
    {
        json_IO &= std::isfinite(number->GetValue());
    }
    for (const auto& child : children)
    {
        Carried(child, json_IO, archive_IO);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::shared_ptr<CSettingsObject> root = CSettingsObject::ReadFromJSONBuffer(text);

    size_t pos = 0;
    (void)CSettingsObject::ReadFromJSONNode(text, pos);
    Check(pos <= text.size());

    if (!root)
    {
        return 0;
    }
    const std::string first = root->GetJSONString();
    bool json = true;
    bool archive = true;
    Carried(root, json, archive);
    if (json)
    {
        std::shared_ptr<CSettingsObject> again = CSettingsObject::ReadFromJSONBuffer(first);
        Check(again && again->GetJSONString() == first);
    }
    if (archive)
    {
        const std::vector<uint8_t> bytes = root->GetASN1Binary();
        std::shared_ptr<CSettingsObject> fromArchive = CSettingsObject::ReadFromASN1Binary(bytes);
        Check(fromArchive && fromArchive->GetASN1Binary() == bytes &&
              fromArchive->GetJSONString() == first);
    }
    (void)root->GetTraceString();
    return 0;
}
