#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "addirectory/ad_error.h"
#include "gate.h"
#include "pluginkit/folders.h"
#include "pluginkit/rights.h"

namespace nimbrel::ad {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr char kTemporarySuffix[] = ".new";

kit::Descriptor OpenExisting(const std::string& path) {
    kit::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.Number() < 0 && errno != ENOENT) {
        const int error = errno;
        kit::ThrowFileError("open", path, error);
    }
    return file;
}

struct stat Examine(const kit::Descriptor& file, const std::string& path) {
    struct stat info = {};
    if (fstat(file.Number(), &info) != 0) {
        const int error = errno;
        kit::ThrowFileError("examine", path, error);
    }
    if (!S_ISREG(info.st_mode)) {
        throw AdError(kStatusAccessDenied, "'" + path + "' is not a regular file");
    }
    return info;
}

kit::Secret ReadAll(const kit::Descriptor& file, const std::string& path, std::size_t size) {
    std::vector<char> bytes(size);
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got = read(file.Number(), bytes.data() + filled, size - filled);
        if (got < 0 && errno != EINTR) {
            const int error = errno;
            kit::Wipe(bytes.data(), bytes.size());
            kit::ThrowFileError("read", path, error);
        }
        if (got == 0) {
            break;
        }
        filled += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    kit::Secret contents(std::string_view(bytes.data(), filled));
    kit::Wipe(bytes.data(), bytes.size());
    return contents;
}

}  // namespace

std::optional<WholeFile> ReadWholeFile(const std::string& path) {
    const kit::Descriptor file = OpenExisting(path);
    if (file.Number() < 0) {
        return std::nullopt;
    }
    const struct stat info = Examine(file, path);
    return WholeFile{ReadAll(file, path, static_cast<std::size_t>(info.st_size)), info.st_uid, info.st_gid,
                     info.st_mode & kPermissions};
}

std::optional<kit::Secret> ReadTrustedFile(const std::string& path) {
    const kit::Descriptor file = OpenExisting(path);
    if (file.Number() < 0) {
        return std::nullopt;
    }
    const struct stat info = Examine(file, path);
    const bool isOthers = info.st_uid != 0 && info.st_uid != geteuid();
    const bool others = (info.st_mode & S_IWOTH) != 0 ||
                        kit::OthersInGroupMay(S_IWGRP, info.st_mode, info.st_gid, kit::HasAccessList(file));
    if (isOthers || others) {
        throw AdError(kStatusAccessDenied, "'" + path + "' can be written by others than its owner");
    }
    return ReadAll(file, path, static_cast<std::size_t>(info.st_size));
}

FileReplacement::FileReplacement(std::string path) : _path(std::move(path)), _temporary(_path + kTemporarySuffix) {
    unlink(_temporary.c_str());  // what a process left that was killed
    _file = kit::Descriptor(
        open(_temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (_file.Number() < 0) {
        const int error = errno;
        _temporary.clear();
        kit::ThrowFileError("write beside", _path, error);
    }
}

FileReplacement::~FileReplacement() {
    if (!_temporary.empty()) {
        unlink(_temporary.c_str());
    }
}

void FileReplacement::Write(std::string_view contents) {
    while (!contents.empty()) {
        const ssize_t written = write(_file.Number(), contents.data(), contents.size());
        if (written < 0 && errno != EINTR) {
            const int error = errno;
            kit::ThrowFileError("write", _temporary, error);
        }
        contents.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

// The owner first: a change of it may take bits of the mode away.
void FileReplacement::SetAttributesOf(const WholeFile& file) {
    if (fchown(_file.Number(), file.owner, file.group) != 0) {
        const int error = errno;
        kit::ThrowFileError("give away", _temporary, error);
    }
    _mode = file.mode;
}

void FileReplacement::Commit() {
    if (fchmod(_file.Number(), _mode) != 0 || fsync(_file.Number()) != 0 ||
        rename(_temporary.c_str(), _path.c_str()) != 0) {
        const int error = errno;
        kit::ThrowFileError("replace", _path, error);
    }
    _temporary.clear();
    kit::SyncFolder(kit::FolderOf(_path));
}

void RestoreFile(const std::string& path, const std::optional<WholeFile>& file) {
    if (!file) {
        RemoveFile(path);
        return;
    }
    FileReplacement replacement(path);
    replacement.Write(file->contents.View());
    replacement.SetAttributesOf(*file);
    replacement.Commit();
}

void RemoveFile(const std::string& path) {
    if (unlink(path.c_str()) != 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR) {
            return;
        }
        kit::ThrowFileError("remove", path, error);
    }
    kit::SyncFolder(kit::FolderOf(path));
}

void RemoveLeftover(const std::string& path) { RemoveFile(path + kTemporarySuffix); }

FileLock::FileLock(const std::string& path, const Deadline& deadline) : _lock(path, kit::OwnerLock::File::Stays) {
    kit::MakeFolders(kit::FolderOf(path), kFolderMode);
    while (!_lock.Try()) {
        if (deadline.HasPassed()) {
            throw AdError(kStatusBusy, "Another process is joining or leaving a domain");
        }
        const OutsideGate waiting;
        std::this_thread::sleep_for(kit::kLockPause);
    }
}

}  // namespace nimbrel::ad
