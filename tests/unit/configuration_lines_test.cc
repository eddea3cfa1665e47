// What the lines of a settings file mean.

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "unit/configuration_outcome.h"

namespace {

using namespace std::string_literals;
using nimbrel::authentication::ConfigurationError;
using nimbrel::authentication::GetKeyValuePair;

std::string ErrorOf(const std::string& line, int lineNumber) {
    try {
        const auto [key, value] = GetKeyValuePair(line, lineNumber);
        return "no error: [" + key + "]=[" + value + "]";
    } catch (const ConfigurationError& error) {
        EXPECT_EQ(error.GetCode(), 0U);
        return error.what();
    }
}

// Reads one text after the other with the library, through a real descriptor.
class ConfigurationLines : public ::testing::Test {
 protected:
    Outcome Read(const std::string& text) const {
        _file.Put(text);
        return LibraryOutcome(_file.Path());
    }

    // The library and the literal reader agree on every text over the given characters, up to a length.
    void ExpectAgreement(std::string_view characters, std::size_t length, const std::string& start = "") const {
        ASSERT_EQ(Read(start), LiteralOutcome(start)) << Shown(start);
        if (length == 0) return;
        for (const char character : characters) {
            ExpectAgreement(characters, length - 1, start + character);
            if (HasFatalFailure()) return;
        }
    }

 private:
    MemoryFile _file;
};

TEST_F(ConfigurationLines, LineGivesKeyAndValue) {
    const struct {
        std::string line, key, value;
    } kRows[] = {
        {R"(provider = "libfoo")", "provider", "libfoo"},
        {"provider=libfoo", "provider", "libfoo"},
        {"\t provider \t=\t libfoo \t", "provider", "libfoo"},
        {R"("remote-authentication-store" = 'None')", "remote-authentication-store", "None"},
        {R"(a = "x = y")", "a", "x = y"},
        {"a = x = y", "a", "x = y"},
        {"a==", "a", "="},
        {R"("a=b" = c)", "\"a", "b\" = c"},
        {R"(a = "")", "a", ""},
        {"a = ''", "a", ""},
        {"a =", "a", ""},
        {"a =   ", "a", "   "},
        {"a = \t", "a", " \t"},
        {"=", "", ""},
        {"= v", "", "v"},
        {"  = v", "  ", "v"},
        {"a = b c", "a", "b c"},
        {"a = x", "a", "x"},
        {R"(a = "abc')", "a", "\"abc'"},
        {R"(a = 'abc")", "a", "'abc\""},
        {R"(a = "abc)", "a", "\"abc"},
        {R"(a = abc")", "a", "abc\""},
        {R"(a = "'")", "a", "'"},
        {R"(a = '"')", "a", "\""},
        {R"(a = """)", "a", "\""},
        {R"(a = """")", "a", "\"\""},
        {R"(a = "'b'")", "a", "'b'"},
        {R"(a = "  b  ")", "a", "  b  "},
        {R"(a =   "  "   )", "a", "  "},
        {R"('a' = b)", "a", "b"},
        {R"('' = b)", "", "b"},
        {R"("" = "")", "", ""},
        {"# a = b", "# a", "b"},
        {"#=#", "#", "#"},
        {"a = \"b\"\r", "a", "\"b\"\r"},
        {"a = b\r", "a", "b\r"},
        {"a = \r", "a", "\r"},
        {"a = \v", "a", "\v"},
        {"a = \f b", "a", "\f b"},
        {"a\0b = c\0d"s, "a\0b"s, "c\0d"s},
        {"a = \0"s, "a", "\0"s},
        {"\xff\xfe = \xc3\x28", "\xff\xfe", "\xc3\x28"},
        {"\xc2\xa0 = \xc2\xa0", "\xc2\xa0", "\xc2\xa0"},
        {"a = b\nc", "a", "b\nc"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(GetKeyValuePair(row.line, 1), std::make_pair(row.key, row.value)) << Shown(row.line);
    }
}

TEST_F(ConfigurationLines, MalformedLineIsNamedByItsNumber) {
    const struct {
        std::string line;
        int number;
        std::string message;
    } kRows[] = {
        {"", 1, "Error parsing configuration on line 1: no delimiter found"},
        {"# comment", 3, "Error parsing configuration on line 3: no delimiter found"},
        {"   ", 7, "Error parsing configuration on line 7: no delimiter found"},
        {R"("a")", 1, "Error parsing configuration on line 1: no delimiter found"},
        {"a\0b"s, 1, "Error parsing configuration on line 1: no delimiter found"},
        {R"(a = ")", 1, "Error parsing configuration at line 1: invalid quoting"},
        {"a = '", 2, "Error parsing configuration at line 2: invalid quoting"},
        {"a =\t\" ", 2, "Error parsing configuration at line 2: invalid quoting"},
        {R"(" = a)", 12, "Error parsing configuration at line 12: invalid quoting"},
        {"'=", 5, "Error parsing configuration at line 5: invalid quoting"},
        {"\"", 5, "Error parsing configuration on line 5: no delimiter found"},
        {"x", 0, "Error parsing configuration on line 0: no delimiter found"},
        {"x", -1, "Error parsing configuration on line -1: no delimiter found"},
        {"x", 2147483647, "Error parsing configuration on line 2147483647: no delimiter found"},
    };
    for (const auto& row : kRows) EXPECT_EQ(ErrorOf(row.line, row.number), row.message) << Shown(row.line);
}

TEST_F(ConfigurationLines, FileGivesItsSettings) {
    const struct {
        std::string text;
        literal::Settings settings;
    } kRows[] = {
        {"", {}},
        {"\n", {}},
        {"\n \n\t\n \t \n", {}},
        {" \t", {}},
        {"a = 1\n", {{"a", "1"}}},
        {"a = 1", {{"a", "1"}}},
        {"a = 1\n\n", {{"a", "1"}}},
        {"b = 2\na = 1\n", {{"a", "1"}, {"b", "2"}}},
        {"a = \"1\"\nb = 2\na = \"2\"\n", {{"a", "1"}, {"b", "2"}}},
        {"a = 1\n\"a\" = 2\n 'a'=3", {{"a", "1"}}},
        {"b = 1\na = 2\nb = 3\na = 4\n", {{"a", "2"}, {"b", "1"}}},
        {"a = \"1\"\r\n", {{"a", "\"1\"\r"}}},
        {"a\0 = 1\na = 2\n"s, {{"a", "2"}, {"a\0"s, "1"}}},
        {"A = 1\na = 2\n\xc3\xa4 = 3\n", {{"A", "1"}, {"a", "2"}, {"\xc3\xa4", "3"}}},
    };
    for (const auto& row : kRows) EXPECT_EQ(Read(row.text), (Outcome{row.settings, ""})) << Shown(row.text);
}

TEST_F(ConfigurationLines, SampleOfTheHeaderReadsAsItSays) {
    const Outcome outcome = Read("provider = \"embedded\"\n\n\"other key\" = 'x = y'\nlast=one");
    EXPECT_EQ(outcome.settings, (literal::Settings{{"last", "one"}, {"other key", "x = y"}, {"provider", "embedded"}}));
}

TEST_F(ConfigurationLines, ErrorCountsEveryLineBlankOnesIncluded) {
    EXPECT_EQ(Read("a = 1\n\n# comment\n").error, "Error parsing configuration on line 3: no delimiter found");
    EXPECT_EQ(Read("\n \n\t\nx").error, "Error parsing configuration on line 4: no delimiter found");
    EXPECT_EQ(Read("a = \"\n").error, "Error parsing configuration at line 1: invalid quoting");
    EXPECT_EQ(Read("a = 1\na = \"\n").error, "Error parsing configuration at line 2: invalid quoting");
    EXPECT_EQ(Read(std::string(69999, '\n') + "x\n").error,
              "Error parsing configuration on line 70000: no delimiter found");
}

TEST_F(ConfigurationLines, LineOfCarriageReturnIsNotBlank) {
    EXPECT_EQ(Read("\r\n").error, "Error parsing configuration on line 1: no delimiter found");
}

TEST_F(ConfigurationLines, EveryShortTextReadsAsTheLiteralReaderReadsIt) {
    ExpectAgreement("a=\"' \t\n\r#", EXHAUSTIVE_LENGTH);
}

// Fewer characters, longer texts: two settings with quotes and repeated keys fit in.
TEST_F(ConfigurationLines, EveryLongerTextOverFourCharactersReadsAsTheLiteralReaderReadsIt) {
    ExpectAgreement("a=\"\n", EXHAUSTIVE_LENGTH + 2);
}

}  // namespace
