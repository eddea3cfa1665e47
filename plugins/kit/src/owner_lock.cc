#include "pluginkit/owner_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <utility>

#include "pluginkit/status_error.h"

namespace nimbrel::kit {
namespace {

constexpr mode_t kLockMode = 0600;
constexpr mode_t kPermissionBits = 07777;

bool IsOwn(const struct stat& status) {
    const bool owned = status.st_uid == geteuid() || status.st_uid == 0;
    return S_ISREG(status.st_mode) && owned && status.st_nlink <= 1 && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// A holder that has ended meanwhile took the name away: the next one to come would lock another file.
bool HasName(const Descriptor& file) {
    struct stat status = {};
    return fstat(file.Number(), &status) != 0 || status.st_nlink > 0;
}

}  // namespace

OwnerLock::OwnerLock(std::string path, File file) : _path(std::move(path)), _kind(file) {}

OwnerLock::~OwnerLock() { Release(); }

Descriptor OwnerLock::Open() const {
    Descriptor file(open(_path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kLockMode));
    if (!file) ThrowFileError("open", _path, errno);
    struct stat status = {};
    if (fstat(file.Number(), &status) != 0) ThrowFileError("examine", _path, errno);
    if (!IsOwn(status)) {
        throw StatusError(status::kStatusAccessDenied, "'" + _path + "' is refused as a lock: others may use it");
    }
    const bool complete = (status.st_mode & kPermissionBits) == kLockMode;  // the umask may have taken rights
    if (!complete && fchmod(file.Number(), kLockMode) != 0) ThrowFileError("open", _path, errno);
    return file;
}

bool OwnerLock::Try() {
    for (;;) {
        Descriptor file = Open();
        if (flock(file.Number(), LOCK_EX | LOCK_NB) == 0) {
            if (!HasName(file)) continue;
            _file = std::move(file);
            return true;
        }
        const int error = errno;
        if (error == EWOULDBLOCK) return false;
        if (error != EINTR) ThrowFileError("lock", _path, error);
    }
}

bool OwnerLock::TryFor(std::chrono::milliseconds most) {
    const auto end = std::chrono::steady_clock::now() + most;
    while (!Try()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kLockPause);
    }
    return true;
}

// The name goes first: who waits for the lock then sees that it has got an old file, and makes a new one. Unlocked by
// call, not by closing: a child that was forked meanwhile has the file open, too.
bool OwnerLock::Release() noexcept {
    if (!_file) return true;
    const bool gone = _kind == File::Stays || unlink(_path.c_str()) == 0;
    flock(_file.Number(), LOCK_UN);
    _file.Close();
    return gone;
}

}  // namespace nimbrel::kit
