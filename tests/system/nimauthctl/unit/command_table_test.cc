#include "tools/nimauthctl/command_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "tools/nimauthctl/help.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(CommandTableTest, EveryCommandIsComplete) {
    for (const Command& command : Commands()) {
        SCOPED_TRACE(command.name);
        EXPECT_NE(nullptr, command.run);
        EXPECT_FALSE(command.summary.empty());
        EXPECT_FALSE(command.summary.ends_with('.'));
        EXPECT_FALSE(command.description.empty());
        EXPECT_FALSE(command.examples.empty());
        for (const Argument& argument : command.arguments) EXPECT_FALSE(argument.help.empty()) << argument.name;
        for (const Option& option : command.options) EXPECT_FALSE(option.help.empty()) << option.flags;
    }
}

TEST(CommandTableTest, NamesAreUniqueAndFoundAgain) {
    std::set<std::string> names;
    for (const Command& command : Commands()) {
        EXPECT_TRUE(names.insert(command.name).second) << command.name;
        EXPECT_EQ(&command, FindCommand(command.name));
        EXPECT_EQ(nullptr, FindGroup(command.name));
    }
}

TEST(CommandTableTest, EveryFirstPartIsAGroup) {
    for (const Command& command : Commands()) {
        for (std::size_t blank = command.name.find(' '); blank != std::string::npos;
             blank = command.name.find(' ', blank + 1)) {
            EXPECT_NE(nullptr, FindGroup(command.name.substr(0, blank))) << command.name;
        }
    }
}

TEST(CommandTableTest, EveryGroupHasCommands) {
    for (const CommandGroup& group : CommandGroups()) {
        EXPECT_THAT(GroupHelp(group), HasSubstr("\n  " + group.name + ' ')) << group.name;
    }
}

TEST(CommandTableTest, OptionalArgumentsComeLast) {
    for (const Command& command : Commands()) {
        bool optional = false;
        for (const Argument& argument : command.arguments) {
            EXPECT_FALSE(optional && !argument.optional) << command.name;
            optional = argument.optional;
        }
    }
}

TEST(CommandTableTest, RepeatableArgumentIsTheLastOne) {
    for (const Command& command : Commands()) {
        for (std::size_t at = 0; at + 1 < command.arguments.size(); ++at) {
            EXPECT_FALSE(command.arguments[at].repeatable) << command.name;
        }
    }
}

TEST(CommandTableTest, SignedCommandsExistAndTakeSignedWords) {
    for (const CommandGroup& group : CommandGroups()) {
        if (group.signedCommand.empty()) continue;
        ASSERT_NE(nullptr, FindCommand(group.signedCommand)) << group.name;
        EXPECT_TRUE(FindCommand(group.signedCommand)->signedWords) << group.name;
    }
}

TEST(CommandTableTest, NoOptionTakesTheNameOfAnother) {
    for (const Command& command : Commands()) {
        std::set<std::string> keys;
        for (const Option& option : GlobalOptions()) keys.insert(option.Key());
        for (const Option& option : command.options) {
            EXPECT_TRUE(keys.insert(option.Key()).second) << command.name << ' ' << option.flags;
        }
    }
}

TEST(CommandTableTest, NoOptionTakesAPasswordAsItsValue) {
    for (const Command& command : Commands()) {
        for (const Option& option : command.options) {
            if (option.Key().find("password") == std::string::npos || option.value == "yes|no") continue;
            EXPECT_TRUE(option.value.empty() || option.value == "N") << command.name << ' ' << option.flags;
        }
    }
}

TEST(CommandTableTest, ExamplesRunTheirCommand) {
    for (const Command& command : Commands()) {
        for (const Example& example : command.examples) {
            EXPECT_TRUE(example.commandLine.starts_with("nimauthctl " + command.name)) << example.commandLine;
            EXPECT_FALSE(example.comment.empty()) << example.commandLine;
        }
    }
}

TEST(CommandTableTest, CommandsOfTheEmbeddedDirectorySayThatItIsNotARealDomain) {
    for (const Command& command : Commands()) {
        if (!command.name.starts_with("directory ")) continue;
        std::string words = CommandHelp(command);
        for (char& c : words) c = c == '\n' ? ' ' : c;
        EXPECT_THAT(words, HasSubstr("not a real domain")) << command.name;
    }
}

TEST(CommandTableTest, HelpFitsATerminalOf80Columns) {
    std::string all = OverviewHelp();
    for (const CommandGroup& group : CommandGroups()) all += GroupHelp(group);
    for (const Command& command : Commands()) all += CommandHelp(command);
    std::istringstream lines(all);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.size() <= 80 || line.starts_with("  nimauthctl ")) << line;
        EXPECT_FALSE(line.ends_with(' ')) << line;
        EXPECT_THAT(line, Not(HasSubstr("\t")));
    }
}

TEST(CommandTableTest, HelpShowsEveryPartOfTheCommand) {
    for (const Command& command : Commands()) {
        const std::string help = CommandHelp(command);
        EXPECT_THAT(help, HasSubstr("Usage: nimauthctl " + command.name));
        EXPECT_THAT(help, HasSubstr(command.examples.front().commandLine));
        EXPECT_THAT(help, HasSubstr("\nExit status:\n"));
        EXPECT_THAT(help, HasSubstr("--json"));
        for (const Option& option : command.options) EXPECT_THAT(help, HasSubstr("--" + option.Key()));
    }
}

TEST(CommandTableTest, SynopsisIsMadeFromTheParts) {
    EXPECT_EQ(
        "nimauthctl join {-U USER DOMAIN[/OU] | --proxy ADDRESS} [--ou OU] [--if-needed] [--skip-hostname-check] "
        "[--password-stdin] [--password-fd N]",
        Synopsis(*FindCommand("join")));
    EXPECT_EQ("nimauthctl user canonical NAME...", Synopsis(*FindCommand("user canonical")));
    EXPECT_EQ("nimauthctl dc prefer [--none] [NAME]...", Synopsis(*FindCommand("dc prefer")));
    EXPECT_EQ("nimauthctl directory user list [DOMAIN]", Synopsis(*FindCommand("directory user list")));
    EXPECT_THAT(Synopsis(*FindCommand("directory user add")), HasSubstr("[--delegate OU]..."));
}

TEST(CommandTableTest, OverviewListsEveryCommand) {
    for (const Command& command : Commands()) EXPECT_THAT(OverviewHelp(), HasSubstr("\n  " + command.name));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
