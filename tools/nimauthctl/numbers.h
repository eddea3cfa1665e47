// Numbers and durations as they are typed. Each function takes the whole text or throws `UsageError`, whose message
// begins with `what`: "--count: '12x' is not a whole number from 1 to 4294967295".

#ifndef NIMAUTHCTL_NUMBERS_H_
#define NIMAUTHCTL_NUMBERS_H_

#include <cstdint>
#include <string>

namespace nimbrel::nimauthctl {

// Decimal digits with an optional '-'.
std::int64_t ParseInteger(const std::string& what, const std::string& text, std::int64_t lowest, std::int64_t highest);

// A status code, 1 to 4294967295, decimal ("1326") or hexadecimal ("0x52e").
std::uint32_t ParseStatus(const std::string& what, const std::string& text);

// Milliseconds ("1500"), or with a unit "1500ms", "10s", "5m", "1h"; at most `highest` milliseconds.
std::uint32_t ParseMilliseconds(const std::string& what, const std::string& text, std::uint32_t highest);

// "yes" or "no".
bool ParseYesNo(const std::string& what, const std::string& text);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_NUMBERS_H_
