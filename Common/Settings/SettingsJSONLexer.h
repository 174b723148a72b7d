// The lexical rules shared by the JSON readers of the settings classes: white space, line
// comments ("//" up to the next line feed) and the characters that make up a number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace SettingsJSONLexer
{
// The C library's white space, for any byte (bytes above 0x7F are not white space). Inline,
// as the next one: they are asked of nearly every character, from the readers of every type.
inline bool IsSpace(char c)
{
    // std::isspace of the "C" locale (no program here sets another), without the call.
    return c == ' ' || (c >= '\t' && c <= '\r');
}
// A digit or '-': the characters that start a number.
inline bool StartsNumber(char c)
{
    return (c >= '0' && c <= '9') || c == '-';
}
// Whether `word` stands at `pos` (false past the end).
bool TextAt(const std::string& buffer_I, size_t pos, std::string_view word);
// Skips white space and "//" comments; returns false at the end of the text.
bool SkipSpaceAndComments(const std::string& buffer_I, size_t& pos_IO);
// If "//" stands at `pos_IO`, moves past the comment (to its line feed or the end) and
// returns true.
bool SkipComment(const std::string& buffer_I, size_t& pos_IO);
// A value that follows the previous one with no ',' between them: prints
// "<reader_I>: missing ',' before offset <pos>" on standard error. The readers give null
// then, instead of letting the later value silently replace the earlier one.
void ReportMissingSeparator(const char* reader_I, size_t pos);
// The run of digits, '-', '+', '.', 'e' and 'E' at `pos_IO`; `pos_IO` moves past it.
std::string TakeNumberRun(const std::string& buffer_I, size_t& pos_IO);
// The same run without a copy (a view into `buffer_I`).
std::string_view NumberRunAt(const std::string& buffer_I, size_t& pos_IO);
} // namespace SettingsJSONLexer
