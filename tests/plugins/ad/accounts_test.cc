#include "computer_account.h"

#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

std::string Value(std::string_view password) { return std::string(PasswordValue(password).View()); }

TEST(PasswordValue, IsQuotedUtf16) {
    EXPECT_EQ(Value("aB"), std::string("\"\0a\0B\0\"\0", 8));
    EXPECT_EQ(Value("\xc3\xa4"), std::string("\"\0\xe4\0\"\0", 6));
    EXPECT_EQ(Value("\xe2\x82\xac"), std::string("\"\0\xac\x20\"\0", 6));
    EXPECT_EQ(Value("\xf0\x9f\x98\x80"), std::string("\"\0\x3d\xd8\x00\xde\"\0", 8));
    EXPECT_EQ(Value(""), std::string("\"\0\"\0", 4));
}

TEST(PasswordValue, TakesUtf8Only) {
    for (const char* password : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\x80", "\xf4\x90\x80\x80"}) {
        EXPECT_EQ(StatusOf([&] { PasswordValue(password); }), kStatusLogonFailure);
    }
}

}  // namespace
}  // namespace nimbrel::ad::test
