#include "tools/nimauthctl/numbers.h"

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "tools/nimauthctl/failure.h"

namespace nimbrel::nimauthctl {
namespace {

[[noreturn]] void Refuse(const std::string& what, const std::string& text, const std::string& wanted) {
    throw UsageError(what + ": '" + text + "' is not " + wanted);
}

template <typename Number>
std::optional<Number> Parse(std::string_view text, int base = 10) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

struct Unit {
    std::string_view suffix;
    std::uint64_t milliseconds;
};

// "ms" before "s" and "m", which it ends and begins with.
constexpr std::array<Unit, 5> kUnits = {{{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}, {"", 1}}};

const Unit& UnitOf(std::string_view text) {
    for (const Unit& unit : kUnits) {
        if (text.ends_with(unit.suffix)) return unit;
    }
    return kUnits.back();
}

}  // namespace

std::int64_t ParseInteger(const std::string& what, const std::string& text, std::int64_t lowest, std::int64_t highest) {
    const auto value = Parse<std::int64_t>(text);
    if (!value || *value < lowest || *value > highest) {
        Refuse(what, text, "a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return *value;
}

std::uint32_t ParseStatus(const std::string& what, const std::string& text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const auto value =
        hexadecimal ? Parse<std::uint32_t>(std::string_view(text).substr(2), 16) : Parse<std::uint32_t>(text);
    if (!value || *value == 0) Refuse(what, text, "a status code from 1 to 4294967295, decimal or 0x hexadecimal");
    return *value;
}

std::uint32_t ParseMilliseconds(const std::string& what, const std::string& text, std::uint32_t highest) {
    const Unit& unit = UnitOf(text);
    const auto count = Parse<std::uint64_t>(std::string_view(text).substr(0, text.size() - unit.suffix.size()));
    if (!count || *count > highest / unit.milliseconds) {
        Refuse(what, text,
               "a time in milliseconds or with a unit (1500ms, 10s, 5m, 1h) of at most " +
                   std::to_string(highest / 1000) + "s");
    }
    return static_cast<std::uint32_t>(*count * unit.milliseconds);
}

bool ParseYesNo(const std::string& what, const std::string& text) {
    if (text != "yes" && text != "no") Refuse(what, text, "yes or no");
    return text == "yes";
}

}  // namespace nimbrel::nimauthctl
