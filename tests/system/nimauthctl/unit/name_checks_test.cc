#include "tools/nimauthctl/checks/name_checks.h"

#include <gtest/gtest.h>

#include <set>

namespace nimbrel::nimauthctl {
namespace {

TEST(NameChecksTest, ChecksHaveNamesOfTheirOwn) {
    for (const auto checks : {JoinChecks(), JoinedChecks()}) {
        std::set<std::string_view> names;
        for (const Check& check : checks) EXPECT_TRUE(names.insert(check.name).second) << check.name;
    }
}

struct NameCase {
    const char* host;
    Verdict verdict;
};

TEST(NameChecksTest, AccountNamesAreOfFifteenAllowedCharacters) {
    constexpr NameCase kCases[] = {{"node01", Verdict::Pass},
                                   {"node-01", Verdict::Pass},
                                   {"NODE01", Verdict::Pass},
                                   {"a23456789012345", Verdict::Pass},
                                   {"a234567890123456", Verdict::Fail},
                                   {"node01.corp.test", Verdict::Pass},
                                   {"a23456789012345.corp.test", Verdict::Pass},
                                   {"node_01", Verdict::Fail},
                                   {"-node01", Verdict::Fail},
                                   {"node01-", Verdict::Fail},
                                   {"12345", Verdict::Fail},
                                   {"", Verdict::Fail},
                                   {".corp.test", Verdict::Fail},
                                   {"n\xc3\xb6rd", Verdict::Fail}};
    for (const NameCase& expected : kCases) {
        EXPECT_EQ(expected.verdict, CheckAccountName(expected.host).verdict) << expected.host;
    }
}

TEST(NameChecksTest, DefaultNamesAreRefusedAsAJoinDoes) {
    constexpr NameCase kCases[] = {{"localhost", Verdict::Fail},
                                   {"linux.corp.test", Verdict::Fail},
                                   {"hostname", Verdict::Fail},
                                   {"Linux", Verdict::Pass},
                                   {"linux2", Verdict::Pass}};
    for (const NameCase& expected : kCases) {
        EXPECT_EQ(expected.verdict, CheckDefaultName(expected.host).verdict) << expected.host;
    }
}

struct FullNameCase {
    const char* host;
    const char* fullName;
    Verdict shortName;
    Verdict fullNameVerdict;
};

TEST(NameChecksTest, NamesAgreeAsAJoinWantsThem) {
    constexpr FullNameCase kCases[] = {{"node01", "node01.corp.test", Verdict::Pass, Verdict::Pass},
                                       {"node01.corp.test", "node01.corp.test", Verdict::Pass, Verdict::Pass},
                                       {"node01", "node01", Verdict::Pass, Verdict::Pass},
                                       {"node01", "node01.CORP.Test", Verdict::Pass, Verdict::Pass},
                                       {"node01", "node01.other.test", Verdict::Pass, Verdict::Warn},
                                       {"Node01", "node01.corp.test", Verdict::Fail, Verdict::Pass},
                                       {"node01", "node011.corp.test", Verdict::Fail, Verdict::Warn}};
    for (const FullNameCase& expected : kCases) {
        EXPECT_EQ(expected.shortName, CheckShortName(expected.host, expected.fullName).verdict) << expected.fullName;
        EXPECT_EQ(expected.fullNameVerdict, CheckFullName(expected.host, expected.fullName, "corp.test").verdict)
            << expected.fullName;
    }
}

TEST(NameChecksTest, WhatDoesNotPassHasARemedy) {
    for (const Finding& finding : {CheckShortName("A", "b"), CheckDefaultName("linux"), CheckAccountName("a_b"),
                                   CheckFullName("a", "a.b", "c")}) {
        EXPECT_FALSE(finding.remedy.empty()) << finding.found;
        EXPECT_EQ(finding.verdict == Verdict::Fail ? ExitCode::HostName : ExitCode::Ok, finding.exitCode);
    }
}

}  // namespace
}  // namespace nimbrel::nimauthctl
