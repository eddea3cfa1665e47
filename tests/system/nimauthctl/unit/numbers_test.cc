#include "tools/nimauthctl/numbers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {
namespace {

using ::testing::StartsWith;

template <typename Parse>
auto Try(Parse parse) -> std::optional<decltype(parse())> {
    try {
        return parse();
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(), StartsWith("--it: '"));
        return std::nullopt;
    }
}

struct IntegerCase {
    const char* text;
    std::optional<std::int64_t> value;
};

TEST(NumbersTest, IntegersAreWholeDecimalAndInRange) {
    constexpr IntegerCase kCases[] = {
        {"0", 0},    {"-5", -5},   {"100", 100}, {"-100", -100}, {"007", 7},
        {"101", {}}, {"-101", {}}, {"", {}},     {" 1", {}},     {"1 ", {}},
        {"+1", {}},  {"1.0", {}},  {"0x10", {}}, {"1e1", {}},    {"--1", {}},
        {"-", {}},   {"one", {}},  {"1\n", {}},  {"\xff", {}},   {"9223372036854775808", {}},
    };
    for (const IntegerCase& expected : kCases) {
        EXPECT_EQ(expected.value, Try([&] { return ParseInteger("--it", expected.text, -100, 100); })) << expected.text;
    }
}

TEST(NumbersTest, TheWholeRangeOf64BitsIsTaken) {
    using Limits = std::numeric_limits<std::int64_t>;
    for (const std::int64_t value : {Limits::min(), Limits::max()}) {
        EXPECT_EQ(value, ParseInteger("--it", std::to_string(value), Limits::min(), Limits::max()));
    }
}

struct StatusCase {
    const char* text;
    std::optional<std::uint32_t> value;
};

TEST(NumbersTest, StatusIsDecimalOrHexadecimalAndNotZero) {
    constexpr StatusCase kCases[] = {
        {"1326", 1326},
        {"0x52e", 1326},
        {"0X52E", 1326},
        {"4294967295", 4294967295u},
        {"0xffff0000", 4294901760u},
        {"0", {}},
        {"0x0", {}},
        {"0x", {}},
        {"", {}},
        {"-1", {}},
        {"4294967296", {}},
        {"0x100000000", {}},
        {"52e", {}},
        {"0x-1", {}},
        {"1326 ", {}},
    };
    for (const StatusCase& expected : kCases) {
        EXPECT_EQ(expected.value, Try([&] { return ParseStatus("--it", expected.text); })) << expected.text;
    }
}

TEST(NumbersTest, TimesAreMillisecondsOrHaveAUnit) {
    constexpr StatusCase kCases[] = {
        {"0", 0},
        {"1500", 1500},
        {"1500ms", 1500},
        {"10s", 10'000},
        {"5m", 300'000},
        {"24h", 86'400'000},
        {"25h", {}},
        {"86400001", {}},
        {"86401s", {}},
        {"s", {}},
        {"", {}},
        {"ms", {}},
        {"1.5s", {}},
        {"-1s", {}},
        {"1 s", {}},
        {"1S", {}},
        {"1d", {}},
        {"1sm", {}},
        {"18446744073709551615h", {}},
        {"18446744073709551616", {}},
    };
    for (const StatusCase& expected : kCases) {
        EXPECT_EQ(expected.value, Try([&] { return ParseMilliseconds("--it", expected.text, 86'400'000); }))
            << expected.text;
    }
}

TEST(NumbersTest, YesAndNoAreTheOnlyAnswers) {
    EXPECT_TRUE(ParseYesNo("--it", "yes"));
    EXPECT_FALSE(ParseYesNo("--it", "no"));
    for (const char* const text : {"", "y", "YES", "true", "1", "yes "})
        EXPECT_THROW(ParseYesNo("--it", text), UsageError);
}

}  // namespace
}  // namespace nimbrel::nimauthctl
