// The JSON side of CSettingsObject: the value dispatcher, whole documents and files.
#include "Common/AtomicFileWrite.h"
#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsNULL.h"
#include "Common/Settings/CSettingsObject.h"
#include "Common/Settings/CSettingsString.h"
#include "Common/Settings/CSettingsWriteCheck.h"
#include "Common/Settings/SettingsJSONLexer.h"

#include <exception>
#include <fstream>
#include <iterator>

namespace
{
// A file is read up to its first 0x04 (end of transmission) byte.
constexpr char kEndOfText = 0x04;

bool IsContainer(const CSettingsObject& object_I)
{
    std::string typeName = object_I.GetTypeName();
    return typeName == CSettingsMap::GetClassTypeName() ||
           typeName == CSettingsArray::GetClassTypeName();
}
} // namespace

std::shared_ptr<CSettingsObject> CSettingsObject::ReadFromJSONNode(const std::string& buffer_I,
                                                                   size_t& pos_IO)
{
    using namespace SettingsJSONLexer;
    while (pos_IO < buffer_I.size())
    {
        if (SkipComment(buffer_I, pos_IO))
        {
            continue;
        }
        char c = buffer_I[pos_IO];
        if (c == '{')
        {
            std::shared_ptr<CSettingsMap> map = CSettingsMap::ReadFromJSONNode(buffer_I, pos_IO);
            // Inside a container, {"SbyteS":"<base64>"} stands for the bytes themselves.
            if (map && map->ObjectCount() == 1 &&
                map->TypeNameForKeyOrEmpty(CSettingsBytes::kJSONKey) ==
                    CSettingsBytes::GetClassTypeName())
            {
                return map->ObjectForKey(CSettingsBytes::kJSONKey);
            }
            return map;
        }
        if (c == '[')
        {
            return CSettingsArray::ReadFromJSONNode(buffer_I, pos_IO);
        }
        // No delimiter is required after the three words.
        if ((c == 't' && TextAt(buffer_I, pos_IO, "true")) ||
            (c == 'f' && TextAt(buffer_I, pos_IO, "false")))
        {
            return CSettingsBool::ReadFromJSONNode(buffer_I, pos_IO);
        }
        if (c == 'n' && TextAt(buffer_I, pos_IO, "null"))
        {
            return CSettingsNULL::ReadFromJSONNode(buffer_I, pos_IO);
        }
        if (c == '"')
        {
            return CSettingsString::ReadFromJSONNode(buffer_I, pos_IO);
        }
        if (StartsNumber(c))
        {
            size_t end = pos_IO;
            const std::string_view run = NumberRunAt(buffer_I, end);
            if (run.find_first_of(".eE") == std::string_view::npos)
            {
                return CSettingsInteger::ReadFromJSONNode(buffer_I, pos_IO);
            }
            return CSettingsDouble::ReadFromJSONNode(buffer_I, pos_IO);
        }
        // Stray characters are reported and skipped.
        if (!IsSpace(c))
        {
            KelAssertReport(__FILE__, __LINE__, "isspace(buffer_I[pos_IO])");
        }
        ++pos_IO;
    }
    return nullptr;
}

std::shared_ptr<CSettingsObject> CSettingsObject::ReadFromJSONBuffer(const std::string& buffer_I)
{
    using namespace SettingsJSONLexer;
    size_t pos = 0;
    while (pos < buffer_I.size())
    {
        if (SkipComment(buffer_I, pos))
        {
            continue;
        }
        char c = buffer_I[pos];
        // At the top level a one-entry "SbyteS" object stays a map.
        if (c == '{')
        {
            return CSettingsMap::ReadFromJSONNode(buffer_I, pos);
        }
        if (c == '[')
        {
            return CSettingsArray::ReadFromJSONNode(buffer_I, pos);
        }
        if (!IsSpace(c))
        {
            KelAssertReport(__FILE__, __LINE__, "isspace(buffer_I[pos])");
        }
        ++pos;
    }
    return nullptr;
}

std::shared_ptr<CSettingsObject> CSettingsObject::ReadFromJSONFile(const std::string& path_I)
{
    try
    {
        std::ifstream file(path_I, std::ios::binary);
        if (!file)
        {
            return nullptr;
        }
        std::string text;
        std::getline(file, text, kEndOfText);
        return ReadFromJSONBuffer(text);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "ReadFromJSONFile: %s\n", error.what());
    }
    return nullptr;
}

std::string CSettingsObject::GetJSONString() const
{
    CSettingsWriteCheck check;
    std::string text = IsContainer(*this) ? CreateJSONNode(0) : std::string();
    if (check.ReportIfRefused("GetJSONString"))
    {
        return std::string();
    }
    return text;
}

bool CSettingsObject::SaveJSONToFile(const std::string& path_I) const
{
    if (!IsContainer(*this))
    {
        return false;
    }
    try
    {
        // The text first: a tree the readers would refuse leaves the file as it was. A
        // container's text is never empty, so empty means refused.
        const std::string text = GetJSONString();
        if (text.empty())
        {
            return false;
        }
        // Replaced whole or not at all: a full disk keeps the old settings.
        const std::string contents = text + '\n';
        std::string error;
        if (!WriteFileAtomically(path_I, contents.data(), contents.size(), error))
        {
            std::fprintf(stderr, "SaveJSONToFile: %s: %s\n", path_I.c_str(), error.c_str());
            return false;
        }
        return true;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "SaveJSONToFile: %s\n", error.what());
    }
    return false;
}
