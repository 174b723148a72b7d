#include "Common/Settings/SettingsJSONLexer.h"

#include <cctype>
#include <cstdio>

namespace SettingsJSONLexer
{
bool TextAt(const std::string& buffer_I, size_t pos, std::string_view word)
{
    return pos <= buffer_I.size() && std::string_view(buffer_I).substr(pos).starts_with(word);
}

bool SkipComment(const std::string& buffer_I, size_t& pos_IO)
{
    if (pos_IO >= buffer_I.size() || buffer_I[pos_IO] != '/' || !TextAt(buffer_I, pos_IO, "//"))
    {
        return false;
    }
    size_t lineFeed = buffer_I.find('\n', pos_IO + 2);
    pos_IO = lineFeed == std::string::npos ? buffer_I.size() : lineFeed;
    return true;
}

bool SkipSpaceAndComments(const std::string& buffer_I, size_t& pos_IO)
{
    while (pos_IO < buffer_I.size())
    {
        if (IsSpace(buffer_I[pos_IO]))
        {
            ++pos_IO;
        }
        else if (!SkipComment(buffer_I, pos_IO))
        {
            return true;
        }
    }
    return false;
}

std::string TakeNumberRun(const std::string& buffer_I, size_t& pos_IO)
{
    return std::string(NumberRunAt(buffer_I, pos_IO));
}

std::string_view NumberRunAt(const std::string& buffer_I, size_t& pos_IO)
{
    size_t start = pos_IO;
    while (pos_IO < buffer_I.size())
    {
        char c = buffer_I[pos_IO];
        if (!((c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E'))
        {
            break;
        }
        ++pos_IO;
    }
    return std::string_view(buffer_I).substr(start, pos_IO - start);
}
void ReportMissingSeparator(const char* reader_I, size_t pos)
{
    std::fprintf(stderr, "%s: missing ',' before offset %zu\n", reader_I, pos);
}
} // namespace SettingsJSONLexer
