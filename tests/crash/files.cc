#include "crash/files.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace nimbrel::crash {
namespace {

namespace fs = std::filesystem;

void Require(bool success, const std::string& path) {
    if (!success) throw std::runtime_error("cannot prepare " + path);
}

struct stat Status(const std::string& path) {
    struct stat status = {};
    Require(lstat(path.c_str(), &status) == 0, path);
    return status;
}

template <typename Take>
void ForEachBelow(const std::vector<std::string>& folders, Take take) {
    for (const auto& folder : folders) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) take(entry.path().string());
    }
}

}  // namespace

Attributes AttributesBelow(const std::vector<std::string>& folders) {
    Attributes attributes;
    ForEachBelow(folders, [&](const std::string& path) {
        const struct stat status = Status(path);
        char text[64];
        std::snprintf(text, sizeof text, "%o %u:%u", status.st_mode, status.st_uid, status.st_gid);
        attributes[path] = text;
    });
    return attributes;
}

std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void WriteFile(const std::string& path, const std::string& text, mode_t mode) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream << text << std::flush;
    Require(stream && chmod(path.c_str(), mode) == 0, path);
}

void EmptyFolders(const std::vector<std::string>& folders) {
    for (const auto& folder : folders) {
        for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
    }
}

void CoverFolder(const std::string& folder) {
    static const bool alone =
        unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    Require(alone && mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=0755") == 0, folder);
}

Snapshot::Snapshot(std::vector<std::string> folders) : _folders(std::move(folders)) {
    ForEachBelow(_folders, [this](const std::string& path) {
        Entry entry = {Status(path), ""};
        if (S_ISREG(entry.status.st_mode)) entry.content = ReadFile(path);
        if (S_ISLNK(entry.status.st_mode)) entry.content = fs::read_symlink(path).string();
        _entries.emplace(path, std::move(entry));
    });
}

void Snapshot::Restore() const {
    EmptyFolders(_folders);
    for (const auto& [path, entry] : _entries) {
        const struct stat& status = entry.status;
        if (S_ISLNK(status.st_mode)) {
            fs::create_symlink(entry.content, path);
            continue;
        }
        if (S_ISDIR(status.st_mode)) fs::create_directory(path);
        if (S_ISREG(status.st_mode)) WriteFile(path, entry.content);
        Require(chown(path.c_str(), status.st_uid, status.st_gid) == 0, path);
        Require(chmod(path.c_str(), status.st_mode & 07777U) == 0, path);
    }
}

}  // namespace nimbrel::crash
