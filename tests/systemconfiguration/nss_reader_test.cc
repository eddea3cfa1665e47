// Name-service switch configurations read from text: what each kind of line gives, and what is lost.

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <vector>

#include "systemconfiguration/agreement.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/nss_outcome.h"

namespace {

using namespace std::string_literals;
using SystemConfiguration::NSSConfiguration;
using SystemConfiguration::NSSDatabase;

constexpr auto kAtEnd = std::ios::eofbit | std::ios::failbit;

// As a string's buffer has it, as a file's has it, and in slices.
std::vector<Source> Sources(const std::string& text) {
    return {Source{text}, Source{text, kNever, kNever, false}, Source{text, 1}, Source{text, 3}};
}

// It splits words as the C locale does, and is another one.
std::locale SameUnderAnotherName() { return {std::locale::classic(), new std::ctype<char>}; }

// A text that reads to its end.
struct Accepted {
    std::string text;
    std::string model;  // by database number: {service|criterion|...}
};

class NssReaderAccepts : public ::testing::TestWithParam<Accepted> {};

TEST_P(NssReaderAccepts, TextAndEndsWithEofAndFail) {
    for (const Source& source : Sources(GetParam().text)) {
        SCOPED_TRACE(::testing::Message() << source);
        const Outcome outcome = OutcomeOf<LibraryNssReader>(source);
        EXPECT_EQ(outcome.model, GetParam().model);
        EXPECT_EQ(outcome.error, "");
        EXPECT_EQ(outcome.state, kAtEnd);
        EXPECT_EQ(outcome.position, GetParam().text.size());
    }
}

TEST_P(NssReaderAccepts, TextUnderAnotherGlobalLocale) {
    const GlobalLocale other(SameUnderAnotherName());
    const Outcome outcome = OutcomeOf<LibraryNssReader>(Source{GetParam().text});
    EXPECT_EQ(outcome.model, GetParam().model);
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.state, kAtEnd);
}

INSTANTIATE_TEST_SUITE_P(Services, NssReaderAccepts,
                         ::testing::Values(Accepted{"passwd: files\ngroup: files\n", "1:{files|}2:{files|}"},
                                           Accepted{"passwd: files ad", "1:{files|}{ad|}"},
                                           Accepted{"passwd:\t\tfiles   ad\n", "1:{files|}{ad|}"},
                                           Accepted{" \t\rpasswd: files\n", "1:{files|}"},
                                           Accepted{"passwd: files  \n", "1:{files|}"},
                                           Accepted{"passwd: files \t\n", "1:{files|}"},
                                           Accepted{"passwd: files \r\n", "1:{files|}"},
                                           Accepted{"passwd: files # note\n", "1:{files|}{#|}{note|}"},
                                           Accepted{"hosts: a\nhosts: b\nhosts: a\n", "4:{a|}{b|}{a|}"},
                                           Accepted{"passwd;\vfiles\fad\n", "1:{files|}{ad|}"},
                                           Accepted{"passwd: \0 \xFF\n"s, "1:{\0|}{\xFF|}"s},
                                           Accepted{"aliases: x\nrpc: y\nautomount: z\n", "10:{y|}14:{z|}15:{x|}"}));

INSTANTIATE_TEST_SUITE_P(SkippedLines, NssReaderAccepts,
                         ::testing::Values(Accepted{"", ""}, Accepted{"\n\n", ""}, Accepted{"#", ""},
                                           Accepted{"#passwd: files\n", ""}, Accepted{"  # passwd: files\n", ""},
                                           Accepted{" \t\r \n", ""}, Accepted{"\v\n\f\n \v\f \n", ""},
                                           Accepted{"passwd:files\n", ""}, Accepted{"unknown: files\n", ""},
                                           Accepted{"passwd : files\n", ""}, Accepted{"passwd files\n", ""},
                                           Accepted{":\n: files\n", ""}, Accepted{"x\n", ""},
                                           Accepted{"PASSWD: files\n", ""}, Accepted{"passwd:\n", ""},
                                           Accepted{"passwd: \n", ""}, Accepted{"passwd:\r\n", ""},
                                           Accepted{"sudoers: files \nhosts: files\n", "4:{files|}"},
                                           Accepted{"\vpasswd: files\n", "1:{files|}"}));

// The jump: to the sum of the index behind the white space and the index of the next ']'.
INSTANTIATE_TEST_SUITE_P(
    Criteria, NssReaderAccepts,
    ::testing::Values(
        Accepted{"hosts: files [NOTFOUND=return] dns\n", "4:{files|NOTFOUND=return|}"},
        Accepted{"hosts: a b [x=y z=w]\n", "4:{a|}"}, Accepted{"hosts: b [x=y z=w]\n", "4:{b|x=y|z=w|}"},
        Accepted{"hosts: files [ !UNAVAIL=return  SUCCESS=merge ] dns\n", "4:{files|!UNAVAIL=return|SUCCESS=merge|}"},
        Accepted{"hosts: files [] dns\n", "4:{files|}"}, Accepted{"hosts: files [ ] dns\n", "4:{files|}"},
        Accepted{"hosts: files  [NOTFOUND=return] dns\n", "4:{files|}"},
        Accepted{"hosts: files[NOTFOUND=return] dns\n", "4:{files[NOTFOUND=return]|}{dns|}"},
        Accepted{"hosts: [NOTFOUND=return] dns\n", "4:{[NOTFOUND=return]|}{dns|}"},
        Accepted{"hosts: files [a b\n", "4:{files|a|b|}{[a|}{b|}"}, Accepted{"hosts: files [\n", "4:{files|}{[|}"},
        Accepted{"hosts: files dns [a] x\n", "4:{files|}"}, Accepted{"hosts: files\t[a] x\n", "4:{files|a|}"},
        Accepted{"hosts: a ] b c d e f g h i j k l m n\n", "4:{a|}{f|}{g|}{h|}{i|}{j|}{k|}{l|}{m|}{n|}"}));

// Behind "a" at index 8 stands q = 9 and the bracket closes at index 11: reading goes on at index 20.
INSTANTIATE_TEST_SUITE_P(JumpsThatLandInside, NssReaderAccepts,
                         ::testing::Values(Accepted{"hosts: a [x] 345678 0 2 4", "4:{a|x|}{0|}{2|}{4|}"},
                                           Accepted{"hosts: a [x] 3456789abc ef", "4:{a|x|}{abc|}{ef|}"},
                                           Accepted{"hosts: a [x] 345678 [y] 4", "4:{a|x|}{[y]|}{4|}"},
                                           Accepted{" hosts: a [x] 345678 0 2 4", "4:{a|x|}{0|}{2|}{4|}"},
                                           Accepted{"\thosts: a [x] 345678 0 2 4", "4:{a|x|}{0|}{2|}{4|}"},
                                           Accepted{"\rhosts: a [x] 345678 0 2 4", "4:{a|x|}{0|}{2|}{4|}"},
                                           Accepted{"~hosts: a [x] 345678 0 2 4", ""},
                                           Accepted{"hosts: a [x] 345678", "4:{a|x|}"},
                                           Accepted{"hosts: a [x] 34567 ", "4:{a|x|}"},
                                           Accepted{"hosts: a [x] 3456789", "4:{a|x|}"},
                                           Accepted{"hosts: a [x] 3456789a", "4:{a|x|}{a|}"}));

// A line that ends in one white-space character behind a service.
struct Thrower {
    std::string text;
    std::string model;
    std::string rest;
};

class NssReaderThrows : public ::testing::TestWithParam<Thrower> {};

TEST_P(NssReaderThrows, OutOfRangeAndKeepsWhatWasRead) {
    const std::string& text = GetParam().text;
    for (const Source& source : Sources(text)) {
        SCOPED_TRACE(::testing::Message() << source);
        const Outcome outcome = OutcomeOf<LibraryNssReader>(source);
        EXPECT_EQ(outcome.model, GetParam().model);
        EXPECT_EQ(outcome.error.find(std::string(typeid(std::out_of_range).name()) + ": basic_string::at: "), 0U)
            << outcome.error;
        EXPECT_EQ(text.substr(outcome.position), GetParam().rest);
    }
}

TEST_P(NssReaderThrows, OutOfRangeUnderAnotherGlobalLocale) {
    const GlobalLocale other(SameUnderAnotherName());
    const Outcome outcome = OutcomeOf<LibraryNssReader>(Source{GetParam().text});
    EXPECT_EQ(outcome.model, GetParam().model);
    EXPECT_EQ(outcome.error.find(std::string(typeid(std::out_of_range).name()) + ": basic_string::at: "), 0U)
        << outcome.error;
}

INSTANTIATE_TEST_SUITE_P(
    OneTrailingSpace, NssReaderThrows,
    ::testing::Values(Thrower{"passwd: files \ngroup: files\n", "", "group: files\n"},
                      Thrower{"passwd: files\r\ngroup: files\n", "", "group: files\n"},
                      Thrower{"passwd: files\t", "", ""}, Thrower{"passwd: files\v", "", ""},
                      Thrower{"group: x\npasswd: a b c \nhosts: d\n", "1:{a|}{b|}2:{x|}", "hosts: d\n"},
                      Thrower{"hosts: a [x] 345678 z ", "4:{a|x|}", ""}, Thrower{"  passwd: files ", "", ""}));

TEST(NssReader, WordsAreThoseOfTheGlobalLocale) {
    const std::string text = "passwd:,a,b\nhosts: c,[x,y] d e\n";
    EXPECT_EQ(OutcomeOf<LibraryNssReader>(Source{text}).model, "4:{c,[x,y]|}{d|}{e|}");
    const GlobalLocale comma(CommaLocale());
    EXPECT_EQ(OutcomeOf<LibraryNssReader>(Source{text}).model, "1:{a|}{b|}4:{c|x|y|}");
}

TEST(NssReader, OutOfRangeIsNoLogicErrorOfItsOwn) {
    std::istringstream stream("passwd: files \n");
    NSSConfiguration configuration;
    EXPECT_THROW(stream >> configuration, std::out_of_range);
    EXPECT_TRUE(stream.good());
}

TEST(NssReader, ReadingTwiceDoublesTheServices) {
    NSSConfiguration configuration;
    for (std::size_t times = 1; times <= 2; ++times) {
        std::istringstream stream("hosts: files dns\n");
        stream >> configuration;
        EXPECT_EQ(configuration[NSSDatabase::Hosts].size(), 2 * times);
    }
}

TEST(NssReader, LineWithoutServicesEntersNoDatabase) {
    std::istringstream stream("passwd:\nshadow: \ngroup: files\n");
    NSSConfiguration configuration;
    stream >> configuration;
    std::ostringstream written;
    written << configuration;
    EXPECT_EQ(written.str(), "group: files\n");
}

TEST(NssReader, LineThatThrowsAtItsFirstServiceEntersNoDatabase) {
    std::istringstream stream("passwd: files \n");
    NSSConfiguration configuration;
    EXPECT_THROW(stream >> configuration, std::out_of_range);
    std::ostringstream written;
    written << configuration;
    EXPECT_EQ(written.str(), "");
}

TEST(NssReader, FailedStreamIsLeftAlone) {
    for (const auto state : {std::ios::failbit, std::ios::badbit}) {
        std::istringstream stream("hosts: files\n");
        stream.setstate(state);
        NSSConfiguration configuration;
        stream >> configuration;
        EXPECT_TRUE(configuration[NSSDatabase::Hosts].empty());
        EXPECT_EQ(stream.rdstate() & state, state);
        stream.clear();
        EXPECT_EQ(stream.tellg(), 0);
    }
}

TEST(NssReader, ReadErrorEndsTheReading) {
    const Outcome outcome = OutcomeOf<LibraryNssReader>(Source{"hosts: files\npasswd: files\n", kNever, 20});
    EXPECT_EQ(outcome.model, "4:{files|}");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.state & std::ios::badbit, std::ios::badbit);
}

TEST(NssReader, TiedStreamIsFlushedBeforeEveryLine) {
    struct CountingBuffer : std::streambuf {
        int sync() override {
            ++flushes;
            return 0;
        }
        int flushes = 0;
    };
    CountingBuffer buffer;
    std::ostream tied(&buffer);
    std::istringstream stream("passwd: files\nhosts: dns\n");
    stream.tie(&tied);
    NSSConfiguration configuration;
    stream >> configuration;
    EXPECT_EQ(buffer.flushes, 3);
}

TEST(NssReader, StreamThatThrowsPassesItsExceptionOn) {
    std::istringstream stream("hosts: files\n");
    stream.exceptions(std::ios::failbit);
    NSSConfiguration configuration;
    EXPECT_THROW(stream >> configuration, std::ios_base::failure);
    EXPECT_EQ(configuration[NSSDatabase::Hosts].size(), 1U);
}

}  // namespace
