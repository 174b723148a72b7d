// Where two settings trees first differ, for the conversions that must lose nothing.
#pragma once

#include <memory>
#include <optional>
#include <string>

class CSettingsObject;

// The JSON pointer of the first place (in key and index order) where `expected_I` and
// `actual_I` differ in type or value, or nothing when they are equal. A kestring and a
// string of the same text count as equal: JSON text has only one kind of string.
std::optional<std::string> SettingsDifference(const std::shared_ptr<CSettingsObject>& expected_I,
                                              const std::shared_ptr<CSettingsObject>& actual_I,
                                              const std::string& where_I = "");

// The JSON pointer of the first null in `tree_I` (in key and index order), if any.
std::optional<std::string> FirstNull(const std::shared_ptr<CSettingsObject>& tree_I,
                                     const std::string& where_I = "");
