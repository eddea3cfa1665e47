// The number is all that a provider's caller gets; the system log has the reason.

#ifndef NIMBREL_PLUGINKIT_FAILURE_LOG_H_
#define NIMBREL_PLUGINKIT_FAILURE_LOG_H_

#include <cstdint>

namespace nimbrel::kit {

// One line at priority notice, in the facility of the process: "ad: status 1355: <text>", with the
// text as `LogText` makes it.
void LogFailure(const char* provider, std::uint32_t status, const char* text) noexcept;

// The status of the exception being handled: a `StatusError`'s own, 8 for exhausted memory, 1359 for anything else.
// Logs it with its reason.
std::uint32_t StatusOfCurrentException(const char* provider) noexcept;

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_FAILURE_LOG_H_
