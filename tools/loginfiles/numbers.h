#ifndef TOOLS_LOGINFILES_NUMBERS_H_
#define TOOLS_LOGINFILES_NUMBERS_H_

#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

namespace nimbrel::logins {

// The number that the whole text is; unset for anything else, and for one that is too large.
template <typename Number>
std::optional<Number> WholeNumber(std::string_view text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

// The number at the beginning of the text: 0 if there is none, the largest for one that is larger.
template <typename Number>
Number LeadingNumber(std::string_view text) {
    Number number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc::result_out_of_range ? std::numeric_limits<Number>::max() : number;
}

}  // namespace nimbrel::logins

#endif  // TOOLS_LOGINFILES_NUMBERS_H_
