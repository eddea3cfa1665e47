#include "crash/disk.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "crash/files.h"

namespace nimbrel::crash {
namespace {

namespace fs = std::filesystem;

void Require(bool success, const std::string& path) {
    if (!success) throw std::runtime_error("cannot look at or prepare " + path);
}

struct stat StatusOf(const std::string& path) {
    struct stat status = {};
    Require(lstat(path.c_str(), &status) == 0, path);
    return status;
}

std::string ContentOf(const std::string& path, const struct stat& status) {
    if (S_ISREG(status.st_mode)) return ReadFile(path);
    return S_ISLNK(status.st_mode) ? fs::read_symlink(path).string() : "";
}

std::vector<std::string> PathsIn(const std::string& folder) {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(folder)) paths.push_back(entry.path());
    return paths;
}

void TakeStatus(const std::string& path, const struct stat& status) {
    Require(lchown(path.c_str(), status.st_uid, status.st_gid) == 0, path);
    if (!S_ISLNK(status.st_mode)) Require(chmod(path.c_str(), status.st_mode & 07777U) == 0, path);
}

}  // namespace

Disk::Disk(std::vector<std::string> folders) : _folders(std::move(folders)) {
    for (const auto& folder : _folders) {
        KeepFolder(folder);
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            KeepFile(entry.path());
            if (!entry.is_symlink() && entry.is_directory()) KeepFolder(entry.path());
        }
    }
}

void Disk::KeepFile(const std::string& path) {
    const struct stat status = StatusOf(path);
    _files[{status.st_dev, status.st_ino}] = {status, ContentOf(path, status)};
}

// A name may be on the disk before the bytes of its file are.
void Disk::KeepFolder(const std::string& folder) {
    const struct stat own = StatusOf(folder);
    Names names;
    for (const auto& path : PathsIn(folder)) {
        const struct stat status = StatusOf(path);
        const Id id = {status.st_dev, status.st_ino};
        names[fs::path(path).filename()] = id;
        File& file = _files[id];
        file.status = status;
        if (S_ISLNK(status.st_mode)) file.content = fs::read_symlink(path).string();
        if (S_ISDIR(status.st_mode)) _contents.try_emplace(id);
    }
    _contents[{own.st_dev, own.st_ino}] = std::move(names);
}

void Disk::Synchronise(pid_t process, int descriptor) {
    const std::string path = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
    struct stat status = {};
    Require(stat(path.c_str(), &status) == 0, path);
    if (S_ISDIR(status.st_mode)) KeepFolder(fs::read_symlink(path));
    if (S_ISREG(status.st_mode)) _files[{status.st_dev, status.st_ino}] = {status, ReadFile(path)};
}

void Disk::CutPower(Loss loss) const {
    for (const auto& folder : _folders) {
        if (loss != Loss::Names) LoseBytes(folder);
        if (loss != Loss::Bytes) LoseNames(folder);
    }
}

void Disk::LoseBytes(const std::string& folder) const {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const struct stat status = StatusOf(entry.path());
        if (!S_ISREG(status.st_mode)) continue;
        const auto kept = _files.find({status.st_dev, status.st_ino});
        const std::string content = kept == _files.end() ? "" : kept->second.content;
        if (ReadFile(entry.path()) != content) WriteFile(entry.path(), content, status.st_mode & 07777U);
    }
}

void Disk::LoseNames(const std::string& folder) const {
    const struct stat own = StatusOf(folder);
    const auto kept = _contents.find({own.st_dev, own.st_ino});
    const Names names = kept == _contents.end() ? Names() : kept->second;
    // Out of the way for a while: what has another name now may be what an old name has to lead to.
    std::map<Id, std::string> found;
    for (const auto& path : PathsIn(folder)) {
        const struct stat status = StatusOf(path);
        const std::string aside = folder + "/.aside-" + std::to_string(found.size());
        fs::rename(path, aside);
        if (!found.emplace(Id{status.st_dev, status.st_ino}, aside).second) fs::remove(aside);  // another name of it
    }
    for (const auto& [name, id] : names) {
        const std::string path = folder + "/" + name;
        if (const auto file = found.find(id); file == found.end()) {
            BringBack(path, id);
            found[id] = path;
        } else if (names.contains(fs::path(file->second).filename())) {
            fs::create_hard_link(file->second, path);
        } else {
            fs::rename(file->second, path);
            file->second = path;
        }
        if (fs::is_directory(fs::symlink_status(path))) LoseNames(path);
    }
    for (const auto& [id, path] : found) {
        if (!names.contains(fs::path(path).filename())) fs::remove_all(path);
    }
}

void Disk::BringBack(const std::string& path, Id id) const {
    const File& file = _files.at(id);
    if (S_ISLNK(file.status.st_mode)) fs::create_symlink(file.content, path);
    if (S_ISREG(file.status.st_mode)) WriteFile(path, file.content);
    if (S_ISDIR(file.status.st_mode)) fs::create_directory(path);
    TakeStatus(path, file.status);
}

}  // namespace nimbrel::crash
