// The JSON text that `tabletctl settings to-json` writes: the settings library's own layout
// (tab indentation, "key": value, bytes as {"SbyteS":"<base64>"}), but text that every JSON
// reader takes. Strings are escaped, an empty container is {} or [], and a double keeps its
// six-decimal form only when that reads back as the same number (otherwise as many digits
// as it needs). The library's writer does none of this on purpose, for files it reads itself.
//
// A tree that JSON text cannot hold is refused with CCommandError naming the first place:
// a double that is not finite, a string that is not UTF-8, containers nested deeper than the
// library's readers take.
#pragma once

#include <memory>
#include <string>

class CSettingsObject;

namespace SettingsJSONText
{
// `root_I` must be a map or an array; the text ends without a line feed.
std::string Write(const std::shared_ptr<CSettingsObject>& root_I);

// A place in a tree as a JSON pointer ("/caps/0/Name"; "" is the root).
std::string PointerTo(const std::string& parent_I, const std::string& key_I);
} // namespace SettingsJSONText
