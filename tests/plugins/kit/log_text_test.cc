// What others have said, as a line of the log.

#include "pluginkit/log_text.h"

#include <gtest/gtest.h>

#include <string>

namespace nimbrel::kit {
namespace {

using namespace std::string_literals;

TEST(LogText, HasNoControlCharactersAndIsUtf8) {
    const struct {
        std::string text;
        const char* line;
    } kRows[] = {
        {"", ""},
        {"status 5: \"a\" 100 %", "status 5: \"a\" 100 %"},
        {"x)\nNov 21 host sshd[1]: Accepted\r\t\x1b[31m\x7f", "x)?Nov 21 host sshd[1]: Accepted???[31m?"},
        {"a\0b"s, "a?b"},
        {"B\xc3\xbc"
         "cher \xe2\x82\xac \xf0\x9f\x98\x80",
         "B\xc3\xbc"
         "cher \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", "???\xc2\xa0"},
        {"\xe2\x80\xa7\xe2\x80\xa8\xe2\x80\xa9\xe2\x80\xaa", "\xe2\x80\xa7??\xe2\x80\xaa"},
        {"\xff\xc3 \xed\xa0\x80\xe2\x82", "?? ?????"},
    };
    for (const auto& row : kRows) EXPECT_STREQ(LogText(row.text).Text(), row.line);
}

TEST(LogText, IsCutBetweenCharacters) {
    const std::string whole(LogText::kMaximumSize, 'x');
    EXPECT_EQ(LogText(whole).Text(), whole);
    EXPECT_EQ(LogText(whole + "y").Text(), whole + "...");
    EXPECT_EQ(LogText(std::string(5'000'000, 'x')).Text(), whole + "...");
    const std::string almost = whole.substr(1);
    EXPECT_EQ(LogText(almost + "\xc3\xbc").Text(), almost + "...");
}

}  // namespace
}  // namespace nimbrel::kit
