// PAM policies read from text: what each kind of line gives, in which state the stream is left, and where.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "systemconfiguration/pam_outcome.h"
#include "systemconfiguration/pam_policy.h"
#include "systemconfiguration/thrown.h"

namespace {

using namespace std::string_literals;
using SystemConfiguration::InvalidFacilityException;
using SystemConfiguration::PAMFacility;
using SystemConfiguration::PAMPolicy;

constexpr auto kAtEnd = std::ios::eofbit | std::ios::failbit;

// As a string's buffer has it, as a file's has it, and in slices.
std::vector<Source> Sources(const std::string& text) {
    return {Source{text}, Source{text, kNever, kNever, false}, Source{text, 1}, Source{text, 3}};
}

// A text that reads to its end.
struct Accepted {
    std::string text;
    std::string model;  // by facility number: {control number and bracket|module|parameter|...}
};

class PamReaderAccepts : public ::testing::TestWithParam<Accepted> {};

TEST_P(PamReaderAccepts, TextAndEndsWithEofAndFail) {
    for (const Source& source : Sources(GetParam().text)) {
        SCOPED_TRACE(::testing::Message() << source);
        const Outcome outcome = OutcomeOf<LibraryPamReader>(source);
        EXPECT_EQ(outcome.model, GetParam().model);
        EXPECT_EQ(outcome.error, "");
        EXPECT_EQ(outcome.state, kAtEnd);
        EXPECT_EQ(outcome.position, GetParam().text.size());
    }
}

INSTANTIATE_TEST_SUITE_P(WithoutRules, PamReaderAccepts,
                         ::testing::Values(Accepted{"", ""}, Accepted{"\n", ""}, Accepted{" \t\r\v\f\n ", ""},
                                           Accepted{"#", ""}, Accepted{"#%PAM-1.0\n", ""},
                                           Accepted{"# auth required m\n  #b\n\t# c", ""},
                                           Accepted{"#a\r\n\r\n#b\r\n", ""}));

INSTANTIATE_TEST_SUITE_P(
    WholeLines, PamReaderAccepts,
    ::testing::Values(Accepted{"auth required m\n", "2:{1|m|}"}, Accepted{"auth required m", "2:{1|m|}"},
                      Accepted{"#%PAM-1.0\n\nauth\trequired  m \t a\tb \n", "2:{1|m|a|b|}"},
                      Accepted{" \t session optional /lib/m.so x=y x=y\n", "4:{4|/lib/m.so|x=y|x=y|}"},
                      Accepted{"auth required m # no comment\n", "2:{1|m|#|no|comment|}"},
                      Accepted{"auth required #m\n", "2:{1|#m|}"},
                      Accepted{"auth required m\r\npassword requisite n o\r\n", "2:{1|m|}3:{2|n|o|}"},
                      Accepted{"\v\fauth\vrequired\fm\v\fp\n", "2:{1|m|p|}"},
                      Accepted{"auth required m\\ \\\n", "2:{1|m\\|\\|}"},
                      Accepted{"auth required m\0 \0\n"s, "2:{1|m\0|\0|}"s},
                      Accepted{"auth required m\xA0n \xFF\n", "2:{1|m\xA0n|\xFF|}"},
                      Accepted{"account include common-account\nauth substack system-auth\n",
                               "1:{5|common-account|}2:{6|system-auth|}"},
                      Accepted{"session required a\nauth sufficient b\nsession required a\nauth sufficient c\n",
                               "2:{3|b|}{3|c|}4:{1|a|}{1|a|}"}));

INSTANTIATE_TEST_SUITE_P(
    Brackets, PamReaderAccepts,
    ::testing::Values(Accepted{"auth [] m\n", "2:{7[]|m|}"}, Accepted{"auth [ ] m\n", "2:{7[ ]|m|}"},
                      Accepted{"auth [success=1 default=ignore] m p\n", "2:{7[success=1 default=ignore]|m|p|}"},
                      Accepted{"auth [ a \t\v b ] m\n", "2:{7[ a b ]|m|}"},
                      Accepted{"auth [success=1\ndefault=ignore] m a b\n", "2:{7[success=1 default=ignore]|m|a|b|}"},
                      Accepted{"auth [a\n\n  b\r\nc] m\n", "2:{7[a b c]|m|}"},
                      Accepted{"auth [a\n# b\nc] m\n", "2:{7[a # b c]|m|}"},
                      Accepted{"auth [a]b c] m\n", "2:{7[a]b c]|m|}"},
                      Accepted{"auth [a b]c d] m\n", "2:{7[a b]c d]|m|}"}, Accepted{"auth [[a] m\n", "2:{7[[a]|m|}"},
                      Accepted{"auth [a] [b c] d\n", "2:{7[a]|[b|c]|d|}"}));

INSTANTIATE_TEST_SUITE_P(FieldsOnSeveralLines, PamReaderAccepts,
                         ::testing::Values(Accepted{"auth\nrequired\nm a\n", "2:{1|m|a|}"},
                                           Accepted{"auth required\nm a\n", "2:{1|m|a|}"},
                                           Accepted{"auth required\naccount required m\n", "2:{1|account|required|m|}"},
                                           Accepted{"auth required\n#m\naccount required n\n", "1:{1|n|}2:{1|#m|}"},
                                           Accepted{"auth required", "2:{1||}"},
                                           Accepted{"auth required \n", "2:{1||}"},
                                           Accepted{"auth [a\nb]\n", "2:{7[a b]||}"}));

// A text that throws: the rules before it stay, and what is behind the word in question is unread.
struct Refused {
    std::string text;
    std::string error;
    std::string model;
    std::string rest;
    std::ios_base::iostate state = std::ios::goodbit;
};

class PamReaderRefuses : public ::testing::TestWithParam<Refused> {};

TEST_P(PamReaderRefuses, TextAndKeepsTheRulesBeforeIt) {
    for (const Source& source : Sources(GetParam().text)) {
        SCOPED_TRACE(::testing::Message() << source);
        const Outcome outcome = OutcomeOf<LibraryPamReader>(source);
        EXPECT_EQ(outcome.model, GetParam().model);
        EXPECT_EQ(outcome.error, GetParam().error);
        EXPECT_EQ(outcome.state, GetParam().state);
        EXPECT_EQ(GetParam().text.substr(outcome.position), GetParam().rest);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Facilities, PamReaderRefuses,
    ::testing::Values(Refused{"-session optional m\n", "facility: Invalid Facility: -session", "", " optional m\n"},
                      Refused{"@include common-auth\n", "facility: Invalid Facility: @include", "", " common-auth\n"},
                      Refused{"Auth required m\n", "facility: Invalid Facility: Auth", "", " required m\n"},
                      Refused{"auth required m\n x\n", "facility: Invalid Facility: x", "2:{1|m|}", "\n"},
                      Refused{"auth required m a \\\n  b c\nauth required n\n", "facility: Invalid Facility: b",
                              "2:{1|m|a|\\|}", " c\nauth required n\n"},
                      Refused{"x", "facility: Invalid Facility: x", "", "", std::ios::eofbit}));

INSTANTIATE_TEST_SUITE_P(Controls, PamReaderRefuses,
                         ::testing::Values(Refused{"auth", "control: Invalid Control: ", "", "", kAtEnd},
                                           Refused{"auth\n", "control: Invalid Control: ", "", "", kAtEnd},
                                           Refused{"auth bogus m\nauth required m\n", "control: Invalid Control: bogus",
                                                   "", " m\nauth required m\n"},
                                           Refused{"account required m\nauth Required m\n",
                                                   "control: Invalid Control: Required", "1:{1|m|}", " m\n"},
                                           Refused{"auth [a b\nc", "control: Invalid Control: [a b c", "", "", kAtEnd},
                                           Refused{"auth [", "control: Invalid Control: [", "", "", kAtEnd},
                                           Refused{"auth [a]b m\n", "control: Invalid Control: [a]b m", "", "", kAtEnd},
                                           Refused{"auth ] m\n", "control: Invalid Control: ]", "", " m\n"},
                                           Refused{"auth a] m\n", "control: Invalid Control: a]", "", " m\n"}));

TEST(PamReader, ReadingTwiceDoublesTheRules) {
    PAMPolicy policy("sample");
    for (int times = 1; times <= 2; ++times) {
        std::istringstream stream("auth required m a\n# note\nauth optional n\n");
        stream >> policy;
        EXPECT_EQ(policy[PAMFacility::Auth].size(), 2U * static_cast<unsigned>(times));
    }
    EXPECT_TRUE(policy[PAMFacility::Auth][0] == policy[PAMFacility::Auth][2]);
    EXPECT_TRUE(policy[PAMFacility::Auth][1] == policy[PAMFacility::Auth][3]);
    EXPECT_EQ(policy[PAMFacility::Auth][2].parameters().size(), 1U);
}

TEST(PamReader, FailedStreamIsLeftAlone) {
    for (const auto state : {std::ios::failbit, std::ios::badbit}) {
        std::istringstream stream("auth required m\n");
        stream.setstate(state);
        PAMPolicy policy("sample");
        stream >> policy;
        EXPECT_TRUE(policy[PAMFacility::Auth].empty());
        EXPECT_EQ(stream.rdstate(), state);
        stream.clear();
        EXPECT_EQ(stream.tellg(), 0);
    }
}

TEST(PamReader, ReadErrorShowsInTheStreamOnly) {
    const Outcome outcome = OutcomeOf<LibraryPamReader>(Source{"auth required m\nauth required n\n", kNever, 16});
    EXPECT_EQ(outcome.model, "2:{1|m|}");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.state & std::ios::badbit, std::ios::badbit);
}

TEST(PamReader, RuleThatTheErrorCutIsAppended) {
    const Outcome outcome = OutcomeOf<LibraryPamReader>(Source{"auth required m\nauth required n a b", kNever, 33});
    EXPECT_EQ(outcome.model, "2:{1|m|}{1|n|a|}");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.state, std::ios::badbit);
}

TEST(PamReader, StreamThatThrowsPassesItsExceptionOn) {
    std::istringstream stream("auth required m\n");
    stream.exceptions(std::ios::failbit);
    PAMPolicy policy("sample");
    EXPECT_THROW(stream >> policy, std::ios_base::failure);
    EXPECT_EQ(policy[PAMFacility::Auth].size(), 1U);
}

TEST(PamReader, StreamWithoutABufferIsLeftAlone) {
    std::istream stream(nullptr);
    PAMPolicy policy("sample");
    stream >> policy;
    EXPECT_EQ(stream.rdstate(), std::ios::badbit);
    EXPECT_TRUE(policy[PAMFacility::Auth].empty());
}

TEST(PamReader, FilesAndStringsReadFromTheCurrentPlace) {
    std::stringstream strings;
    strings << "skipped auth required m\n";
    std::string word;
    strings >> word;
    strings << "account required n\n";
    PAMPolicy policy("sample");
    strings >> policy;
    EXPECT_EQ(policy[PAMFacility::Auth].size(), 1U);
    EXPECT_EQ(policy[PAMFacility::Account].size(), 1U);
}

// Words are as wide as the stream says, also where a line could be taken at once.
TEST(PamReader, WidthOfTheStreamCounts) {
    std::istringstream stream("auth required m\n");
    stream.width(3);
    PAMPolicy policy("login");
    EXPECT_THROW(stream >> policy, InvalidFacilityException);
}

}  // namespace
