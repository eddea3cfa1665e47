// The shortcuts that the readers take: steps of eight characters through a text, and a PAM rule taken apart at once. Each
// gives what the plain way gives, and is taken where it can be.

#include <gtest/gtest.h>

#include <string>

#include "src/systemconfiguration/names.h"
#include "src/systemconfiguration/pam_entry_reader.h"
#include "systemconfiguration/agreement.h"
#include "systemconfiguration/nss_outcome.h"
#include "systemconfiguration/pam_outcome.h"

namespace {

using SystemConfiguration::FindSpace;
using SystemConfiguration::PAMControl;
using SystemConfiguration::PAMEntryReader;
using SystemConfiguration::RuleText;
using SystemConfiguration::SkipSpace;

bool IsWhiteSpace(char character) { return std::string("\t\n\v\f\r ").find(character) != std::string::npos; }

std::size_t PlainFindSpace(const std::string& text, std::size_t position) {
    while (position < text.size() && !IsWhiteSpace(text[position])) ++position;
    return position;
}

std::size_t PlainSkipSpace(const std::string& text, std::size_t position) {
    while (position < text.size() && IsWhiteSpace(text[position])) ++position;
    return position;
}

void ExpectPlainResults(const std::string& text, std::size_t position) {
    // A copy of its own size, so that a look behind its end is seen.
    const std::string exact(text.begin(), text.end());
    ASSERT_EQ(FindSpace(exact, position), PlainFindSpace(text, position)) << ::testing::PrintToString(text);
    ASSERT_EQ(SkipSpace(exact, position), PlainSkipSpace(text, position)) << ::testing::PrintToString(text);
}

TEST(Steps, EveryByteAtEveryPlaceOfTheFirstTwoSteps) {
    for (int value = 0; value < 0x100; ++value) {
        for (const char filling : {'x', ' ', '\t', '\x01', '\xff', '!'}) {
            for (std::size_t at = 0; at < 18; ++at) {
                std::string text(18, filling);
                text[at] = static_cast<char>(value);
                for (std::size_t start = 0; start <= text.size(); ++start) ExpectPlainResults(text, start);
            }
        }
    }
}

TEST(Steps, EveryTextOfThreeKindsUpToTenCharacters) {
    for (std::size_t size = 0; size <= 10; ++size) {
        std::size_t texts = 1;
        for (std::size_t i = 0; i < size; ++i) texts *= 3;
        for (std::size_t code = 0; code < texts; ++code) {
            std::string text;
            for (std::size_t rest = code; text.size() < size; rest /= 3) text += " x\x1f"[rest % 3];
            ExpectPlainResults(text, 0);
            ExpectPlainResults(text, size / 2);
        }
    }
}

using PamAgreement = Agreement<LibraryPamReader, LiteralPamReader>;
using NssAgreement = Agreement<LibraryNssReader, LiteralNssReader>;

TEST(StreamSettings, ThatChangeWhatIsReadLeaveTheShortcut) {
    PamAgreement::OnSettings({"auth", "required", "[", "]", " ", "\n", ","}, 3,
                             {"session optional m\nauth required ", " m p\nauth required m\n"});
    NssAgreement::OnSettings({"hosts:", "files", "[", "]", " ", "\n", ","}, 3, {"passwd: files\n", "\nhosts: files "});
}

TEST(RuleAtOnce, PartsStandAsTheyAreInTheLine) {
    const struct {
        const char* line;
        PAMControl::Control value;
        const char* bracket;
        bool isJoined;
        const char* module;
        const char* parameters;
    } rows[] = {
        {"required pam_a.so", PAMControl::Required, "", true, "pam_a.so", ""},
        {" substack\tpam_a.so  a b ", PAMControl::Substack, "", true, "pam_a.so", "  a b "},
        {"[x] m", PAMControl::Bracketed, "[x]", true, "m", ""},
        {"\t[] m p", PAMControl::Bracketed, "[]", true, "m", " p"},
        {"[a=1 b=2] m p", PAMControl::Bracketed, "[a=1 b=2]", true, "m", " p"},
        {"[a b c ] m", PAMControl::Bracketed, "[a b c ]", true, "m", ""},
        {"[a=1\tb=2] m", PAMControl::Bracketed, "[a=1\tb=2]", false, "m", ""},
        {"[a=1  b=2] m", PAMControl::Bracketed, "[a=1  b=2]", false, "m", ""},
        {"[a\tb c] m", PAMControl::Bracketed, "[a\tb c]", false, "m", ""},
        {"[a b\tc] m", PAMControl::Bracketed, "[a b\tc]", false, "m", ""},
    };
    for (const auto& row : rows) {
        RuleText rule;
        EXPECT_TRUE(PAMEntryReader::Divide(row.line, rule)) << row.line;
        EXPECT_EQ(rule.value, row.value) << row.line;
        EXPECT_EQ(rule.bracket, row.bracket) << row.line;
        EXPECT_EQ(rule.isJoined, row.isJoined) << row.line;
        EXPECT_EQ(rule.module, row.module) << row.line;
        EXPECT_EQ(rule.parameters, row.parameters) << row.line;
    }
}

TEST(RuleAtOnce, LineThatIsNoWholeRuleIsLeftToTheWords) {
    for (const char* line : {"", " ", "required", "required \t", "odd m", "[a b m", "[a", "[x]", "[x] ", "]x m"}) {
        RuleText rule;
        EXPECT_FALSE(PAMEntryReader::Divide(line, rule)) << line;
    }
}

}  // namespace
