#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "authentication/exceptions.h"
#include "tools/nimauthctl/catalogue.h"
#include "tools/nimauthctl/command_line.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string Explained(const std::string& what) {
    const CommandLine line = ParseCommandLine({"explain", "--", what});
    Report report;
    EXPECT_EQ(ExitCode::Ok, line.command->run(line.invocation, report)) << what;
    return report.AsText();
}

TEST(ExplainTest, CodeIsTakenInEverySpelling) {
    const std::string expected = Explained("1326");
    EXPECT_THAT(expected, StartsWith("message: Exception 0x0000052e: The attempted logon is invalid."));
    EXPECT_THAT(expected, AllOf(HasSubstr("\ncode: 1326\nhexadecimal: 0x0000052e\nexception: LogonFailureException\n"
                                          "cause: "),
                                HasSubstr("\nremedy: "), HasSubstr("\nnext: "), HasSubstr("\nexit status: 7 ")));
    for (const char* const what : {"0x52e", "0X0000052E", "logonfailureexception", "LogonFailureException",
                                   "Exception 0x0000052e: The attempted logon is invalid.", "Exception 0x0000052E"}) {
        EXPECT_EQ(expected, Explained(what)) << what;
    }
}

TEST(ExplainTest, EveryStatusOfTheCatalogueIsExplained) {
    for (const StatusEntry& entry : StatusEntries()) {
        EXPECT_THAT(Explained(std::to_string(entry.status)), HasSubstr("\ncause: " + std::string(entry.cause)));
    }
}

TEST(ExplainTest, EveryExceptionOfTheLibraryIsExplained) {
    for (const ClassEntry& entry : ClassEntries()) {
        if (!entry.text.empty()) continue;  // a name tells the class alone
        EXPECT_THAT(Explained(std::string(entry.exception)), HasSubstr("\ncause: " + std::string(entry.cause)));
    }
    for (const StatusEntry& entry : StatusEntries())
        EXPECT_THAT(Explained(std::string(entry.exception)), HasSubstr("\nexception: " + std::string(entry.exception)));
}

TEST(ExplainTest, WordsFindWhatSpeaksOfThem) {
    EXPECT_THAT(Explained("trust secret"), StartsWith("message: Exception 0x000006fa: "));
    EXPECT_THAT(Explained("domain controller"), AllOf(HasSubstr("match: 0x"), HasSubstr("note: several statuses")));
}

TEST(ExplainTest, UnexplainedStatusIsNotInvented) {
    EXPECT_THAT(Explained("4660"), AllOf(StartsWith("message: Exception 0x00001234: Unknown exception\n"),
                                         HasSubstr("not explained here")));
}

TEST(ExplainTest, WhatIsNoCodeAndNoNameIsAFailure) {
    for (const char* const what : {"NoSuchException", "zzzz", "the", "-1", "1326x", "0x"}) {
        const CommandLine line = ParseCommandLine({"explain", "--", what});
        Report report;
        EXPECT_THROW(line.command->run(line.invocation, report), ToolError) << what;
    }
}

TEST(ExplainTest, CodesOfMoreThan32BitsAreUsageErrors) {
    for (const char* const what : {"4294967296", "0x100000000", "99999999999999999999", ""}) {
        const CommandLine line = ParseCommandLine({"explain", what});
        Report report;
        EXPECT_THROW(line.command->run(line.invocation, report), UsageError) << what;
    }
    EXPECT_THAT(Explained("0xffffffff"), HasSubstr("\ncode: 4294967295\n"));
}

}  // namespace
}  // namespace nimbrel::nimauthctl
