// The installed manual pages: well-formed for groff, and saying what the installed programs
// say of themselves in --help. The pages are written by hand (docs/man/); these tests are
// what keeps them from drifting when an option, a subcommand or a configuration key changes.
#include "Install/InstallTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace InstallTest;
namespace fs = std::filesystem;

namespace
{
fs::path ManualPage(const std::string& program_I)
{
    return InstalledTree("prefix").OnDisk(Layout::ManDir() / "man1" / (program_I + ".1"));
}

std::string Help(const std::vector<std::string>& arguments_I)
{
    std::string commandLine =
        ShellQuote(InstalledTree("prefix").OnDisk(Layout::BinDir() / arguments_I[0]).string());
    for (size_t i = 1; i < arguments_I.size(); ++i)
    {
        commandLine += " " + ShellQuote(arguments_I[i]);
    }
    const SCommandResult result = RunCommand(commandLine + " --help");
    EXPECT_EQ(result.mStatus, 0) << commandLine;
    return result.mOutput;
}

// The page's text with the escapes it uses turned back into the characters they print.
std::string PlainText(const std::string& page_I)
{
    static const std::pair<std::regex, std::string> kEscapes[] = {
        {std::regex(R"(\\f[BIRP])"), ""}, {std::regex(R"(\\-)"), "-"},
        {std::regex(R"(\\\(aq)"), "'"},   {std::regex(R"(\\\(dq)"), "\""},
        {std::regex(R"(\\&)"), ""},       {std::regex(R"(\\e)"), "\\"},
    };
    std::string text = page_I;
    for (const auto& [escape, replacement] : kEscapes)
    {
        text = std::regex_replace(text, escape, replacement);
    }
    return text;
}

// The page's sections (.SH) by name, each with its plain text.
std::map<std::string, std::string> PageSections(const std::string& page_I)
{
    std::map<std::string, std::string> sections;
    std::istringstream lines(PlainText(page_I));
    std::string current;
    for (std::string line; std::getline(lines, line);)
    {
        if (line.rfind(".SH ", 0) == 0)
        {
            current = line.substr(4);
            if (current.size() >= 2 && current.front() == '"' && current.back() == '"')
            {
                current = current.substr(1, current.size() - 2);
            }
            sections[current];
            continue;
        }
        sections[current] += line + "\n";
    }
    return sections;
}

// The help's sections: a line in capitals at the left margin starts one.
std::map<std::string, std::string> HelpSections(const std::string& help_I)
{
    static const std::regex heading("^[A-Z][A-Z ]+$");
    std::map<std::string, std::string> sections;
    std::istringstream lines(help_I);
    std::string current;
    for (std::string line; std::getline(lines, line);)
    {
        if (std::regex_match(line, heading))
        {
            current = line;
            sections[current];
            continue;
        }
        sections[current] += line + "\n";
    }
    return sections;
}

std::set<std::string> Matches(const std::string& text_I, const std::regex& pattern_I,
                              int group_I = 0)
{
    std::set<std::string> found;
    for (std::sregex_iterator it(text_I.begin(), text_I.end(), pattern_I), end; it != end; ++it)
    {
        found.insert((*it)[group_I].str());
    }
    return found;
}

const std::regex kLongOption(R"(--[a-z][a-z0-9-]*)");

bool HasWord(const std::string& text_I, const std::string& word_I)
{
    return std::regex_search(text_I,
                             std::regex("(^|[^A-Za-z0-9_-])" + word_I + "($|[^A-Za-z0-9_-])"));
}
} // namespace

// groff reads every page without a warning (-ww: all of them), and the page has the
// sections a manual page is expected to have.
TEST(ManualPages, AreInstalledAndReadByGroffWithoutWarnings)
{
    for (const char* program : {"TabletDriver", "tabletctl", "simdriver"})
    {
        SCOPED_TRACE(program);
        const fs::path page = ManualPage(program);
        ASSERT_TRUE(fs::is_regular_file(page)) << page;
        const SCommandResult groff =
            RunCommand("groff -man -ww -z -Tutf8 " + ShellQuote(page.string()) + " 2>&1");
        EXPECT_EQ(groff.mStatus, 0);
        EXPECT_EQ(groff.mOutput, "");

        const std::map<std::string, std::string> sections = PageSections(ReadFile(page));
        for (const char* name : {"NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS"})
        {
            EXPECT_TRUE(sections.count(name)) << name;
        }
        EXPECT_NE(sections.at("NAME").find(std::string(program) + " - "), std::string::npos);
    }
}

// simdriver's --help is written as a manual page in plain text: the page has each of its
// sections, exactly its options, every configuration key and every request a fault names.
TEST(ManualPages, SimulatedDriverPageSaysWhatItsHelpSays)
{
    const std::string help = Help({"simdriver"});
    const std::map<std::string, std::string> helpSections = HelpSections(help);
    const std::string page = ReadFile(ManualPage("simdriver"));
    const std::map<std::string, std::string> pageSections = PageSections(page);
    ASSERT_GT(helpSections.size(), 5u) << help;

    for (const auto& [name, text] : helpSections)
    {
        if (!name.empty())
        {
            EXPECT_TRUE(pageSections.count(name)) << "no section " << name;
        }
    }
    EXPECT_EQ(Matches(PlainText(page), kLongOption), Matches(help, kLongOption));

    ASSERT_TRUE(helpSections.count("CONFIGURATION"));
    ASSERT_TRUE(pageSections.count("CONFIGURATION"));
    const std::string& helpConfiguration = helpSections.at("CONFIGURATION");
    const std::string& pageConfiguration = pageSections.at("CONFIGURATION");
    const std::set<std::string> keys =
        Matches(helpConfiguration, std::regex(R"re("([A-Z][A-Za-z]+)")re"), 1);
    EXPECT_GT(keys.size(), 10u);
    for (const std::string& key : keys)
    {
        EXPECT_TRUE(HasWord(pageConfiguration, key)) << "configuration key " << key;
    }

    // "Request" required, one of: any, byte-order, ... (up to the next key)
    std::smatch requests;
    ASSERT_TRUE(
        std::regex_search(helpConfiguration, requests, std::regex(R"re(one of:([^"]*))re")));
    const std::set<std::string> kinds = Matches(requests[1].str(), std::regex(R"([a-z][a-z-]*)"));
    EXPECT_GT(kinds.size(), 5u);
    for (const std::string& kind : kinds)
    {
        EXPECT_TRUE(HasWord(pageConfiguration, kind)) << "request " << kind;
    }
}

namespace
{
// A command of tabletctl as its help lists it: the words that lead to it and its aliases.
struct SCommand
{
    std::vector<std::string> mPath;
    std::vector<std::string> mAliases;
};

// The "Subcommands:" block of a CLI11 help: "  name, alias      description".
std::vector<std::pair<std::string, std::vector<std::string>>> Subcommands(const std::string& help_I)
{
    static const std::regex entry(R"(^  ([a-z][a-z0-9-]*)((, [a-z][a-z0-9-]*)*)  +\S)");
    std::vector<std::pair<std::string, std::vector<std::string>>> found;
    std::istringstream lines(help_I);
    bool inBlock = false;
    for (std::string line; std::getline(lines, line);)
    {
        if (line == "Subcommands:")
        {
            inBlock = true;
            continue;
        }
        std::smatch match;
        if (!inBlock || !std::regex_search(line, match, entry))
        {
            inBlock = inBlock && !line.empty();
            continue;
        }
        found.push_back({match[1].str(), {}});
        const std::string aliases = match[2].str();
        for (const std::string& alias : Matches(aliases, std::regex(R"([a-z][a-z0-9-]*)")))
        {
            found.back().second.push_back(alias);
        }
    }
    return found;
}

// Every command of tabletctl, depth first, with the options all their helps name.
void CollectCommands(const std::vector<std::string>& path_I, std::vector<SCommand>& commands_IO,
                     std::set<std::string>& options_IO)
{
    std::vector<std::string> arguments = {"tabletctl"};
    arguments.insert(arguments.end(), path_I.begin(), path_I.end());
    const std::string help = Help(arguments);
    const std::set<std::string> options = Matches(help, kLongOption);
    options_IO.insert(options.begin(), options.end());
    for (const auto& [name, aliases] : Subcommands(help))
    {
        std::vector<std::string> path = path_I;
        path.push_back(name);
        commands_IO.push_back({path, aliases});
        CollectCommands(path, commands_IO, options_IO);
    }
}
} // namespace

// Every command and alias that tabletctl's helps list has its own subsection (.SS) in the
// page, and the page names exactly the options the helps name.
TEST(ManualPages, ClientPageHasEveryCommandAndExactlyItsOptions)
{
    std::vector<SCommand> commands;
    std::set<std::string> options;
    CollectCommands({}, commands, options);
    ASSERT_GT(commands.size(), 10u);

    const std::string page = PlainText(ReadFile(ManualPage("tabletctl")));
    std::vector<std::string> subsections;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
    {
        if (line.rfind(".SS ", 0) == 0)
        {
            std::string title = line.substr(4);
            title.erase(std::remove(title.begin(), title.end(), '"'), title.end());
            subsections.push_back(title);
        }
    }
    for (const SCommand& command : commands)
    {
        std::string path;
        for (const std::string& word : command.mPath)
        {
            path += (path.empty() ? "" : " ") + word;
        }
        const auto subsection = std::find_if(subsections.begin(), subsections.end(),
                                             [&](const std::string& title) {
                                                 return title == path ||
                                                        title.rfind(path + " ", 0) == 0 ||
                                                        title.rfind(path + ",", 0) == 0;
                                             });
        ASSERT_NE(subsection, subsections.end()) << "no subsection for " << path;
        for (const std::string& alias : command.mAliases)
        {
            EXPECT_TRUE(HasWord(*subsection, alias)) << path << " alias " << alias;
        }
    }
    EXPECT_EQ(Matches(page, kLongOption), options);
}
