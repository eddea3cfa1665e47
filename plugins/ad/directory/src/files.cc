#include "files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include "addirectory/ad_error.h"
#include "gate.h"

namespace nimbrel::ad {
namespace {

constexpr mode_t kFolderMode = 0755;

[[noreturn]] void FailFile(const std::string& action, const std::string& path, int error) {
    const bool refused = error == EACCES || error == EPERM || error == ELOOP || error == EROFS;
    const bool full = error == ENOSPC || error == EDQUOT;
    throw AdError(refused ? kStatusAccessDenied
                  : full  ? kStatusDiskFull
                          : kStatusInternalError,
                  "Unable to " + action + " '" + path + "': " + std::generic_category().message(error));
}

Descriptor OpenExisting(const std::string& path) {
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.Get() < 0 && errno != ENOENT) {
        const int error = errno;
        FailFile("open", path, error);
    }
    return file;
}

struct stat Examine(const Descriptor& file, const std::string& path) {
    struct stat info = {};
    if (fstat(file.Get(), &info) != 0) {
        const int error = errno;
        FailFile("examine", path, error);
    }
    if (!S_ISREG(info.st_mode)) {
        throw AdError(kStatusAccessDenied, "'" + path + "' is not a regular file");
    }
    return info;
}

Secret ReadAll(const Descriptor& file, const std::string& path, std::size_t size) {
    std::vector<char> bytes(size);
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got = read(file.Get(), bytes.data() + filled, size - filled);
        if (got < 0 && errno != EINTR) {
            const int error = errno;
            Wipe(bytes.data(), bytes.size());
            FailFile("read", path, error);
        }
        if (got == 0) {
            break;
        }
        filled += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    Secret contents(std::string_view(bytes.data(), filled));
    Wipe(bytes.data(), bytes.size());
    return contents;
}

void SyncFolder(const std::string& path) {
    const Descriptor folder(
        open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() < 0 || fsync(folder.Get()) != 0) {
        const int error = errno;
        FailFile("sync the folder of", path, error);
    }
}

// Whoever can open a file can lock it. A second name would be somebody else's file.
void KeepForOwner(const Descriptor& lock, const std::string& path) {
    const struct stat info = Examine(lock, path);
    const bool own = info.st_uid == geteuid() || info.st_uid == 0;
    if (!own || info.st_nlink != 1 || (info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw AdError(kStatusAccessDenied, "'" + path + "' is refused as a lock: others may use it");
    }
    if (fchmod(lock.Get(), S_IRUSR | S_IWUSR) != 0) {  // the umask may have taken rights
        const int error = errno;
        FailFile("open", path, error);
    }
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : _fd(other.Release()) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    const Descriptor old(std::exchange(_fd, other.Release()));
    return *this;
}

Descriptor::~Descriptor() {
    if (_fd >= 0) {
        close(_fd);
    }
}

int Descriptor::Release() noexcept { return std::exchange(_fd, -1); }

std::optional<Secret> ReadWholeFile(const std::string& path) {
    const Descriptor file = OpenExisting(path);
    if (file.Get() < 0) {
        return std::nullopt;
    }
    return ReadAll(file, path, static_cast<std::size_t>(Examine(file, path).st_size));
}

std::optional<Secret> ReadTrustedFile(const std::string& path) {
    const Descriptor file = OpenExisting(path);
    if (file.Get() < 0) {
        return std::nullopt;
    }
    const struct stat info = Examine(file, path);
    const bool others = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0 || (info.st_uid != 0 && info.st_uid != geteuid());
    if (others) {
        throw AdError(kStatusAccessDenied, "'" + path + "' can be written by others than its owner");
    }
    return ReadAll(file, path, static_cast<std::size_t>(info.st_size));
}

void CreateFolders(const std::string& path) {
    struct stat info = {};
    if (path.empty() || stat(path.c_str(), &info) == 0) {
        return;
    }
    CreateFolders(std::filesystem::path(path).parent_path());
    if (mkdir(path.c_str(), kFolderMode) != 0) {
        const int error = errno;
        if (error == EEXIST) {
            return;
        }
        FailFile("create", path, error);
    }
    if (chmod(path.c_str(), kFolderMode) != 0) {  // the umask may have taken rights
        const int error = errno;
        FailFile("create", path, error);
    }
}

FileReplacement::FileReplacement(std::string path) : _path(std::move(path)), _temporary(_path + ".new") {
    unlink(_temporary.c_str());  // what a process left that was killed
    _file = Descriptor(open(_temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (_file.Get() < 0) {
        const int error = errno;
        _temporary.clear();
        FailFile("write beside", _path, error);
    }
}

FileReplacement::~FileReplacement() {
    if (!_temporary.empty()) {
        unlink(_temporary.c_str());
    }
}

void FileReplacement::Write(std::string_view contents) {
    while (!contents.empty()) {
        const ssize_t written = write(_file.Get(), contents.data(), contents.size());
        if (written < 0 && errno != EINTR) {
            const int error = errno;
            FailFile("write", _temporary, error);
        }
        contents.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

void FileReplacement::Commit() {
    if (fchmod(_file.Get(), S_IRUSR | S_IWUSR) != 0 || fsync(_file.Get()) != 0 ||
        rename(_temporary.c_str(), _path.c_str()) != 0) {
        const int error = errno;
        FailFile("replace", _path, error);
    }
    _temporary.clear();
    SyncFolder(_path);
}

void RestoreFile(const std::string& path, const std::optional<Secret>& contents) {
    if (!contents) {
        RemoveFile(path);
        return;
    }
    FileReplacement replacement(path);
    replacement.Write(contents->View());
    replacement.Commit();
}

void RemoveFile(const std::string& path) {
    if (unlink(path.c_str()) != 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR) {
            return;
        }
        FailFile("remove", path, error);
    }
    SyncFolder(path);
}

FileLock::FileLock(const std::string& path, const Deadline& deadline) {
    CreateFolders(std::filesystem::path(path).parent_path());
    _file = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (_file.Get() < 0) {
        const int error = errno;
        FailFile("open", path, error);
    }
    KeepForOwner(_file, path);
    while (flock(_file.Get(), LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (error != EWOULDBLOCK && error != EINTR) {
            FailFile("lock", path, error);
        }
        if (deadline.HasPassed()) {
            throw AdError(kStatusBusy, "Another process is joining or leaving a domain");
        }
        const OutsideGate waiting;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// Unlocked by name: a child that was forked meanwhile shares the lock with the descriptor.
FileLock::~FileLock() { flock(_file.Get(), LOCK_UN); }

}  // namespace nimbrel::ad
