#include "pluginkit/failure_log.h"

#include <syslog.h>

#include <exception>
#include <new>

#include "pluginkit/log_text.h"
#include "pluginkit/status_error.h"

namespace nimbrel::kit {
namespace {

std::uint32_t Logged(const char* provider, std::uint32_t status, const char* text) noexcept {
    LogFailure(provider, status, text);
    return status;
}

}  // namespace

void LogFailure(const char* provider, std::uint32_t status, const char* text) noexcept {
    syslog(LOG_NOTICE, "%s: status %u: %s", provider, status, LogText(text).Text());
}

std::uint32_t StatusOfCurrentException(const char* provider) noexcept {
    try {
        throw;
    } catch (const StatusError& error) {
        return Logged(provider, error.Status(), error.what());
    } catch (const std::bad_alloc& error) {
        return Logged(provider, status::kStatusNotEnoughMemory, error.what());
    } catch (const std::exception& error) {
        return Logged(provider, status::kStatusInternalError, error.what());
    } catch (...) {
        return Logged(provider, status::kStatusInternalError, "an unknown exception");
    }
}

}  // namespace nimbrel::kit
