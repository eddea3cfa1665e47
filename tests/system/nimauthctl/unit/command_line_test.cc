#include "tools/nimauthctl/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Words = std::vector<std::string>;

std::string Refusal(const Words& words) {
    try {
        ParseCommandLine(words);
        return "accepted";
    } catch (const UsageError& error) {
        return error.what();
    }
}

TEST(CommandLineTest, CommandArgumentsAndOptionsAreFound) {
    const CommandLine line = ParseCommandLine({"join", "-U", "alice", "corp.test/Hosts", "--if-needed"});
    EXPECT_EQ("join", line.command->name);
    EXPECT_EQ("alice", line.invocation.Text("user"));
    EXPECT_EQ("corp.test/Hosts", line.invocation.Text("DOMAIN[/OU]"));
    EXPECT_TRUE(line.invocation.Has("if-needed"));
    EXPECT_FALSE(line.invocation.Has("skip-hostname-check"));
    EXPECT_EQ("", line.invocation.Text("password-fd"));
}

TEST(CommandLineTest, EverySpellingOfAnOptionIsTaken) {
    for (const Words& words : {Words{"join", "d", "-Ualice"}, Words{"join", "d", "--user=alice"},
                               Words{"join", "d", "--user", "alice"}, Words{"join", "-U", "alice", "d"}}) {
        EXPECT_EQ("alice", ParseCommandLine(words).invocation.Text("user"));
    }
}

TEST(CommandLineTest, OptionsOfEveryCommandStandAnywhere) {
    for (const Words& words :
         {Words{"--json", "--timeout", "5", "store", "list"}, Words{"store", "list", "--json", "--timeout=5"},
          Words{"--json", "store", "list", "--timeout", "5"}}) {
        const Settings settings = ParseCommandLine(words).invocation.Global();
        EXPECT_TRUE(settings.json);
        EXPECT_EQ(5, settings.timeoutSeconds);
        EXPECT_FALSE(settings.quiet);
    }
}

TEST(CommandLineTest, DefaultsAreAsDocumented) {
    const Settings settings = ParseCommandLine({"status"}).invocation.Global();
    EXPECT_EQ(60, settings.timeoutSeconds);
    EXPECT_FALSE(settings.json || settings.quiet || settings.verbose);
}

TEST(CommandLineTest, TimeoutIsValidated) {
    for (const char* const text : {"0", "86400"}) EXPECT_EQ("accepted", Refusal({"status", "--timeout", text}));
    for (const char* const text : {"-1", "86401", "1s", "", "1.5"}) {
        EXPECT_THAT(Refusal({"status", "--timeout", text}), HasSubstr("--timeout")) << text;
    }
}

TEST(CommandLineTest, ArgumentMayHaveTheNameOfACommand) {
    const CommandLine line = ParseCommandLine({"directory", "ou", "add", "status", "user"});
    EXPECT_EQ("directory ou add", line.command->name);
    EXPECT_EQ("status", line.invocation.Text("DOMAIN"));
    EXPECT_EQ("user", line.invocation.Text("OU"));
}

TEST(CommandLineTest, ArgumentMayBeginWithADashBehindTheMark) {
    EXPECT_EQ("-odd", ParseCommandLine({"directory", "ou", "add", "d", "--", "-odd"}).invocation.Text("OU"));
    EXPECT_EQ("--json", ParseCommandLine({"store", "set", "--", "--json"}).invocation.Text("NAME"));
}

TEST(CommandLineTest, NegativeNumbersAreArguments) {
    EXPECT_EQ("-5", ParseCommandLine({"option", "set", "x", "-5"}).invocation.Text("VALUE"));
}

TEST(CommandLineTest, ValuesAreTakenAsTheyAre) {
    for (const std::string& text :
         {std::string("[a,b]"), std::string("a b\n\t"), std::string("\xff\xfe"), std::string(),
          std::string(100'000, 'x'), std::string("{x}"), std::string("%s%n")}) {
        EXPECT_EQ(text, ParseCommandLine({"store", "set", text}).invocation.Text("NAME"));
        EXPECT_EQ(text, ParseCommandLine({"join", "d", "--user", text}).invocation.Text("user"));
    }
}

TEST(CommandLineTest, RepeatableOptionsKeepTheirOrder) {
    const CommandLine line =
        ParseCommandLine({"directory", "user", "add", "d", "u", "--delegate", "[b]", "--delegate=a", "--may-join"});
    EXPECT_THAT(line.invocation.Texts("delegate"), ElementsAre("[b]", "a"));
    EXPECT_TRUE(line.invocation.Texts("nothing").empty());
}

TEST(CommandLineTest, RepeatableArgumentTakesTheWordsThatRemain) {
    const CommandLine line = ParseCommandLine({"user", "canonical", "[a,b]", "--json", "", "CORP\\c", "--", "-d"});
    EXPECT_THAT(line.invocation.Texts("NAME"), ElementsAre("[a,b]", "", "CORP\\c", "-d"));
    EXPECT_TRUE(line.invocation.Global().json);
    EXPECT_EQ("NAME is missing", Refusal({"user", "canonical"}));
    EXPECT_TRUE(ParseCommandLine({"dc", "prefer", "--none"}).invocation.Texts("NAME").empty());
}

struct SignedCase {
    Words words;
    Words arguments;
};

TEST(CommandLineTest, SignedWordsReachTheCommand) {
    const SignedCase kCases[] = {
        {{"smartcard", "+sshd"}, {"+sshd"}},
        {{"smartcard", "-sshd", "+login"}, {"-sshd", "+login"}},
        {{"smartcard", "change", "-sshd", "--json", "+a"}, {"-sshd", "+a"}},
        {{"smartcard", "-sshd", "--timeout", "5", "-b"}, {"-sshd", "-b"}},
        {{"smartcard", "-sshd", "-q", "--timeout=5"}, {"-sshd"}},
        {{"smartcard", "change", "--", "-q", "-h", "--json"}, {"-q", "-h", "--json"}},
        {{"-v", "smartcard", "-5"}, {"-5"}},
    };
    for (const SignedCase& expected : kCases) {
        const CommandLine line = ParseCommandLine(expected.words);
        ASSERT_NE(nullptr, line.command) << ::testing::PrintToString(expected.words);
        EXPECT_EQ("smartcard change", line.command->name);
        EXPECT_EQ(expected.arguments, line.invocation.Texts("+SERVICE|-SERVICE"));
    }
}

TEST(CommandLineTest, SignedWordsAreArgumentsOfThatCommandOnly) {
    EXPECT_EQ("unknown option '-s'", Refusal({"smartcard", "set", "a", "-sshd"}));
    EXPECT_EQ("unknown option '--bogus'", Refusal({"smartcard", "change", "+a", "--bogus"}));
    EXPECT_EQ("unknown option '-q'", Refusal({"smartcard", "-q"}));
    EXPECT_EQ("smartcard", ParseCommandLine({"smartcard", "-h"}).group->name);
    EXPECT_EQ("smartcard change", ParseCommandLine({"smartcard", "-sshd", "-h"}).command->name);
}

TEST(CommandLineTest, HelpIsGivenForWhateverIsNamed) {
    EXPECT_EQ(CommandLine::Request::Help, ParseCommandLine({"--help"}).request);
    EXPECT_EQ(nullptr, ParseCommandLine({"-h"}).command);
    EXPECT_EQ("directory user", ParseCommandLine({"directory", "user", "--help"}).group->name);
    EXPECT_EQ("join", ParseCommandLine({"join", "--help"}).command->name);
    EXPECT_EQ("join", ParseCommandLine({"--help", "join"}).command->name);
    EXPECT_EQ(CommandLine::Request::Help, ParseCommandLine({"join", "a", "b", "c", "-h", "--bogus"}).request);
}

TEST(CommandLineTest, VersionNeedsNoCommand) {
    EXPECT_EQ(CommandLine::Request::Version, ParseCommandLine({"--version"}).request);
    EXPECT_TRUE(ParseCommandLine({"--version", "--json"}).invocation.Global().json);
}

struct RefusalCase {
    Words words;
    const char* message;
};

TEST(CommandLineTest, WhatCannotBeUnderstoodIsRefused) {
    const RefusalCase kCases[] = {
        {{}, "no command given"},
        {{"bogus"}, "unknown command"},
        {{"store"}, "'store' needs one of its commands"},
        {{"store", "bogus"}, "unknown command of 'store'"},
        {{"directory", "user"}, "'directory user' needs one of its commands"},
        {{"--bogus", "status"}, "unknown option '--bogus'"},
        {{"status", "--bogus"}, "unknown option '--bogus'"},
        {{"status", "-x"}, "unknown option '-x'"},
        {{"status", "extra"}, "there are more arguments than expected"},
        {{"store", "set"}, "NAME is missing"},
        {{"join", "-U", "a"}, "DOMAIN[/OU] is missing"},
        {{"join", "d"}, "option -U,--user USER is missing"},
        {{"join", "d", "-U"}, "option --user needs one value, given once"},
        {{"join", "d", "-U", "a", "-U", "b"}, "option --user needs one value, given once"},
        {{"--timeout", "1", "status", "--timeout", "2"}, "option --timeout needs one value, given once"},
        {{"status", "--json=yes"}, "--json takes no value"},
        {{""}, "unknown command"},
    };
    for (const RefusalCase& expected : kCases) EXPECT_EQ(expected.message, Refusal(expected.words));
}

TEST(CommandLineTest, MisplacedPasswordIsNeverRepeated) {
    for (const Words& words :
         {Words{"join", "d", "-U", "a", "hunter2"}, Words{"join", "d", "-U", "a", "--password", "hunter2"},
          Words{"join", "d", "-U", "a", "--password=hunter2"}, Words{"join", "d", "-U", "a", "-phunter2"},
          Words{"hunter2"}, Words{"store", "hunter2"}, Words{"--password=hunter2", "join"}, Words{"-whunter2"},
          Words{"join", "d", "-U", "a", "--password-stdin=hunter2"}}) {
        EXPECT_THAT(Refusal(words), Not(HasSubstr("hunter2")));
        EXPECT_NE("accepted", Refusal(words));
    }
}

TEST(CommandLineTest, PasswordOptionGetsItsOwnAnswer) {
    EXPECT_THAT(Refusal({"join", "d", "-U", "a", "--password", "x"}), HasSubstr("never taken from the command line"));
}

TEST(CommandLineTest, JsonIsSeenEvenInALineThatCannotBeUnderstood) {
    EXPECT_TRUE(AsksForJson({"bogus", "--json"}));
    EXPECT_FALSE(AsksForJson({"bogus", "--", "--json"}));
    EXPECT_FALSE(AsksForJson({}));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
