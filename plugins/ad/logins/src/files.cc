#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>
#include <thread>

#include "adlogins/log_ins.h"

namespace nimbrel::ad::logins {
namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kLockMode = 0600;
constexpr mode_t kPermissionBits = 07777;
constexpr std::size_t kMaximumFile = 1024 * 1024;
constexpr auto kLockTime = std::chrono::seconds(10);
constexpr auto kLockPause = std::chrono::milliseconds(20);

std::uint32_t StatusOf(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
        case EROFS:
        case ELOOP:
            return 5;
        case ENOSPC:
        case EDQUOT:
            return 112;
        case EWOULDBLOCK:
            return 170;
        default:
            return 1359;
    }
}

std::string ReadAll(int fd, const std::string& path) {
    std::string text;
    char buffer[8192];
    while (text.size() <= kMaximumFile) {
        const ssize_t count = read(fd, buffer, sizeof(buffer));
        if (count == 0) return text;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) ThrowFileError("read", path, errno);
        text.append(buffer, static_cast<std::size_t>(count));
    }
    ThrowFileError("read", path, EFBIG);
}

// True if it was made, false if it was there.
bool MakeFolder(const std::string& folder, mode_t mode) {
    if (mkdir(folder.c_str(), mode) == 0) {
        if (chmod(folder.c_str(), mode) == 0) return true;  // the umask may have taken rights
        ThrowFileError("make", folder, errno);
    }
    if (errno == EEXIST) return false;
    ThrowFileError("make", folder, errno);
}

// Whoever can open a file can lock it.
Descriptor OpenLock(const std::string& path) {
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kLockMode));
    if (!file) ThrowFileError("open", path, errno);
    struct stat status = {};
    if (fstat(file.Number(), &status) != 0) ThrowFileError("open", path, errno);
    const bool own = status.st_uid == geteuid() || status.st_uid == 0;
    if (!S_ISREG(status.st_mode) || !own || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw LogInsError(5, "'" + path + "' is refused as a lock: others may use it");
    }
    return file;
}

bool HasName(const Descriptor& file) {
    struct stat status = {};
    return fstat(file.Number(), &status) != 0 || status.st_nlink > 0;
}

Descriptor AwaitLock(const std::string& path) {
    const auto end = std::chrono::steady_clock::now() + kLockTime;
    for (;;) {
        Descriptor file = OpenLock(path);
        if (flock(file.Number(), LOCK_EX | LOCK_NB) == 0) {
            if (HasName(file)) return file;
            continue;
        }
        const int error = errno;
        if (error == EINTR) continue;
        if (error != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) ThrowFileError("lock", path, error);
        std::this_thread::sleep_for(kLockPause);
    }
}

}  // namespace

Descriptor::~Descriptor() {
    if (_number >= 0) close(_number);
}

void ThrowFileError(const std::string& action, const std::string& path, int error) {
    throw LogInsError(StatusOf(error),
                      "Unable to " + action + " '" + path + "': " + std::generic_category().message(error));
}

std::optional<FileText> ReadFile(const std::string& path) {
    const Descriptor fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR) return std::nullopt;
        ThrowFileError("read", path, error);
    }
    struct stat status = {};
    if (fstat(fd.Number(), &status) != 0) ThrowFileError("read", path, errno);
    if (!S_ISREG(status.st_mode)) throw LogInsError(5, "'" + path + "' is refused: it is not a regular file");
    return FileText{ReadAll(fd.Number(), path), status.st_mode & kPermissionBits};
}

std::optional<std::string> ReadFileIfPossible(const std::string& path) {
    try {
        if (const auto file = ReadFile(path)) return file->text;
    } catch (const LogInsError&) {
        // Unreadable is as good as absent here, see the header.
    }
    return std::nullopt;
}

std::vector<std::string> FileNames(const std::string& folder) {
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    std::vector<std::string> names;
    const std::unique_ptr<DIR, Close> stream(opendir(folder.c_str()));
    while (stream != nullptr) {
        const dirent* const entry = readdir(stream.get());
        if (entry == nullptr) break;
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool RemoveFile(const std::string& path) {
    if (unlink(path.c_str()) == 0) return true;
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) return false;
    ThrowFileError("remove", path, error);
}

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::vector<std::string> MakeFolders(const std::string& folder, mode_t mode) {
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0) return {};
    std::vector<std::string> made = MakeFolders(FolderOf(folder), kFolderMode);
    if (MakeFolder(folder, mode)) made.push_back(folder);
    return made;
}

RecordLock::RecordLock(const std::string& path) : _path(path), _file(AwaitLock(path)) {}

// The name goes first: who waits for the lock then sees that it has got an old file, and makes a new one. Unlocked by
// name: a child that was forked meanwhile shares the lock with the descriptor.
RecordLock::~RecordLock() {
    unlink(_path.c_str());
    flock(_file.Number(), LOCK_UN);
}

}  // namespace nimbrel::ad::logins
