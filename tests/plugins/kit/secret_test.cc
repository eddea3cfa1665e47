#include "pluginkit/secret.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace nimbrel::kit {
namespace {

TEST(Secrets, AreSixtyFourDigitsAndDifferent) {
    const Secret first = Secret::Random();
    const Secret second = Secret::Random();
    EXPECT_EQ(first.View().size(), 64U);
    EXPECT_EQ(first.View().find_first_not_of("0123456789abcdef"), std::string_view::npos);
    EXPECT_NE(first.View(), second.View());
    EXPECT_EQ(std::string(first.Text()), first.View());
}

TEST(Secrets, MovingTakesTheTextAway) {
    Secret from("text");
    Secret to(std::move(from));
    EXPECT_EQ(from.View(), "");
    EXPECT_EQ(to.View(), "text");
    Secret assigned("old");
    assigned = std::move(to);
    EXPECT_EQ(to.View(), "");
    EXPECT_STREQ(to.Text(), "");
    EXPECT_EQ(assigned.View(), "text");
}

TEST(Secrets, EndWithANulThatDoesNotCount) {
    const Secret secret(std::string_view("a\0b", 3));
    EXPECT_EQ(secret.View(), std::string_view("a\0b", 3));
    EXPECT_EQ(secret.Text()[3], '\0');
    EXPECT_EQ(Secret().View(), "");
    EXPECT_STREQ(Secret().Text(), "");
}

TEST(Secrets, AreWipedBeforeTheirMemoryIsGivenBack) {
    char memory[8] = {'s', 'e', 'c', 'r', 'e', 't', 0, 0};
    Wipe(memory, sizeof memory);
    for (const char byte : memory) {
        EXPECT_EQ(byte, 0);
    }
    Wipe(nullptr, 0);
}

// A byte that stays zero in 64 draws would be one in 2^512.
TEST(Secrets, RandomBytesFillTheWholeRoom) {
    unsigned char seen[16] = {};
    for (int draw = 0; draw < 64; ++draw) {
        unsigned char bytes[16] = {};
        FillRandom(bytes, sizeof bytes);
        for (std::size_t i = 0; i < sizeof bytes; ++i) seen[i] |= bytes[i];
    }
    for (const unsigned char byte : seen) EXPECT_NE(byte, 0);
}

}  // namespace
}  // namespace nimbrel::kit
