#include "pluginkit/status_error.h"

#include <cerrno>
#include <system_error>

namespace nimbrel::kit {

std::uint32_t StatusOfFileError(int error) noexcept {
    switch (error) {
        case EACCES:
        case EPERM:
        case EROFS:
        case ELOOP:
            return status::kStatusAccessDenied;
        case ENOSPC:
        case EDQUOT:
            return status::kStatusDiskFull;
        case EWOULDBLOCK:
            return status::kStatusBusy;
        default:
            return status::kStatusInternalError;
    }
}

void ThrowFileError(const std::string& action, const std::string& path, int error) {
    throw StatusError(StatusOfFileError(error),
                      "Unable to " + action + " '" + path + "': " + std::generic_category().message(error));
}

}  // namespace nimbrel::kit
