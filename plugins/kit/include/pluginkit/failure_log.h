// The number is all that a provider's caller gets; the system log has the reason.

#ifndef NIMBREL_PLUGINKIT_FAILURE_LOG_H_
#define NIMBREL_PLUGINKIT_FAILURE_LOG_H_

#include <cstdint>
#include <exception>
#include <new>

namespace nimbrel::kit {

// One line at priority notice, in the facility of the process: "ad: status 1355: <text>".
void LogFailure(const char* provider, std::uint32_t status, const char* text) noexcept;

// The status of the exception being handled, which is logged: an `Error`'s own `Status()`, 8 for exhausted memory, 1359
// for anything else.
template <class Error>
std::uint32_t StatusOfCurrentException(const char* provider) noexcept {
    constexpr std::uint32_t kNotEnoughMemory = 8;
    constexpr std::uint32_t kInternalError = 1359;
    const auto logged = [provider](std::uint32_t status, const char* text) {
        LogFailure(provider, status, text);
        return status;
    };
    try {
        throw;
    } catch (const Error& error) {
        return logged(error.Status(), error.what());
    } catch (const std::bad_alloc& error) {
        return logged(kNotEnoughMemory, error.what());
    } catch (const std::exception& error) {
        return logged(kInternalError, error.what());
    } catch (...) {
        return logged(kInternalError, "an unknown exception");
    }
}

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_FAILURE_LOG_H_
