// How tabletctl shows the data of a reply it cannot know the meaning of: as hexadecimal
// bytes, and as the value of a type (given, or guessed).
//
//   type      shows the data as
//   auto      settings when it is a settings archive; else a string when it is printable
//             text with its terminating 0; else u8/u16/u32/u64 for 1, 2, 4 or 8 bytes;
//             else bytes only
//   hex       the bytes only
//   u8 u16 u32 u64 i8 i16 i32 i64 bool string settings
//             that type; data of the wrong size or form is an error
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace RawReplyOutput
{
struct SShown
{
    // "u16", "settings", ...; empty when only the bytes are shown.
    std::string mType;
    nlohmann::ordered_json mValue;
    // The value as text: one line, or the indented lines of a settings tree.
    std::string mText;
};

// Throws CCommandError when the data is not of the type asked for.
SShown Show(const std::vector<unsigned char>& data_I, const std::string& type_I);

// "02 00 ff"
std::string Hex(const std::vector<unsigned char>& data_I);
} // namespace RawReplyOutput
