// Fuzz target for the settings JSON reader (settings files anyone may edit). Besides staying
// in bounds and within the nesting limit:
// - a tree that JSON text can carry (no quote or backslash in its texts, no empty container,
//   no "SbyteS" key, finite doubles) writes a text that reads back and writes the same text;
// - a tree without nulls goes through the archive and back to the same archive.
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsString.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

namespace
{
bool PlainText(const std::string& text)
{
    return text.find_first_of("\"\\") == std::string::npos;
}

// Whether JSON text carries `object` back unchanged.
bool JSONCarries(const std::shared_ptr<CSettingsObject>& object)
{
    if (auto map = CSettingsMap::CastToMap(object, false))
    {
        if (map->ObjectCount() == 0 || map->IsKeyPresent("SbyteS"))
        {
            return false;
        }
        for (const std::string& key : map->GetKeys())
        {
            std::shared_ptr<CSettingsObject> value = map->ObjectForKey(key);
            if (!PlainText(key) || (value && !JSONCarries(value)))
            {
                return false;
            }
        }
        return true;
    }
    if (auto array = CSettingsArray::CastToArray(object, false))
    {
        for (size_t i = 0; i < array->ObjectCount(); ++i)
        {
            std::shared_ptr<CSettingsObject> element = array->ObjectForIndex(i);
            if (element && !JSONCarries(element))
            {
                return false;
            }
        }
        return array->ObjectCount() != 0;
    }
    if (auto text = object->CastTo<CSettingsString>())
    {
        return PlainText(text->GetValue());
    }
    if (auto number = object->CastTo<CSettingsDouble>())
    {
        return std::isfinite(number->GetValue());
    }
    return true;
}

// Whether a null stands anywhere in the tree (the lookups report a stored null as absent).
bool HasNull(const std::shared_ptr<CSettingsObject>& object)
{
    if (auto map = CSettingsMap::CastToMap(object, false))
    {
        for (const std::string& key : map->GetKeys())
        {
            std::shared_ptr<CSettingsObject> value = map->ObjectForKey(key);
            if (!value || HasNull(value))
            {
                return true;
            }
        }
    }
    else if (auto array = CSettingsArray::CastToArray(object, false))
    {
        for (size_t i = 0; i < array->ObjectCount(); ++i)
        {
            std::shared_ptr<CSettingsObject> element = array->ObjectForIndex(i);
            if (!element || HasNull(element))
            {
                return true;
            }
        }
    }
    return false;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::shared_ptr<CSettingsObject> root = CSettingsObject::ReadFromJSONBuffer(text);

    size_t pos = 0;
    (void)CSettingsObject::ReadFromJSONNode(text, pos);
    if (pos > text.size())
    {
        __builtin_trap();
    }

    if (!root)
    {
        return 0;
    }
    const std::string first = root->GetJSONString();
    if (JSONCarries(root))
    {
        std::shared_ptr<CSettingsObject> again = CSettingsObject::ReadFromJSONBuffer(first);
        if (!again || again->GetJSONString() != first)
        {
            __builtin_trap();
        }
    }
    if (!HasNull(root))
    {
        const std::vector<uint8_t> archive = root->GetASN1Binary();
        std::shared_ptr<CSettingsObject> fromArchive = CSettingsObject::ReadFromASN1Binary(archive);
        if (!fromArchive || fromArchive->GetASN1Binary() != archive ||
            fromArchive->GetJSONString() != first)
        {
            __builtin_trap();
        }
    }
    (void)root->GetTraceString();
    return 0;
}
