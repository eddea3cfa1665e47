#include "pluginkit/directory_names.h"

#include <gtest/gtest.h>

namespace nimbrel::kit {
namespace {

using namespace std::string_literals;

TEST(DirectoryNames, Utf8) {
    for (const auto& good : {std::string(), "a"s, "\xc3\xa9"s, "\xe2\x82\xac"s, "\xf0\x9f\x98\x80"s, "\x7f"s,
                             "\xe0\xa0\x80"s, "\xed\x9f\xbf"s, "\xf0\x90\x80\x80"s, "\xf4\x8f\xbf\xbf"s}) {
        EXPECT_TRUE(IsUtf8(good)) << good;
    }
    // Lone continuation, overlong, truncated, surrogate, beyond the last code point, never a first byte.
    for (const auto& bad : {"\x80"s, "\xc0\xaf"s, "\xc3"s, "\xe2\x82"s, "\xed\xa0\x80"s, "\xf4\x90\x80\x80"s, "\xff"s,
                            "\xe0\x80\x80"s, "\xf0\x8f\xbf\xbf"s}) {
        EXPECT_FALSE(IsUtf8(bad)) << ::testing::PrintToString(bad);
    }
}

TEST(DirectoryNames, LettersOfAsciiHaveTwoCases) {
    EXPECT_EQ(LowerCase("CORP.Test-1_\xc3\x84"), "corp.test-1_\xc3\x84");
    EXPECT_EQ(UpperCase("corp.Test-1_\xc3\xa4"), "CORP.TEST-1_\xc3\xa4");
    EXPECT_EQ(LowerCase("@AZ["), "@az[");
    EXPECT_EQ(UpperCase("`az{"), "`AZ{");
    EXPECT_TRUE(SameName("Corp.Test", "cORP.tEST"));
    EXPECT_FALSE(SameName("corp", "corp.test"));
    EXPECT_FALSE(SameName("\xc3\x84", "\xc3\xa4"));
}

TEST(DirectoryNames, DnsNamesAreLabelsWithDotsBetween) {
    const std::string label(63, 'a');
    const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'a');
    for (const auto& name : {std::string("corp.test"), std::string("a"), std::string("_ldap._tcp.0"), longest}) {
        EXPECT_TRUE(IsDnsName(name)) << name;
    }
    for (const auto& name :
         {std::string(), std::string("."), std::string("corp."), std::string(".corp"), std::string("a..b"),
          std::string("-a"), std::string("a-"), std::string("a b"), std::string("a`b"), std::string("a{b"),
          std::string("a/b"), std::string("a:b"), label + "a", longest + "a"}) {
        EXPECT_FALSE(IsDnsName(name)) << name;
    }
    EXPECT_EQ(WithoutFinalDot("corp.test."), "corp.test");
    EXPECT_EQ(WithoutFinalDot("."), ".");
}

TEST(DirectoryNames, ComputerNamesFitAnAccount) {
    for (const char* name : {"NODE01", "a", "1a", "fifteen-letters"}) {
        EXPECT_TRUE(IsComputerName(name)) << name;
    }
    for (const char* name : {"", "12345", "sixteen-letters0", "node_1", "-a", "a-", "a.b", "a$"}) {
        EXPECT_FALSE(IsComputerName(name)) << name;
    }
    EXPECT_EQ(BareComputerName("node01.corp.test"), "node01");
    EXPECT_EQ(BareComputerName("NODE01$"), "NODE01");
    EXPECT_EQ(BareComputerName("$"), "");
}

TEST(DirectoryNames, UnitsArePathsOrDistinguishedNames) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(SplitUnitPath("Hosts/Sub"), (Names{"Hosts", "Sub"}));
    EXPECT_EQ(SplitUnitPath("A\\/B/C\\\\D/"), (Names{"A/B", "C\\D", ""}));
    EXPECT_EQ(SplitUnitPath("A\\B"), (Names{"A\\B"}));
    EXPECT_EQ(SplitUnitPath("A\\"), (Names{"A\\"}));
    EXPECT_TRUE(LooksLikeDistinguishedName("OU=Hosts,DC=corp,DC=test"));
    EXPECT_TRUE(LooksLikeDistinguishedName("cn = Computers"));
    EXPECT_FALSE(LooksLikeDistinguishedName("Hosts/Sub"));
    EXPECT_FALSE(LooksLikeDistinguishedName("A=B/C"));
}

}  // namespace
}  // namespace nimbrel::kit
