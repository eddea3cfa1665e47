// The number is all that a provider's caller gets; the system log has the reason.

#ifndef NIMBREL_PLUGINKIT_FAILURE_LOG_H_
#define NIMBREL_PLUGINKIT_FAILURE_LOG_H_

#include <cstdint>

namespace nimbrel::kit {

// One line at priority notice, in the facility of the process: "ad: status 1355: <text>".
void LogFailure(const char* provider, std::uint32_t status, const char* text) noexcept;

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_FAILURE_LOG_H_
