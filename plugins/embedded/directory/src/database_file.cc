#include "database_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "embeddeddirectory/directory_error.h"

namespace nimbrel::embedded {
namespace {

constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0755;
constexpr char kNewMark[] = ".new.";
constexpr char kLockMark[] = ".lock";
constexpr auto kLockPause = std::chrono::milliseconds(20);

[[noreturn]] void FailWith(int error, const std::string& name) {
    const bool refused = error == EACCES || error == EPERM || error == EROFS || error == ELOOP;
    throw DirectoryError(refused ? kStatusAccessDenied : kStatusInternalError,
                         "The " + name + " cannot be used: " + std::generic_category().message(error));
}

std::pair<std::string, std::string> SplitPath(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return {".", path};
    }
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// Unset if there is no such folder.
std::optional<std::string> RealFolder(const std::string& folder, const std::string& name) {
    std::error_code error;
    std::string real = std::filesystem::canonical(folder, error).string();
    if (!error) {
        return real;
    }
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        return std::nullopt;
    }
    FailWith(error.value(), name);
}

std::string Join(const std::string& folder, const std::string& file) {
    return folder == "/" ? folder + file : folder + "/" + file;
}

void RequireFileName(const std::string& file, const std::string& name) {
    if (file.empty() || file == "." || file == "..") {
        FailWith(EISDIR, name);
    }
}

void RemoveForeignRights(const Descriptor& file, mode_t mode, const std::string& name) {
    if ((mode & (S_IRWXG | S_IRWXO)) == 0) {
        return;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(file.Number());
    if (chmod(path.c_str(), kFileMode) != 0) {
        FailWith(errno, name);
    }
}

bool HasName(const Descriptor& file) {
    struct stat status = {};
    return fstat(file.Number(), &status) != 0 || status.st_nlink > 0;
}

// Whoever can open a file can lock it.
void RequireOwnLock(const Descriptor& lock, const std::string& name) {
    struct stat status = {};
    if (fstat(lock.Number(), &status) != 0) {
        FailWith(errno, name);
    }
    const bool own = status.st_uid == geteuid() || status.st_uid == 0;
    if (!S_ISREG(status.st_mode) || !own || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw DirectoryError(kStatusAccessDenied, "The lock of the " + name + " is refused: others may use it");
    }
}

// Under the lock of those who make the file there is nobody whose new file these could be. What cannot be removed stays.
void RemoveAbandonedFiles(const std::string& folder, const std::string& file) {
    const std::string prefix = file + kNewMark;
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    const std::unique_ptr<DIR, Close> stream(opendir(folder.c_str()));
    for (const dirent* entry = nullptr; stream && (entry = readdir(stream.get())) != nullptr;) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) == 0) {
            unlink(Join(folder, name).c_str());
        }
    }
}

// For a file with a second name: its maker has not taken the first one away yet, or was killed before it could.
void RemoveSecondName(const std::string& folder, const std::string& file, const std::string& name) {
    try {
        MakerLock lock(Join(folder, file), name);
        if (lock.Try()) {
            RemoveAbandonedFiles(folder, file);
        }
    } catch (const DirectoryError&) {
        // It stays where nothing can be written: the file itself is good.
    }
}

void MakeFolder(const std::string& folder, const std::string& name) {
    if (mkdir(folder.c_str(), kFolderMode) == 0) {
        // The umask may have taken rights that the owner needs.
        if (chmod(folder.c_str(), kFolderMode) != 0) {
            FailWith(errno, name);
        }
    } else if (errno != EEXIST) {
        FailWith(errno, name);
    }
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
}

Descriptor::~Descriptor() {
    if (_number >= 0) {
        close(_number);
    }
}

std::optional<std::string> PrepareExistingFile(const std::string& path, const std::string& name) {
    const auto [folder, file] = SplitPath(path);
    RequireFileName(file, name);
    const auto realFolder = RealFolder(folder, name);
    if (!realFolder) {
        return std::nullopt;
    }
    std::string real = Join(*realFolder, file);
    const Descriptor descriptor(open(real.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!descriptor) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        FailWith(errno, name);
    }
    struct stat status = {};
    if (fstat(descriptor.Number(), &status) != 0) {
        FailWith(errno, name);
    }
    if (!S_ISREG(status.st_mode)) {
        throw DirectoryError(kStatusAccessDenied, "The " + name + " is refused: it is a link or no regular file");
    }
    RemoveForeignRights(descriptor, status.st_mode, name);
    if (status.st_nlink > 1) {
        RemoveSecondName(*realFolder, file, name);
    }
    return real;
}

MakerLock::MakerLock(const std::string& path, std::string name) : _name(std::move(name)), _path(path + kLockMark) {}

MakerLock::~MakerLock() { Release(); }

bool MakerLock::Try() {
    for (;;) {
        Descriptor lock(open(_path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kFileMode));
        if (!lock) {
            FailWith(errno, _name);
        }
        RequireOwnLock(lock, _name);
        if (flock(lock.Number(), LOCK_EX | LOCK_NB) != 0) {
            const int error = errno;
            if (error == EWOULDBLOCK) {
                return false;
            }
            if (error != EINTR) {
                FailWith(error, _name);
            }
        } else if (HasName(lock)) {  // else its holder has ended meanwhile, and the next one would lock another file
            _lock = std::move(lock);
            return true;
        }
    }
}

void MakerLock::Wait(std::chrono::milliseconds most) {
    const auto end = std::chrono::steady_clock::now() + most;
    while (!Try()) {
        if (std::chrono::steady_clock::now() >= end) {
            throw DirectoryError(kStatusInternalError,
                                 "The " + _name + " is being made by another process for too long");
        }
        std::this_thread::sleep_for(kLockPause);
    }
}

bool MakerLock::Release() noexcept {
    if (!_lock) {
        return true;
    }
    const bool removed = unlink(_path.c_str()) == 0;
    flock(_lock.Number(), LOCK_UN);  // a child that was forked meanwhile shares it
    _lock = Descriptor();
    return removed;
}

NewFile::NewFile(const std::string& path, std::string name) : _name(std::move(name)), _lock(path, _name) {
    const auto [folder, file] = SplitPath(path);
    RequireFileName(file, _name);
    MakeFolder(folder, _name);
    const auto realFolder = RealFolder(folder, _name);
    if (!realFolder) {
        FailWith(ENOENT, _name);
    }
    _finalPath = Join(*realFolder, file);
    _folder = Descriptor(open(realFolder->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!_folder) {
        FailWith(errno, _name);
    }
    // One maker at a time, to the end: what is removed here and in `Publish` must not be somebody's.
    _lock.Wait(kMakingTime);
    RemoveAbandonedFiles(*realFolder, file);
    _temporaryPath = _finalPath + kNewMark + "XXXXXX";
    const Descriptor descriptor(mkostemp(_temporaryPath.data(), O_CLOEXEC));
    if (!descriptor) {
        FailWith(errno, _name);
    }
    if (fchmod(descriptor.Number(), kFileMode) != 0) {
        const int error = errno;
        unlink(_temporaryPath.c_str());
        FailWith(error, _name);
    }
}

NewFile::~NewFile() {
    // A second name that is left over is removed by whoever comes next, and the lock's file with it; the lock's file
    // alone would stay.
    if (!_lock.Release()) {
        return;
    }
    // Without asking for memory: there may be none left.
    char path[PATH_MAX];
    for (const char* const companion : {"", "-journal", "-wal", "-shm"}) {
        const int length = std::snprintf(path, sizeof path, "%s%s", _temporaryPath.c_str(), companion);
        if (length > 0 && static_cast<std::size_t>(length) < sizeof path) {
            unlink(path);
        }
    }
}

void NewFile::Publish() {
    if (access(_finalPath.c_str(), F_OK) == 0) {
        return;
    }
    RemoveLeftoversOfDeletedFile();
    if (link(_temporaryPath.c_str(), _finalPath.c_str()) != 0 && errno != EEXIST) {
        FailWith(errno, _name);
    }
    if (fsync(_folder.Number()) != 0) {
        FailWith(errno, _name);
    }
}

// The log of a database that was deleted without it would be replayed into the new one.
void NewFile::RemoveLeftoversOfDeletedFile() const {
    unlink((_finalPath + "-wal").c_str());
    unlink((_finalPath + "-shm").c_str());
}

}  // namespace nimbrel::embedded
