#include "text_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "system_error.h"
#include "unique_fd.h"

namespace SysNet::Network {
namespace {

constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kFolderMode = 0755;

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Returns 0 or an errno.
int WriteAll(int fd, std::string_view content, off_t offset) {
    while (!content.empty()) {
        const ssize_t written = pwrite(fd, content.data(), content.size(), offset);
        if (written < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        content.remove_prefix(static_cast<std::size_t>(written));
        offset += written;
    }
    return 0;
}

// Returns 0 or an errno.
int ReadAll(int fd, std::string& content) {
    char buffer[16384];
    for (;;) {
        const ssize_t count = read(fd, buffer, sizeof(buffer));
        if (count == 0) return 0;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        content.append(buffer, static_cast<std::size_t>(count));
    }
}

// The new file is in place by now, so a folder that cannot be synchronised is no failure of the replacement.
void SyncFolder(const std::string& folder) {
    const UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.Get() >= 0) fsync(fd.Get());
}

// The file that a symbolic link leads to; the path itself if it is none.
std::string ResolveLink(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> target(realpath(path.c_str(), nullptr));
    if (target == nullptr) ThrowSystemError("follow the symbolic link", path, errno);
    return target.get();
}

// Labels and access lists. What the file system or the system's policy does not let us set, the new file gets by default.
void CopyExtendedAttributes(int from, int to) {
    const ssize_t size = flistxattr(from, nullptr, 0);
    if (size <= 0) return;
    std::string names(static_cast<std::size_t>(size), '\0');
    const ssize_t filled = flistxattr(from, names.data(), names.size());
    for (ssize_t at = 0; at < filled;) {
        const std::string name = names.c_str() + at;
        at += static_cast<ssize_t>(name.size()) + 1;
        std::string value(65536, '\0');
        const ssize_t length = fgetxattr(from, name.c_str(), value.data(), value.size());
        if (length >= 0) fsetxattr(to, name.c_str(), value.data(), static_cast<std::size_t>(length), 0);
    }
}

// What the names of new files begin with; other programs leave theirs in the same folders.
std::string NewPrefix(const std::string& path) {
    return FolderOf(path) + "/." + path.substr(path.rfind('/') + 1) + ".nimauth-";
}

bool Lock(const UniqueFd& fd) { return flock(fd.Get(), LOCK_EX | LOCK_NB) == 0; }

bool HasName(const UniqueFd& fd) {
    struct stat status = {};
    return fstat(fd.Get(), &status) != 0 || status.st_nlink > 0;
}

// What processes left that were killed while they replaced the file. Who replaces one holds a lock on the new file, so a
// file that can be locked is nobody's. What cannot be removed stays.
void RemoveAbandonedFiles(const std::string& path) {
    const std::string prefix = NewPrefix(path);
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    const std::unique_ptr<DIR, Close> folder(opendir(FolderOf(path).c_str()));
    for (const dirent* entry = nullptr; folder != nullptr && (entry = readdir(folder.get())) != nullptr;) {
        const std::string name = FolderOf(path) + "/" + entry->d_name;
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        const UniqueFd fd(open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (fd.Get() >= 0 && Lock(fd)) unlink(name.c_str());
    }
}

// A new file next to the one that it will replace. Goes away unless it has been renamed.
class Replacement {
 public:
    // A failure to make the file is not thrown: `Error` tells it.
    explicit Replacement(const std::string& path) : _prefix(NewPrefix(path)), _fd(MakeLocked()) {}
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement() {
        if (_fd.Get() >= 0 && !_renamed) unlink(_name.c_str());
    }

    int Error() const { return _error; }

    // The steps return 0 or an errno.
    int Fill(std::string_view content) { return WriteAll(_fd.Get(), content, 0); }

    int TakeOwner(const struct stat& old) {
        struct stat own = {};
        if (fstat(_fd.Get(), &own) != 0) return errno;
        if (own.st_uid == old.st_uid && own.st_gid == old.st_gid) return 0;
        return fchown(_fd.Get(), old.st_uid, old.st_gid) == 0 ? 0 : errno;
    }

    // The access list is among the attributes and agrees with the mode, which comes last.
    int TakeAttributes(int oldFd, mode_t mode) {
        if (oldFd >= 0) CopyExtendedAttributes(oldFd, _fd.Get());
        return fchmod(_fd.Get(), mode & 07777) == 0 ? 0 : errno;
    }

    int Commit(const std::string& path) {
        const std::string folder = FolderOf(path);  // before the rename: no memory may be needed after it
        if (fsync(_fd.Get()) != 0) return errno;
        if (rename(_name.c_str(), path.c_str()) != 0) return errno;
        _renamed = true;
        SyncFolder(folder);
        return 0;
    }

 private:
    // Between the making and the lock somebody may have taken the file for an abandoned one. A file system without
    // locks keeps what is abandoned. -1 if no file can be made.
    UniqueFd MakeLocked() {
        for (;;) {
            _name = _prefix + "XXXXXX";
            UniqueFd fd(mkostemp(_name.data(), O_CLOEXEC));
            if (fd.Get() < 0) {
                _error = errno;
                return fd;
            }
            const bool isMine = Lock(fd) || errno != EWOULDBLOCK;
            if (isMine && HasName(fd)) return fd;
        }
    }

    std::string _prefix;
    std::string _name;
    int _error = 0;
    const UniqueFd _fd;  // holds the lock; after all that its making sets
    bool _renamed = false;
};

// The whole new file under another name, then the rename. Returns 0 or the errno of the step that failed.
int TryReplace(Replacement& replacement, const std::string& path, int oldFd, const struct stat& old,
               std::string_view content) {
    int error = replacement.Error();
    if (error == 0) error = replacement.TakeOwner(old);
    if (error == 0) error = replacement.TakeAttributes(oldFd, old.st_mode);
    if (error == 0) error = replacement.Fill(content);
    if (error == 0) error = replacement.Commit(path);
    return error;
}

// Whether the file itself may still be writable when it cannot be replaced: it is a mount point (EBUSY, EXDEV), or the
// folder or the owner does not allow it.
bool MayRewriteAfter(int error) {
    return error == EBUSY || error == EXDEV || error == EROFS || error == EACCES || error == EPERM || error == EINVAL;
}

// With its room taken beforehand, a file cannot be left half written by a full disk.
void MakeRoom(const UniqueFd& fd, off_t size, const std::string& path) {
    if (size == 0) return;
    int error = 0;
    do {
        error = fallocate(fd.Get(), FALLOC_FL_KEEP_SIZE, 0, size) == 0 ? 0 : errno;
    } while (error == EINTR);
    if (error != 0 && error != EOPNOTSUPP && error != ENOSYS) ThrowSystemError("make room in", path, error);
}

// One writer of the file at a time: two that wrote at once would leave a part of each. Whoever may read the file may hold
// such a lock, so it is waited for a moment only; a file system without locks has none.
void AwaitLock(const UniqueFd& fd) {
    constexpr timespec kPause = {0, 10'000'000};
    constexpr int kAttempts = 200;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (Lock(fd) || errno != EWOULDBLOCK) return;
        nanosleep(&kPause, nullptr);
    }
}

void RewriteInPlace(const std::string& path, std::string_view content) {
    const UniqueFd fd(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (fd.Get() < 0) ThrowSystemError("rewrite", path, errno);
    AwaitLock(fd);
    std::string old;
    if (const int error = ReadAll(fd.Get(), old)) ThrowSystemError("read", path, error);
    const auto size = static_cast<off_t>(content.size());
    MakeRoom(fd, size, path);
    int error = WriteAll(fd.Get(), content, 0);
    if (error == 0 && ftruncate(fd.Get(), size) != 0) error = errno;
    if (error == 0 && fsync(fd.Get()) != 0) error = errno;
    if (error == 0) return;
    // Put the old contents back: they had room before.
    if (WriteAll(fd.Get(), old, 0) == 0 && ftruncate(fd.Get(), static_cast<off_t>(old.size())) == 0) fsync(fd.Get());
    ThrowSystemError("rewrite", path, error);
}

void CreateFile(const std::string& path, std::string_view content) {
    RemoveAbandonedFiles(path);
    Replacement replacement(path);
    struct stat self = {};
    self.st_mode = kNewFileMode;
    self.st_uid = geteuid();
    self.st_gid = getegid();
    if (const int error = TryReplace(replacement, path, -1, self, content)) ThrowSystemError("create", path, error);
}

}  // namespace

std::optional<std::string> ReadTextFile(const std::string& path) {
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (fd.Get() < 0) {
        const int error = errno;
        if (error == ENOENT) return std::nullopt;
        ThrowSystemError("read", path, error);
    }
    struct stat status = {};
    if (fstat(fd.Get(), &status) != 0) ThrowSystemError("read", path, errno);
    if (!S_ISREG(status.st_mode)) ThrowFileError("read", path, "it is not a regular file");
    std::string content;
    if (const int error = ReadAll(fd.Get(), content)) ThrowSystemError("read", path, error);
    return content;
}

void ReplaceTextFile(const std::string& path, std::string_view content) {
    const std::string target = ResolveLink(path);
    const UniqueFd old(open(target.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (old.Get() < 0) {
        const int error = errno;
        if (error == ENOENT) return CreateFile(target, content);
        ThrowSystemError("read", target, error);
    }
    struct stat status = {};
    if (fstat(old.Get(), &status) != 0) ThrowSystemError("read", target, errno);

    RemoveAbandonedFiles(target);
    Replacement replacement(target);
    const int error = TryReplace(replacement, target, old.Get(), status, content);
    if (error == 0) return;
    if (!MayRewriteAfter(error)) ThrowSystemError("replace", target, error);
    RewriteInPlace(target, content);
}

void MakeFolders(const std::string& folder) {
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0) return;
    if (FolderOf(folder) != folder) MakeFolders(FolderOf(folder));
    if (mkdir(folder.c_str(), kFolderMode) != 0) {
        const int error = errno;
        if (error == EEXIST) return;
        ThrowSystemError("create", folder, error);
    }
    if (chmod(folder.c_str(), kFolderMode) != 0) ThrowSystemError("create", folder, errno);
    SyncFolder(FolderOf(folder));
}

}  // namespace SysNet::Network
