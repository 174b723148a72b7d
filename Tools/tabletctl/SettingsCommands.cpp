#include "Tools/tabletctl/SettingsCommands.h"

#include "Common/Settings/CSettingsObject.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/ToolFiles.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

namespace
{
// A settings file is read as JSON up to its first 0x04 byte, as the library reads files.
constexpr char kEndOfText = 0x04;

std::shared_ptr<CSettingsObject> JSONFromBytes(const std::vector<uint8_t>& bytes_I,
                                               const std::string& path_I)
{
    std::string text(bytes_I.begin(), bytes_I.end());
    text.erase(std::min(text.find(kEndOfText), text.size()));
    std::shared_ptr<CSettingsObject> root = CSettingsObject::ReadFromJSONBuffer(text);
    if (!root)
    {
        throw CCommandError(path_I + ": not a settings JSON document (its top level must be an "
                                     "object or an array, and every value in it readable)");
    }
    return root;
}

std::shared_ptr<CSettingsObject> ArchiveFromBytes(const std::vector<uint8_t>& bytes_I,
                                                  const std::string& path_I)
{
    std::string failure;
    std::shared_ptr<CSettingsObject> root = CSettingsObject::ReadFromASN1Binary(bytes_I, failure);
    if (!root)
    {
        throw CCommandError(path_I + ": not a settings archive: " + failure);
    }
    return root;
}

// Archives begin with the integer node of their magic number; JSON text never with 0x02.
bool LooksLikeArchive(const std::vector<uint8_t>& bytes_I)
{
    return !bytes_I.empty() && bytes_I[0] == 0x02;
}

void ToArchive(const std::string& input_I, const std::string& output_I)
{
    std::shared_ptr<CSettingsObject> root = JSONFromBytes(ToolFiles::ReadBytes(input_I), input_I);
    ToolFiles::WriteBytes(output_I, root->GetASN1Binary());
}

void ToJSON(const std::string& input_I, const std::string& output_I)
{
    std::shared_ptr<CSettingsObject> root =
        ArchiveFromBytes(ToolFiles::ReadBytes(input_I), input_I);
    std::string text = root->GetJSONString();
    if (text.empty())
    {
        throw CCommandError(input_I + ": the archive holds a single " + root->GetTypeName() +
                            ", and JSON settings text holds only a map or an array");
    }
    text += '\n';
    ToolFiles::WriteBytes(output_I, std::vector<uint8_t>(text.begin(), text.end()));
}

void Trace(const std::string& input_I, const std::string& format_I)
{
    // Read once: "-" may be a pipe.
    std::vector<uint8_t> bytes = ToolFiles::ReadBytes(input_I);
    bool archive = format_I == "archive" || (format_I == "auto" && LooksLikeArchive(bytes));
    std::shared_ptr<CSettingsObject> root =
        archive ? ArchiveFromBytes(bytes, input_I) : JSONFromBytes(bytes, input_I);
    std::printf("%s\n", root->GetTraceString().c_str());
}
} // namespace

void AddSettingsCommands(CLI::App& app_IO)
{
    CLI::App* settings =
        app_IO.add_subcommand("settings", "Convert and inspect settings (JSON text and archives)");
    settings->require_subcommand(1);

    // The option values live as long as the program: CLI11 fills them during parsing and
    // runs the callbacks after.
    static std::string input;
    static std::string output;
    static std::string format = "auto";

    CLI::App* toArchive =
        settings->add_subcommand("to-archive", "Write the binary archive of a JSON settings file");
    toArchive->add_option("json", input, "JSON settings file, - for standard input")->required();
    toArchive->add_option("archive", output, "archive to write, - for standard output")->required();
    toArchive->callback([] { ToArchive(input, output); });

    CLI::App* toJSON =
        settings->add_subcommand("to-json", "Write the JSON text of a binary settings archive");
    toJSON->add_option("archive", input, "archive file, - for standard input")->required();
    toJSON->add_option("json", output, "JSON file to write, - for standard output")->required();
    toJSON->callback([] { ToJSON(input, output); });

    CLI::App* trace =
        settings->add_subcommand("trace", "Print the one-line trace of a settings file");
    trace->add_option("file", input, "archive or JSON file, - for standard input")->required();
    trace->add_option("--format", format, "how to read the file (default: by its first byte)")
        ->check(CLI::IsMember({"auto", "json", "archive"}));
    trace->callback([] { Trace(input, format); });
}
