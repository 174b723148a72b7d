// StringUtilities: splitting, case handling, trimming and comparing text, base64, UTF-8 code
// points and the text form of remote and wireless device identifiers.
//
// Every text function has a narrow (std::string) and a wide (std::wstring) twin with the same
// behaviour; the base64, UTF-8 and identifier functions are narrow only. Case handling and
// white space are the C library's, character by character (tolower/toupper/isspace and their
// wide forms), in the C locale the program runs in. Nothing here throws to the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace StringUtilities
{
// Every character of delimiters_I separates tokens. An empty text gives no tokens; a leading
// delimiter gives an empty first token and two adjacent delimiters an empty token between
// them (unless removeEmpty_I); a trailing delimiter gives no empty last token.
std::vector<std::string> Tokenize(const std::string& text_I, const std::string& delimiters_I,
                                  bool removeEmpty_I);
std::vector<std::wstring> Tokenize(const std::wstring& text_I, const std::wstring& delimiters_I,
                                   bool removeEmpty_I);

void ToLower(std::string& text_IO);
void ToLower(std::wstring& text_IO);
void ToUpper(std::string& text_IO);
void ToUpper(std::wstring& text_IO);
std::string ToLower_Copy(const std::string& text_I);
std::wstring ToLower_Copy(const std::wstring& text_I);
std::string ToUpper_Copy(const std::string& text_I);
std::wstring ToUpper_Copy(const std::wstring& text_I);

// Removes leading, then trailing white space.
void Trim(std::string& text_IO);
void Trim(std::wstring& text_IO);
std::string Trim_Copy(const std::string& text_I);
std::wstring Trim_Copy(const std::wstring& text_I);

// Equal byte for byte, or equal once both are lower-cased.
bool IEquals(const std::string& a_I, const std::string& b_I);
bool IEquals(const std::wstring& a_I, const std::wstring& b_I);

// First occurrence of sub_I ignoring case, or npos.
std::string::size_type IFindFirst(const std::string& text_I, const std::string& sub_I);
std::wstring::size_type IFindFirst(const std::wstring& text_I, const std::wstring& sub_I);
bool IContains(const std::string& text_I, const std::string& sub_I);
bool IContains(const std::wstring& text_I, const std::wstring& sub_I);
bool Contains(const std::string& text_I, const std::string& sub_I);
bool Contains(const std::wstring& text_I, const std::wstring& sub_I);

// Replaces every occurrence of from_I, found ignoring case, by to_I. The search goes on after
// the inserted text, so a replacement that contains from_I is not replaced again. An empty
// from_I changes nothing.
void IReplaceAll(std::string& text_IO, const std::string& from_I, const std::string& to_I);
void IReplaceAll(std::wstring& text_IO, const std::wstring& from_I, const std::wstring& to_I);

// False when the text is empty or shorter than the prefix (so an empty text never starts with
// anything, not even the empty prefix); otherwise the exact prefix test.
bool StartsWith(const std::string& text_I, const std::string& prefix_I);
bool StartsWith(const std::wstring& text_I, const std::wstring& prefix_I);
bool EndsWith(const std::string& text_I, const std::string& suffix_I);
bool EndsWith(const std::wstring& text_I, const std::wstring& suffix_I);
bool IEndsWith(const std::string& text_I, const std::string& suffix_I);
bool IEndsWith(const std::wstring& text_I, const std::wstring& suffix_I);

// Base64 with the standard alphabet and without padding: a final group of one byte gives two
// characters, of two bytes three. Text padded with '=' by other tools is therefore refused:
// any character outside the alphabet (padding and white space included) makes the whole
// result empty.
std::string GetBase64(const std::vector<uint8_t>& bytes_I);
std::vector<uint8_t> GetBytesFromBase64(const std::string& text_I);

// One code point as UTF-8. Code points 0x10000 to 0x10FFFF give the four bytes E0, 80,
// 80 | (cp >> 6 & 0x3F), 80 | (cp & 0x3F): the bits above the low twelve are not carried.
// That is not standard UTF-8, and it is kept exactly so on purpose: text written earlier
// carries these bytes. Negative code points and those above 0x10FFFF give the empty string.
std::string EncodeUnicodePointToUTF8(int codePoint_I);

// Decodes the sequence at pos_IO and moves pos_IO past it. At or beyond the end of the text:
// 0, with *ok_O true only when pos_IO is 0. An invalid sequence (a continuation byte in lead
// position, a lead byte C0, C1 or F5 and above, a missing or malformed continuation byte)
// sets *ok_O false, returns U+FFFD and moves pos_IO one byte on. Over-long three- and
// four-byte forms and surrogates are accepted. ok_O may be null.
int DecodeUTF8ToUnicodePoint(const std::string& text_I, std::size_t& pos_IO, bool* ok_O);

// True for the empty text; otherwise false at the first sequence that does not decode.
bool IsValidUTF8(const std::string& text_I);

// "R#", the top 8 bits as 2 upper-case hex digits, "-", the low 24 bits as 6: R#12-ABCDEF.
std::string StringFromRemoteID(uint32_t id_I);
// The reverse: 0 unless the text is 11 characters long and starts with "R#". The character
// between the two numbers is not checked; each number is read as far as it has hex digits.
uint32_t StringToRemoteID(const std::string& text_I);

// "WL#" and the identifier in upper-case hex, at least 6 digits: WL#001A2B.
std::string StringFromWirelessID(uint32_t id_I);
} // namespace StringUtilities
