// The installed manual page and completions: those of this very table of commands.

#include "tools/nimauthctl/documents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "support/files.h"
#include "support/run_program.h"
#include "tools/nimauthctl/command_table.h"

namespace nimbrel::testing {
namespace {

using nimauthctl::Command;
using nimauthctl::Commands;
using nimauthctl::GlobalOptions;
using nimauthctl::Option;
using ::testing::HasSubstr;

constexpr char kBash[] = "/usr/share/bash-completion/completions/nimauthctl";

TEST(DocumentsTest, InstalledOnesAreMadeFromThisTable) {
    EXPECT_EQ(nimauthctl::ManPage(), ReadFile("/usr/share/man/man8/nimauthctl.8"));
    EXPECT_EQ(nimauthctl::BashCompletion(), ReadFile(kBash));
    EXPECT_EQ(nimauthctl::ZshCompletion(), ReadFile("/usr/share/zsh/vendor-completions/_nimauthctl"));
    EXPECT_EQ(nimauthctl::FishCompletion(), ReadFile("/usr/share/fish/vendor_completions.d/nimauthctl.fish"));
}

std::string WithoutEscapes(std::string text) {
    for (std::size_t at; (at = text.find("\\-")) != std::string::npos;) text.erase(at, 1);
    return text;
}

TEST(DocumentsTest, ManPageTellsEverythingOfEveryCommand) {
    const std::string page = WithoutEscapes(nimauthctl::ManPage());
    for (const Command& command : Commands()) {
        EXPECT_THAT(page, HasSubstr("\n.SS " + Synopsis(command) + '\n'));
        for (const Option& option : command.options) EXPECT_THAT(page, HasSubstr("--" + option.Key())) << command.name;
    }
    EXPECT_THAT(page, HasSubstr("\nExit status besides 0, 1 and 2: 3, 4, 5, 7, 9.\n"));
    for (const Option& option : GlobalOptions()) EXPECT_THAT(page, HasSubstr("--" + option.Key()));
}

TEST(DocumentsTest, ManPageNamesTheFilesThatTheToolGoesBy) {
    const std::string page = nimauthctl::ManPage();
    for (const char* const name :
         {"authentication.conf", "provider.conf", "apxprovider.conf", "ad.conf", "apxhttps.conf",
          "/var/lib/nimbrel/ad/membership", "/var/lib/nimbrel/logins/", "apxd\\fR(8)"}) {
        EXPECT_THAT(page.substr(page.find(".SH FILES")), HasSubstr(name));
    }
}

TEST(DocumentsTest, ManPageHasNoLineThatTroffTakesForARequest) {
    const std::set<std::string> kRequests = {".TH", ".SH", ".SS", ".PP", ".TP", ".nf", ".fi"};
    std::istringstream lines(nimauthctl::ManPage());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(!line.starts_with('.') || kRequests.contains(line.substr(0, 3))) << line;
        EXPECT_FALSE(line.starts_with('\'')) << line;
    }
}

std::vector<std::string> Flags(const std::vector<Option>& options) {
    std::vector<std::string> flags;
    for (const Option& option : options) {
        flags.push_back("--" + option.Key());
        if (option.flags.find(',') != std::string::npos) flags.push_back(option.flags.substr(0, 2));
    }
    return flags;
}

// What bash offers behind each of the lines, one list of sorted words for each.
std::vector<std::string> Offered(const std::vector<std::string>& lines) {
    std::string script = std::string("source ") + kBash + "\n";
    for (const std::string& line : lines) {
        script += "COMP_WORDS=(nimauthctl " + line + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _nimauthctl\n";
        script += "printf '%s\\n' \"${COMPREPLY[@]}\" | sort | tr '\\n' ' '; echo\n";
    }
    const ProgramResult result = RunProgram("/bin/bash", {.input = script, .environment = {"LC_ALL=C"}});
    EXPECT_EQ("", result.errors);
    std::vector<std::string> offered;
    std::istringstream output(result.output);
    for (std::string line; std::getline(output, line);) offered.push_back(line);
    return offered;
}

std::string Sorted(std::vector<std::string> words) {
    std::sort(words.begin(), words.end());
    std::string text;
    for (const std::string& word : words) text += word + ' ';
    return text;
}

TEST(DocumentsTest, BashOffersTheOptionsOfEveryCommand) {
    std::vector<std::string> lines;
    for (const Command& command : Commands()) lines.push_back(command.name + " -");
    const std::vector<std::string> offered = Offered(lines);
    ASSERT_EQ(Commands().size(), offered.size());
    for (std::size_t at = 0; at < offered.size(); ++at) {
        std::vector<std::string> expected = Flags(Commands()[at].options);
        for (const std::string& flag : Flags(GlobalOptions())) expected.push_back(flag);
        EXPECT_EQ(Sorted(expected), offered[at]) << Commands()[at].name;
    }
}

TEST(DocumentsTest, BashOffersCommandsAndPassesOptionsWithTheirValuesOver) {
    const std::vector<std::string> offered =
        Offered({"sto", "store ''", "--timeout 5 -v store ''", "--timeout ''", "store set ''", "directory user r"});
    EXPECT_EQ((std::vector<std::string>{"store ", "list set show ", "list set show ", " ", " ", "remove "}), offered);
}

TEST(DocumentsTest, OtherShellsAreToldOfEveryCommandAndOption) {
    const std::string zsh = nimauthctl::ZshCompletion();
    const std::string fish = nimauthctl::FishCompletion();
    for (const Command& command : Commands()) {
        EXPECT_THAT(zsh, HasSubstr("\n    ('" + command.name + "')\n"));
        const std::size_t blank = command.name.rfind(' ');
        const std::string place = blank == std::string::npos ? "" : command.name.substr(0, blank);
        const std::string word = blank == std::string::npos ? command.name : command.name.substr(blank + 1);
        EXPECT_THAT(fish, HasSubstr(" -n '__nimauthctl_at " + place + "' -a " + word + " -d "));
        for (const Option& option : command.options) {
            EXPECT_THAT(fish, HasSubstr(" -l " + option.Key())) << command.name;
            EXPECT_THAT(zsh, HasSubstr(" '--" + option.Key() + ":")) << command.name;
        }
    }
}

}  // namespace
}  // namespace nimbrel::testing
