// A settings tree as tabletctl prints it: as JSON values for --json (maps become objects,
// arrays arrays, bytes the object {"SbyteS": "<base64>"} as in settings files), or as
// indented "key: value" lines for people.
#pragma once

#include <nlohmann/json.hpp>

#include <memory>
#include <string>

class CSettingsArray;
class CSettingsObject;

namespace SettingsOutput
{
nlohmann::ordered_json ToJSON(const std::shared_ptr<CSettingsObject>& object_I);

// One line per value, nested values indented by two more spaces than their parent;
// indent_I spaces before the top level. A scalar at the top is one line without a key.
std::string ToText(const std::shared_ptr<CSettingsObject>& object_I, int indent_I);

// Touch capabilities for people: "  Device <MultiTouchDeviceID>" and the tablet's map below
// it, for each tablet.
std::string CapabilitiesText(const std::shared_ptr<CSettingsArray>& capabilities_I);
} // namespace SettingsOutput
