#include "database_file.h"

#include <dirent.h>
#include <fcntl.h>
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
#include <utility>

#include "embeddeddirectory/directory_error.h"
#include "pluginkit/folders.h"
#include "pluginkit/rights.h"

namespace nimbrel::embedded {
namespace {

constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kPermissionBits = 07777;
constexpr char kNewMark[] = ".new.";
constexpr char kLockMark[] = ".lock";

[[noreturn]] void FailWith(int error, const std::string& name) {
    throw DirectoryError(kit::StatusOfFileError(error),
                         "The " + name + " cannot be used: " + std::generic_category().message(error));
}

std::string FileOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

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

[[noreturn]] void Refuse(const std::string& name, const std::string& reason) {
    throw DirectoryError(kStatusAccessDenied, "The " + name + " is refused: " + reason);
}

std::string Octal(mode_t mode) {
    char text[16];
    static_cast<void>(std::snprintf(text, sizeof text, "%04o", mode & kPermissionBits));
    return text;
}

bool OthersMayWrite(const std::string& folder, const struct stat& status) {
    return (status.st_mode & S_IWOTH) != 0 ||
           kit::OthersInGroupMay(S_IWGRP, status.st_mode, status.st_gid, kit::HasAccessList(folder));
}

// Who writes in the folder can put another file in this one's place, or a log beside it: the sticky bit does not help.
void RequireOwnFolder(const std::string& folder, const std::string& name) {
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0) {
        FailWith(errno, name);
    }
    if (!MayOwnFiles(status.st_uid, geteuid())) {
        Refuse(name, "its folder '" + folder + "' belongs to another user (" + std::to_string(status.st_uid) + ")");
    }
    if (OthersMayWrite(folder, status)) {
        Refuse(name, "others may write in its folder '" + folder + "' (mode " + Octal(status.st_mode) + ", group " +
                         std::to_string(status.st_gid) + "). Remedy: chmod go-w '" + folder + "'");
    }
}

void RemoveForeignRights(const kit::Descriptor& file, mode_t mode, const std::string& name) {
    if ((mode & (S_IRWXG | S_IRWXO)) == 0) {
        return;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(file.Number());
    if (chmod(path.c_str(), kFileMode) != 0) {
        FailWith(errno, name);
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
void RemoveSecondName(const std::string& folder, const std::string& file) {
    try {
        kit::OwnerLock lock(Join(folder, file) + kLockMark, kit::OwnerLock::File::GoesWithTheLock);
        if (lock.Try()) {
            RemoveAbandonedFiles(folder, file);
        }
    } catch (const DirectoryError&) {
        // It stays where nothing can be written: the file itself is good.
    }
}

}  // namespace

bool MayOwnFiles(uid_t owner, uid_t user) { return owner == 0 || owner == user; }

std::optional<std::string> PrepareExistingFile(const std::string& path, const std::string& name) {
    const std::string file = FileOf(path);
    RequireFileName(file, name);
    const auto realFolder = RealFolder(kit::FolderOf(path), name);
    if (!realFolder) {
        return std::nullopt;
    }
    std::string real = Join(*realFolder, file);
    const kit::Descriptor descriptor(open(real.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
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
        Refuse(name, "it is a link or no regular file");
    }
    if (!MayOwnFiles(status.st_uid, geteuid())) {
        Refuse(name, "it belongs to another user");
    }
    RequireOwnFolder(*realFolder, name);
    RemoveForeignRights(descriptor, status.st_mode, name);
    if (status.st_nlink > 1) {
        RemoveSecondName(*realFolder, file);
    }
    return real;
}

bool MakeLog(const std::string& path) {
    for (const char* const companion : {"-wal", "-shm"}) {
        const std::string file = path + companion;
        // The umask may have taken rights.
        if (mknod(file.c_str(), S_IFREG | kFileMode, 0) == 0 && chmod(file.c_str(), kFileMode) == 0) {
            continue;
        }
        const int error = errno;
        if (error == EEXIST) {
            continue;
        }
        struct stat log = {};
        const bool empty = lstat((path + "-wal").c_str(), &log) != 0 ? errno == ENOENT : log.st_size == 0;
        if (!empty || (error != EROFS && error != ENOSPC && error != EDQUOT)) {
            FailWith(error, "file '" + file + "'");
        }
        return false;
    }
    return true;
}

NewFile::NewFile(const std::string& path, std::string name)
    : _name(std::move(name)), _lock(path + kLockMark, kit::OwnerLock::File::GoesWithTheLock) {
    const std::string folder = kit::FolderOf(path);
    const std::string file = FileOf(path);
    RequireFileName(file, _name);
    kit::MakeFolder(folder, kFolderMode);
    const auto realFolder = RealFolder(folder, _name);
    if (!realFolder) {
        FailWith(ENOENT, _name);
    }
    RequireOwnFolder(*realFolder, _name);
    _finalPath = Join(*realFolder, file);
    _folder = kit::Descriptor(open(realFolder->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!_folder) {
        FailWith(errno, _name);
    }
    // One maker at a time, to the end: what is removed here and in `Publish` must not be somebody's.
    if (!_lock.TryFor(kMakingTime)) {
        throw DirectoryError(kStatusInternalError, "The " + _name + " is being made by another process for too long");
    }
    RemoveAbandonedFiles(*realFolder, file);
    _temporaryPath = _finalPath + kNewMark + "XXXXXX";
    const kit::Descriptor descriptor(mkostemp(_temporaryPath.data(), O_CLOEXEC));
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
