#include "Tools/tabletctl/SettingsDifference.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsMap.h"
#include "Tools/tabletctl/SettingsJSONText.h"

#include <algorithm>

namespace
{
std::string KindOf(const std::shared_ptr<CSettingsObject>& object_I)
{
    if (!object_I)
    {
        return "null";
    }
    const std::string type = object_I->GetTypeName();
    return type == "kestring" ? "string" : type;
}
} // namespace

std::optional<std::string> SettingsDifference(const std::shared_ptr<CSettingsObject>& expected_I,
                                              const std::shared_ptr<CSettingsObject>& actual_I,
                                              const std::string& where_I)
{
    const std::string kind = KindOf(expected_I);
    if (kind != KindOf(actual_I))
    {
        return where_I;
    }
    if (kind == "map")
    {
        auto expected = std::static_pointer_cast<CSettingsMap>(expected_I);
        auto actual = std::static_pointer_cast<CSettingsMap>(actual_I);
        std::vector<std::string> keys = expected->GetKeys();
        for (const std::string& key : actual->GetKeys())
        {
            if (!expected->IsKeyPresent(key))
            {
                keys.push_back(key);
            }
        }
        std::sort(keys.begin(), keys.end());
        for (const std::string& key : keys)
        {
            const std::string place = SettingsJSONText::PointerTo(where_I, key);
            if (expected->IsKeyPresent(key) != actual->IsKeyPresent(key))
            {
                return place;
            }
            if (auto difference = SettingsDifference(expected->ObjectForKey(key),
                                                     actual->ObjectForKey(key), place))
            {
                return difference;
            }
        }
        return std::nullopt;
    }
    if (kind == "array")
    {
        auto expected = std::static_pointer_cast<CSettingsArray>(expected_I);
        auto actual = std::static_pointer_cast<CSettingsArray>(actual_I);
        const size_t common = std::min(expected->ObjectCount(), actual->ObjectCount());
        for (size_t i = 0; i < common; ++i)
        {
            const std::string place = SettingsJSONText::PointerTo(where_I, std::to_string(i));
            if (auto difference = SettingsDifference(expected->ObjectForIndex(i),
                                                     actual->ObjectForIndex(i), place))
            {
                return difference;
            }
        }
        if (expected->ObjectCount() != actual->ObjectCount())
        {
            return SettingsJSONText::PointerTo(where_I, std::to_string(common));
        }
        return std::nullopt;
    }
    const bool equal =
        kind == "null" || (expected_I->GetStringValue() == actual_I->GetStringValue() &&
                           (kind == "string" || expected_I->IsEqualTo(actual_I)));
    if (equal)
    {
        return std::nullopt;
    }
    return where_I;
}

std::optional<std::string> FirstNull(const std::shared_ptr<CSettingsObject>& tree_I,
                                     const std::string& where_I)
{
    const std::string kind = KindOf(tree_I);
    if (kind == "null")
    {
        return where_I;
    }
    if (auto map = std::dynamic_pointer_cast<CSettingsMap>(tree_I))
    {
        for (const std::string& key : map->GetKeys())
        {
            if (auto place =
                    FirstNull(map->ObjectForKey(key), SettingsJSONText::PointerTo(where_I, key)))
            {
                return place;
            }
        }
    }
    if (auto array = std::dynamic_pointer_cast<CSettingsArray>(tree_I))
    {
        for (size_t i = 0; i < array->ObjectCount(); ++i)
        {
            if (auto place = FirstNull(array->ObjectForIndex(i),
                                       SettingsJSONText::PointerTo(where_I, std::to_string(i))))
            {
                return place;
            }
        }
    }
    return std::nullopt;
}
