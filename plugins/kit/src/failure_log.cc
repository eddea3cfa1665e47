#include "pluginkit/failure_log.h"

#include <syslog.h>

namespace nimbrel::kit {

void LogFailure(const char* provider, std::uint32_t status, const char* text) noexcept {
    syslog(LOG_NOTICE, "%s: status %u: %s", provider, status, text);
}

}  // namespace nimbrel::kit
