#include "Tools/tabletctl/SettingsJSONText.h"

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsNestingGuard.h"
#include "Common/Settings/CSettingsString.h"
#include "Tools/tabletctl/CCommandError.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace SettingsJSONText
{
namespace
{
// Whether `text_I` is well-formed UTF-8 (no overlong forms, surrogates or values past
// U+10FFFF).
bool IsUTF8(const std::string& text_I)
{
    size_t i = 0;
    while (i < text_I.size())
    {
        const auto c = static_cast<unsigned char>(text_I[i]);
        size_t length = c < 0x80           ? 1
                        : (c >> 5) == 0x6  ? 2
                        : (c >> 4) == 0xE  ? 3
                        : (c >> 3) == 0x1E ? 4
                                           : 0;
        if (length == 0 || i + length > text_I.size())
        {
            return false;
        }
        unsigned long point = length == 1 ? c : c & (0x7F >> length);
        for (size_t k = 1; k < length; ++k)
        {
            const auto next = static_cast<unsigned char>(text_I[i + k]);
            if ((next & 0xC0) != 0x80)
            {
                return false;
            }
            point = (point << 6) | (next & 0x3F);
        }
        static const unsigned long kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (point < kSmallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
        {
            return false;
        }
        i += length;
    }
    return true;
}

void AppendString(const std::string& text_I, const std::string& where_I, std::string& out_IO)
{
    if (!IsUTF8(text_I))
    {
        throw CCommandError("the text at '" + where_I + "' is not UTF-8, which JSON cannot hold");
    }
    out_IO += '"';
    for (const char c : text_I)
    {
        switch (c)
        {
        case '"':
            out_IO += "\\\"";
            break;
        case '\\':
            out_IO += "\\\\";
            break;
        case '\n':
            out_IO += "\\n";
            break;
        case '\r':
            out_IO += "\\r";
            break;
        case '\t':
            out_IO += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
            {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
                out_IO += escape;
            }
            else
            {
                out_IO += c;
            }
        }
    }
    out_IO += '"';
}

std::string DoubleText(double value_I, const std::string& where_I)
{
    if (!std::isfinite(value_I))
    {
        throw CCommandError("the number at '" + where_I +
                            "' is not finite, which JSON cannot hold");
    }
    char text[40];
    std::snprintf(text, sizeof text, "%f", value_I);
    if (std::strtod(text, nullptr) != value_I)
    {
        std::snprintf(text, sizeof text, "%.17g", value_I);
    }
    std::string result = text;
    // Read back as a double, never as an integer.
    if (result.find_first_of(".eE") == std::string::npos)
    {
        result += ".0";
    }
    return result;
}

void AppendNode(const std::shared_ptr<CSettingsObject>& node_I, const std::string& where_I,
                int indent_I, std::string& out_IO)
{
    if (!node_I)
    {
        out_IO += "null";
        return;
    }
    CSettingsNestingGuard guard;
    const std::string type = node_I->GetTypeName();
    if ((type == "map" || type == "array") && guard.TooDeep())
    {
        throw CCommandError("the value at '" + where_I + "' lies deeper than " +
                            std::to_string(CSettingsNestingGuard::kMaxNestingDepth) +
                            " levels, which the settings readers do not take");
    }
    const std::string padding(static_cast<size_t>(indent_I) + 1, '\t');
    if (auto map = std::dynamic_pointer_cast<CSettingsMap>(node_I))
    {
        const std::vector<std::string> keys = map->GetKeys();
        out_IO += keys.empty() ? "{" : "{\n";
        for (size_t i = 0; i < keys.size(); ++i)
        {
            out_IO += padding;
            AppendString(keys[i], where_I, out_IO);
            out_IO += ": ";
            AppendNode(map->ObjectForKey(keys[i]), PointerTo(where_I, keys[i]), indent_I + 1,
                       out_IO);
            out_IO += i + 1 < keys.size() ? ",\n" : "\n" + padding.substr(1);
        }
        out_IO += "}";
    }
    else if (auto array = std::dynamic_pointer_cast<CSettingsArray>(node_I))
    {
        const size_t count = array->ObjectCount();
        out_IO += count == 0 ? "[" : "[\n";
        for (size_t i = 0; i < count; ++i)
        {
            out_IO += padding;
            AppendNode(array->ObjectForIndex(i), PointerTo(where_I, std::to_string(i)),
                       indent_I + 1, out_IO);
            out_IO += i + 1 < count ? ",\n" : "\n" + padding.substr(1);
        }
        out_IO += "]";
    }
    else if (auto text = std::dynamic_pointer_cast<CSettingsString>(node_I))
    {
        AppendString(text->GetValue(), where_I, out_IO);
    }
    else if (type == "kestring")
    {
        AppendString(node_I->GetStringValue(), where_I, out_IO);
    }
    else if (auto number = std::dynamic_pointer_cast<CSettingsDouble>(node_I))
    {
        out_IO += DoubleText(number->GetValue(), where_I);
    }
    else
    {
        // null, bool, integer and bytes: the library's own form is valid JSON.
        out_IO += node_I->CreateJSONNode(-1);
    }
}
} // namespace

std::string Write(const std::shared_ptr<CSettingsObject>& root_I)
{
    std::string text;
    AppendNode(root_I, "", 0, text);
    return text;
}

std::string PointerTo(const std::string& parent_I, const std::string& key_I)
{
    std::string pointer = parent_I + "/";
    for (const char c : key_I)
    {
        pointer += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    }
    return pointer;
}
} // namespace SettingsJSONText
