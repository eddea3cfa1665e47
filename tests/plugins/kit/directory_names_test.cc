#include "pluginkit/directory_names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace nimbrel::kit {
namespace {

using namespace std::string_literals;

std::string Encoded(std::uint32_t scalar) {
    const auto byte = [](std::uint32_t value) { return static_cast<char>(value); };
    const auto next = [&](unsigned shift) { return byte(0x80 | (scalar >> shift & 0x3f)); };
    if (scalar < 0x80) return {byte(scalar)};
    if (scalar < 0x800) return {byte(0xc0 | scalar >> 6), next(0)};
    if (scalar < 0x10000) return {byte(0xe0 | scalar >> 12), next(6), next(0)};
    return {byte(0xf0 | scalar >> 18), next(12), next(6), next(0)};
}

bool IsScalar(std::uint32_t value) { return value <= 0x10ffff && (value < 0xd800 || value > 0xdfff); }

// Whether bytes of these are one sequence: what they say is written with the same bytes.
bool IsSequence(const std::string& bytes) {
    const auto bits = [&](std::size_t i, unsigned mask) { return static_cast<unsigned char>(bytes[i]) & mask; };
    std::uint32_t scalar = bits(0, 0xffU >> (bytes.size() + 1));
    for (std::size_t i = 1; i < bytes.size(); ++i) scalar = scalar << 6 | bits(i, 0x3f);
    return IsScalar(scalar) && Encoded(scalar) == bytes;
}

TEST(DirectoryNames, ScalarValuesAreUtf8AndSurrogatesAreNot) {
    for (const std::uint32_t edge : {0U, 0x80U, 0x800U, 0x1000U, 0xd800U, 0xe000U, 0x10000U, 0x40000U, 0x110000U}) {
        for (std::uint32_t value = edge < 2 ? 0 : edge - 2; value < edge + 2; ++value) {
            EXPECT_EQ(IsUtf8(Encoded(value)), IsScalar(value)) << std::hex << value;
        }
    }
    for (std::uint32_t value = 0; value < 0x120000; value += 61) {
        ASSERT_EQ(IsUtf8(Encoded(value)), IsScalar(value)) << std::hex << value;
    }
}

// Every first and second byte, and third and fourth ones at both ends of what may follow.
TEST(DirectoryNames, OnlyWhatEncodesAScalarValueIsUtf8) {
    const char ends[] = {'\x7f', '\x80', '\xbf', '\xc0'};
    for (int first = 0x80; first < 0x100; ++first) {
        for (int second = 0x80; second < 0x100; ++second) {
            const std::string two = {static_cast<char>(first), static_cast<char>(second)};
            const bool isTwo = IsSequence(two);
            ASSERT_EQ(IsUtf8(two), isTwo) << ::testing::PrintToString(two);
            for (const char third : ends) {
                // A sequence and an ordinary letter are well formed together.
                const std::string three = two + third;
                const bool isThree = IsSequence(three);
                ASSERT_EQ(IsUtf8(three), isThree || (isTwo && third == '\x7f')) << ::testing::PrintToString(three);
                for (const char fourth : ends) {
                    const std::string four = three + fourth;
                    const bool isJoined = (isThree && fourth == '\x7f') || (isTwo && IsUtf8(four.substr(2)));
                    ASSERT_EQ(IsUtf8(four), IsSequence(four) || isJoined) << ::testing::PrintToString(four);
                }
            }
        }
    }
}

TEST(DirectoryNames, EveryByteHasItsCaseAndItsPlaceInALabel) {
    for (int value = 0; value < 0x100; ++value) {
        const std::string byte(1, static_cast<char>(value));
        const bool upper = value >= 'A' && value <= 'Z';
        const bool lower = value >= 'a' && value <= 'z';
        const bool digit = value >= '0' && value <= '9';
        EXPECT_EQ(LowerCase(byte), upper ? std::string(1, static_cast<char>(value + 32)) : byte) << value;
        EXPECT_EQ(UpperCase(byte), lower ? std::string(1, static_cast<char>(value - 32)) : byte) << value;
        EXPECT_EQ(HasControlCharacters("a" + byte), value < 0x20 || value == 0x7f) << value;
        EXPECT_EQ(IsLabel("a" + byte + "b"), upper || lower || digit || value == '-' || value == '_') << value;
        EXPECT_EQ(IsComputerName("1" + byte + "1"), upper || lower || value == '-') << value;
    }
}

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
    EXPECT_EQ(WithoutFinalDot("a."), "a");
    EXPECT_EQ(WithoutFinalDot("a"), "a");
    EXPECT_EQ(WithoutFinalDot(""), "");
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
    EXPECT_EQ(BareComputerName(""), "");
    EXPECT_EQ(BareComputerName("NODE01"), "NODE01");
    EXPECT_EQ(HostPrincipalName("NODE01", "Corp.Test"), "host/node01.Corp.Test@CORP.TEST");
}

TEST(DirectoryNames, UnitsArePathsOrDistinguishedNames) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(SplitUnitPath("Hosts/Sub"), (Names{"Hosts", "Sub"}));
    EXPECT_EQ(SplitUnitPath("A\\/B/C\\\\D/"), (Names{"A/B", "C\\D", ""}));
    EXPECT_EQ(SplitUnitPath("A\\B"), (Names{"A\\B"}));
    EXPECT_EQ(SplitUnitPath("A\\"), (Names{"A\\"}));
    EXPECT_EQ(SplitUnitPath("A\\/"), (Names{"A/"}));
    EXPECT_EQ(SplitUnitPath(""), (Names{""}));
    EXPECT_TRUE(LooksLikeDistinguishedName("OU=Hosts,DC=corp,DC=test"));
    EXPECT_TRUE(LooksLikeDistinguishedName("cn = Computers"));
    EXPECT_TRUE(LooksLikeDistinguishedName("Dc=test"));
    EXPECT_FALSE(LooksLikeDistinguishedName("Hosts/Sub"));
    EXPECT_FALSE(LooksLikeDistinguishedName("A=B/C"));
}

}  // namespace
}  // namespace nimbrel::kit
