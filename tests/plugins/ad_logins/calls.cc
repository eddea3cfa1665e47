#include "calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace nimbrel::ad::test {
namespace {

Fault current;
std::atomic<int> steps = 0;

// True if the call is to fail; errno is set then.
bool Strikes() {
    if (++steps != current.step) return false;
    if (current.error == 0) _exit(kKilled);
    errno = current.error;
    return true;
}

}  // namespace

void SetFault(Fault fault) {
    current = fault;
    steps = 0;
}

int Steps() { return steps; }

extern "C" {

int __real_chmod(const char* path, mode_t mode);
int __real_fchmod(int fd, mode_t mode);
int __real_link(const char* from, const char* to);
int __real_lstat(const char* path, struct stat* status);
int __real_mkdir(const char* path, mode_t mode);
int __real_mkostemp(char* pattern, int flags);
int __real_rename(const char* from, const char* to);
int __real_rmdir(const char* path);
int __real_unlink(const char* path);
ssize_t __real_write(int fd, const void* data, size_t size);

int __wrap_chmod(const char* path, mode_t mode) { return Strikes() ? -1 : __real_chmod(path, mode); }
int __wrap_fchmod(int fd, mode_t mode) { return Strikes() ? -1 : __real_fchmod(fd, mode); }
// Nobody cuts the power here, and a busy disk takes its time.
int __wrap_fsync(int fd) { return Strikes() ? -1 : fcntl(fd, F_GETFD) < 0 ? -1 : 0; }
int __wrap_link(const char* from, const char* to) { return Strikes() ? -1 : __real_link(from, to); }
int __wrap_mkdir(const char* path, mode_t mode) { return Strikes() ? -1 : __real_mkdir(path, mode); }
int __wrap_mkostemp(char* pattern, int flags) { return Strikes() ? -1 : __real_mkostemp(pattern, flags); }
int __wrap_rename(const char* from, const char* to) { return Strikes() ? -1 : __real_rename(from, to); }
int __wrap_rmdir(const char* path) { return Strikes() ? -1 : __real_rmdir(path); }
int __wrap_unlink(const char* path) { return Strikes() ? -1 : __real_unlink(path); }
ssize_t __wrap_write(int fd, const void* data, size_t size) { return Strikes() ? -1 : __real_write(fd, data, size); }

// Files of other users cannot be made without being root: a credential cache belongs to the user that its name tells.
int __wrap_lstat(const char* path, struct stat* status) {
    const int result = __real_lstat(path, status);
    const std::string text = path;
    const auto name = text.rfind("/krb5cc_");
    if (result == 0 && name != std::string::npos) {
        status->st_uid = static_cast<uid_t>(std::strtoul(text.c_str() + name + 8, nullptr, 10));
    }
    return result;
}

}  // extern "C"

}  // namespace nimbrel::ad::test
