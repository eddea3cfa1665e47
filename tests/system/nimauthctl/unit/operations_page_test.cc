// docs/operations.md against the sources: no log line and no exception is missing from it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "support/files.h"
#include "tools/nimauthctl/catalogue.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::HasSubstr;

std::string Page() { return ReadFile(NIMAUTH_SOURCE "/docs/operations.md"); }

using Folders = std::vector<std::string>;

const Folders kLibrary = {NIMAUTH_SOURCE "/src", NIMAUTH_SOURCE "/platform"};
const Folders kPlugins = {NIMAUTH_SOURCE "/plugins", NIMAUTH_SOURCE "/tools"};

// The first literal behind each match of `call` in the sources below the folders.
std::vector<std::string> Literals(const Folders& folders, const std::string& call) {
    const std::regex pattern(call + "\"((?:[^\"\\\\]|\\\\.)*)\"");
    std::vector<std::string> literals;
    for (const std::string& folder : folders) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.path().extension() != ".cc" && entry.path().extension() != ".h") continue;
            const std::string text = ReadFile(entry.path());
            for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
                literals.push_back((*match)[1]);
            }
        }
    }
    return literals;
}

constexpr char kLogCall[] = "[sS]yslog\\((?:handle, )?\\s*LOG_[A-Z]+,\\s*";

TEST(OperationsPageTest, EveryLogLineOfThePluginsIsOnThePage) {
    const std::vector<std::string> lines = Literals(kPlugins, kLogCall);
    EXPECT_GE(lines.size(), 11u);
    for (const std::string& line : lines) EXPECT_THAT(Page(), HasSubstr("| `" + line + "` |"));
}

TEST(OperationsPageTest, EveryLogLineIsOnThePage) {
    const std::string page = Page();
    std::vector<std::string> lines = Literals(kLibrary, kLogCall);
    EXPECT_GE(lines.size(), 15u);
    for (std::string line : lines) {
        if (line == "%s: %s") continue;  // the four below
        if (line.ends_with("\\n")) line.resize(line.size() - 2);
        EXPECT_THAT(page, HasSubstr("| `" + line + "` |"));
    }
    const std::vector<std::string> refreshes = Literals(kLibrary, "\\(");
    int steps = 0;
    for (const std::string& literal : refreshes) {
        if (!literal.starts_with("Failed to get ") || literal.find('%') != std::string::npos ||
            literal.find("object") != std::string::npos) {
            continue;
        }
        ++steps;
        EXPECT_THAT(page, HasSubstr("| `" + literal + ": %s` |"));
    }
    EXPECT_EQ(4, steps);
}

std::string Trimmed(std::string_view text) { return std::string(text.substr(0, text.find_last_not_of(' ') + 1)); }

TEST(OperationsPageTest, EveryExceptionIsOnThePageAsTheToolExplainsIt) {
    const std::string page = Page();
    for (const StatusEntry& entry : StatusEntries()) {
        EXPECT_THAT(page, HasSubstr("\n| " + std::to_string(entry.status) + " | `" + std::string(entry.exception) +
                                    "` | " + std::string(entry.cause) + " | " + std::string(entry.remedy) + " |\n"));
    }
    for (const StatusEntry& entry : ProxyEntries()) {
        EXPECT_THAT(page, HasSubstr("\n| " + std::to_string(entry.status) + " | " + std::string(entry.cause) + " | " +
                                    std::string(entry.remedy) + " |\n"));
    }
    for (const ClassEntry& entry : ClassEntries()) {
        const std::string text = entry.text.empty() ? "" : ": `" + Trimmed(entry.text) + '`';
        EXPECT_THAT(page, HasSubstr("\n| `" + std::string(entry.exception) + '`' + text + " | " +
                                    std::string(entry.cause) + " | " + std::string(entry.remedy) + " |\n"));
    }
}

TEST(OperationsPageTest, EveryClassOfTheLibraryIsOnThePage) {
    const std::string header = ReadFile(NIMAUTH_SOURCE "/include/authentication/exceptions.h");
    const std::regex pattern("\\b([A-Z][A-Za-z]+(?:Exception|Error))\\b");
    const std::string page = Page();
    int classes = 0;
    for (std::sregex_iterator match(header.begin(), header.end(), pattern), end; match != end; ++match) {
        if ((*match)[1] == "ThrowMappedException") continue;
        ++classes;
        EXPECT_THAT(page, HasSubstr('`' + (*match)[1].str() + '`'));
    }
    EXPECT_GE(classes, 60);
}

}  // namespace
}  // namespace nimbrel::nimauthctl
