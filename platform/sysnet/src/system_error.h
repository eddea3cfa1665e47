// How every failure of a system call is told: what could not be done to which file, and the system's text.

#ifndef SYSNET_SRC_SYSTEM_ERROR_H_
#define SYSNET_SRC_SYSTEM_ERROR_H_

#include <string>
#include <system_error>

#include "hostmgmt/exceptions.h"

namespace SysNet::Network {

// `doing` is for example "replace".
[[noreturn]] inline void ThrowFileError(const std::string& doing, const std::string& path, const std::string& reason) {
    throw HostMgmt::Lib::HostMgmtException(("Cannot " + doing + " " + path + ": " + reason).c_str());
}

// `error` is an errno.
[[noreturn]] inline void ThrowSystemError(const std::string& doing, const std::string& path, int error) {
    ThrowFileError(doing, path, std::generic_category().message(error));
}

}  // namespace SysNet::Network

#endif  // SYSNET_SRC_SYSTEM_ERROR_H_
