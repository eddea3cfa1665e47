#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "pluginkit/descriptor.h"
#include "pluginkit/status_error.h"

namespace nimbrel::ad::logins {
namespace {

constexpr mode_t kPermissionBits = 07777;
constexpr std::size_t kMaximumFile = std::size_t{1024} * 1024;

std::string ReadAll(int fd, const std::string& path) {
    std::string text;
    char buffer[8192];
    while (text.size() <= kMaximumFile) {
        const ssize_t count = read(fd, buffer, sizeof(buffer));
        if (count == 0) return text;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) kit::ThrowFileError("read", path, errno);
        text.append(buffer, static_cast<std::size_t>(count));
    }
    kit::ThrowFileError("read", path, EFBIG);
}

}  // namespace

std::optional<FileText> ReadFile(const std::string& path) {
    const kit::Descriptor fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR) return std::nullopt;
        kit::ThrowFileError("read", path, error);
    }
    struct stat status = {};
    if (fstat(fd.Number(), &status) != 0) kit::ThrowFileError("read", path, errno);
    if (!S_ISREG(status.st_mode))
        throw kit::StatusError(kit::status::kStatusAccessDenied, "'" + path + "' is refused: it is not a regular file");
    return FileText{ReadAll(fd.Number(), path), status.st_mode & kPermissionBits};
}

std::optional<std::string> ReadFileIfPossible(const std::string& path) {
    try {
        if (const auto file = ReadFile(path)) return file->text;
    } catch (const kit::StatusError&) {
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
    kit::ThrowFileError("remove", path, error);
}

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace nimbrel::ad::logins
