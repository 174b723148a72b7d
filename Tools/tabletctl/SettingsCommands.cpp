#include "Tools/tabletctl/SettingsCommands.h"

#include "Common/Settings/CSettingsObject.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/SettingsDifference.h"
#include "Tools/tabletctl/SettingsJSONText.h"
#include "Tools/tabletctl/StLibraryDiagnostics.h"
#include "Tools/tabletctl/ToolFiles.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

namespace
{
// A settings file is read as JSON up to its first 0x04 byte, as the library reads files.
constexpr char kEndOfText = 0x04;

std::string TextOf(const std::vector<uint8_t>& bytes_I)
{
    std::string text(bytes_I.begin(), bytes_I.end());
    text.erase(std::min(text.find(kEndOfText), text.size()));
    return text;
}

std::shared_ptr<CSettingsObject> JSONFromText(const std::string& text_I, const std::string& path_I,
                                              bool verbose_I)
{
    std::shared_ptr<CSettingsObject> root;
    {
        StLibraryDiagnostics diagnostics(verbose_I);
        root = CSettingsObject::ReadFromJSONBuffer(text_I);
    }
    if (!root)
    {
        throw CCommandError(path_I + ": not a settings JSON document (its top level must be an "
                                     "object or an array, and every value in it readable)");
    }
    return root;
}

std::shared_ptr<CSettingsObject> ArchiveFromBytes(const std::vector<uint8_t>& bytes_I,
                                                  const std::string& path_I, bool verbose_I)
{
    std::string failure;
    std::shared_ptr<CSettingsObject> root;
    {
        StLibraryDiagnostics diagnostics(verbose_I);
        root = CSettingsObject::ReadFromASN1Binary(bytes_I, failure);
    }
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

std::string LossMessage(const std::string& input_I, const std::string& where_I)
{
    return input_I + ": the value at '" + where_I + "' would be lost or changed; nothing written";
}

// The document as a strict JSON reader sees it (line and block comments allowed), to check
// the library's tolerant reader against: it skips stray characters and turns numbers it
// cannot hold into 0.
nlohmann::json StrictJSON(const std::string& text_I, const std::string& input_I)
{
    try
    {
        return nlohmann::json::parse(text_I, nullptr, true, true);
    }
    catch (const nlohmann::json::exception& error)
    {
        std::string what = error.what();
        what.erase(0, what.find("] ") == std::string::npos ? 0 : what.find("] ") + 2);
        throw CCommandError(input_I + ": not valid JSON: " + what);
    }
}

// JSON to archive, then both read back: the archive must give the tree the library read,
// and that tree must hold what the text holds.
void ToArchive(const std::string& input_I, const std::string& output_I, bool verbose_I)
{
    const std::string text = TextOf(ToolFiles::ReadBytes(input_I));
    std::shared_ptr<CSettingsObject> root = JSONFromText(text, input_I, verbose_I);
    const nlohmann::json strict = StrictJSON(text, input_I);

    const nlohmann::json kept = nlohmann::json::parse(SettingsJSONText::Write(root));
    const nlohmann::json patch = nlohmann::json::diff(strict, kept);
    if (!patch.empty())
    {
        throw CCommandError(LossMessage(input_I, patch.front().at("path").get<std::string>()));
    }
    std::vector<uint8_t> archive;
    std::shared_ptr<CSettingsObject> back;
    std::string failure;
    {
        StLibraryDiagnostics diagnostics(verbose_I);
        archive = root->GetASN1Binary();
        back = CSettingsObject::ReadFromASN1Binary(archive, failure);
    }
    if (archive.empty())
    {
        throw CCommandError(input_I + ": cannot be written as a settings archive");
    }
    // An archive that does not read back holds a null (its reader has no null node).
    if (const auto where = back ? SettingsDifference(root, back) : FirstNull(root))
    {
        throw CCommandError(
            LossMessage(input_I, *where) +
            (failure.empty() ? "" : " (the archive would not read back: " + failure + ")"));
    }
    ToolFiles::WriteBytes(output_I, archive);
}

// Archive to JSON text that any JSON reader takes, then read back by the library: it must
// give the tree the archive holds.
void ToJSON(const std::string& input_I, const std::string& output_I, bool verbose_I)
{
    std::shared_ptr<CSettingsObject> root =
        ArchiveFromBytes(ToolFiles::ReadBytes(input_I), input_I, verbose_I);
    const std::string type = root->GetTypeName();
    if (type != "map" && type != "array")
    {
        throw CCommandError(input_I + ": the archive holds a single " + type +
                            ", and JSON settings text holds only a map or an array");
    }
    std::string text;
    try
    {
        text = SettingsJSONText::Write(root);
    }
    catch (const CCommandError& error)
    {
        throw CCommandError(input_I + ": " + error.what() + "; nothing written");
    }
    std::shared_ptr<CSettingsObject> back;
    {
        StLibraryDiagnostics diagnostics(verbose_I);
        back = CSettingsObject::ReadFromJSONBuffer(text);
    }
    if (const auto where = SettingsDifference(root, back))
    {
        throw CCommandError(LossMessage(input_I, *where));
    }
    text += '\n';
    ToolFiles::WriteBytes(output_I, std::vector<uint8_t>(text.begin(), text.end()));
}

void Trace(const std::string& input_I, const std::string& format_I, bool verbose_I)
{
    // Read once: "-" may be a pipe.
    std::vector<uint8_t> bytes = ToolFiles::ReadBytes(input_I);
    bool archive = format_I == "archive" || (format_I == "auto" && LooksLikeArchive(bytes));
    std::shared_ptr<CSettingsObject> root = archive
                                                ? ArchiveFromBytes(bytes, input_I, verbose_I)
                                                : JSONFromText(TextOf(bytes), input_I, verbose_I);
    std::printf("%s\n", root->GetTraceString().c_str());
}
} // namespace

void AddSettingsCommands(CLI::App& app_IO, const SToolOptions& options_I)
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
    toArchive->callback([&options_I] { ToArchive(input, output, options_I.mVerbose); });

    CLI::App* toJSON =
        settings->add_subcommand("to-json", "Write the JSON text of a binary settings archive");
    toJSON->add_option("archive", input, "archive file, - for standard input")->required();
    toJSON->add_option("json", output, "JSON file to write, - for standard output")->required();
    toJSON->callback([&options_I] { ToJSON(input, output, options_I.mVerbose); });

    CLI::App* trace =
        settings->add_subcommand("trace", "Print the one-line trace of a settings file");
    trace->add_option("file", input, "archive or JSON file, - for standard input")->required();
    trace->add_option("--format", format, "how to read the file (default: by its first byte)")
        ->check(CLI::IsMember({"auto", "json", "archive"}));
    trace->callback([&options_I] { Trace(input, format, options_I.mVerbose); });
}
