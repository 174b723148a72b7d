#include "Tools/tabletctl/SettingsOutput.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"

namespace SettingsOutput
{
namespace
{
// A scalar as one word of text; maps and arrays give nothing.
std::string ScalarText(const std::shared_ptr<CSettingsObject>& object_I)
{
    if (!object_I)
    {
        return "null";
    }
    const std::string type = object_I->GetTypeName();
    if (type == "null")
    {
        return "null";
    }
    if (type == CSettingsBytes::GetClassTypeName())
    {
        return "bytes " + object_I->GetStringValue();
    }
    if (type == CSettingsDouble::GetClassTypeName())
    {
        return nlohmann::json(CSettingsDouble::CastToDouble(object_I)->GetValue()).dump();
    }
    return object_I->GetStringValue();
}

bool IsContainer(const std::shared_ptr<CSettingsObject>& object_I)
{
    return object_I && (object_I->GetTypeName() == CSettingsMap::GetClassTypeName() ||
                        object_I->GetTypeName() == CSettingsArray::GetClassTypeName());
}

void AppendText(const std::shared_ptr<CSettingsObject>& object_I, int indent_I,
                std::string& text_IO)
{
    const std::string margin(static_cast<std::size_t>(indent_I), ' ');
    auto line = [&](const std::string& label, const std::shared_ptr<CSettingsObject>& value)
    {
        if (IsContainer(value))
        {
            text_IO += margin + label + ":\n";
            AppendText(value, indent_I + 2, text_IO);
        }
        else
        {
            text_IO += margin + label + ": " + ScalarText(value) + "\n";
        }
    };
    if (auto map = CSettingsMap::CastToMap(object_I, false))
    {
        for (const std::string& key : map->GetKeys())
        {
            line(key, map->ObjectForKey(key));
        }
    }
    else if (auto array = CSettingsArray::CastToArray(object_I, false))
    {
        for (std::size_t index = 0; index < array->ObjectCount(); ++index)
        {
            line("[" + std::to_string(index) + "]", array->ObjectForIndex(index));
        }
    }
    else
    {
        text_IO += margin + ScalarText(object_I) + "\n";
    }
}
} // namespace

nlohmann::ordered_json ToJSON(const std::shared_ptr<CSettingsObject>& object_I)
{
    if (!object_I)
    {
        return nullptr;
    }
    const std::string type = object_I->GetTypeName();
    if (auto map = CSettingsMap::CastToMap(object_I, false))
    {
        nlohmann::ordered_json json = nlohmann::ordered_json::object();
        for (const std::string& key : map->GetKeys())
        {
            json[key] = ToJSON(map->ObjectForKey(key));
        }
        return json;
    }
    if (auto array = CSettingsArray::CastToArray(object_I, false))
    {
        nlohmann::ordered_json json = nlohmann::ordered_json::array();
        for (std::size_t index = 0; index < array->ObjectCount(); ++index)
        {
            json.push_back(ToJSON(array->ObjectForIndex(index)));
        }
        return json;
    }
    if (type == CSettingsBool::GetClassTypeName())
    {
        return CSettingsBool::CastToBool(object_I)->GetValue();
    }
    if (type == CSettingsInteger::GetClassTypeName())
    {
        return CSettingsInteger::CastToInteger(object_I)->GetValue();
    }
    if (type == CSettingsDouble::GetClassTypeName())
    {
        return CSettingsDouble::CastToDouble(object_I)->GetValue();
    }
    if (type == CSettingsBytes::GetClassTypeName())
    {
        return {{CSettingsBytes::kJSONKey, object_I->GetStringValue()}};
    }
    if (type == "null")
    {
        return nullptr;
    }
    // string and kestring
    return object_I->GetStringValue();
}

std::string ToText(const std::shared_ptr<CSettingsObject>& object_I, int indent_I)
{
    std::string text;
    AppendText(object_I, indent_I, text);
    return text;
}

std::string CapabilitiesText(const std::shared_ptr<CSettingsArray>& capabilities_I)
{
    std::string text;
    for (std::size_t index = 0; index < capabilities_I->ObjectCount(); ++index)
    {
        const std::shared_ptr<CSettingsObject> tablet = capabilities_I->ObjectForIndex(index);
        const std::shared_ptr<CSettingsMap> map = CSettingsMap::CastToMap(tablet, false);
        const long long deviceID =
            map ? map->IntegerForKeyWithDefault("MultiTouchDeviceID", -1) : -1;
        text += "  Device " + std::to_string(deviceID) + "\n";
        text += ToText(tablet, 4);
    }
    return text;
}
} // namespace SettingsOutput
