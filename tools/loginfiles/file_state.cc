#include "tools/loginfiles/file_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "pluginkit/descriptor.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {

void ThrowSystemError(const std::string& what, const std::string& path, int error) {
    throw LoginsError(LoginsError::Kind::System,
                      "Unable to " + what + " '" + path + "': " + std::generic_category().message(error));
}

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

kit::Descriptor Open(const std::string& path, int flags, mode_t mode = 0) {
    return kit::Descriptor(open(path.c_str(), flags | O_CLOEXEC, mode));
}

std::string ReadAll(int number, const std::string& path) {
    std::string text;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = read(number, buffer.data(), buffer.size());
        const int error = errno;
        if (count == 0) return text;
        if (count < 0 && error != EINTR) ThrowSystemError("read", path, error);
        if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

void WriteAll(int number, const std::string& path, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(number, text.data(), text.size());
        const int error = errno;
        if (count < 0 && error != EINTR) ThrowSystemError("write", path, error);
        if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::map<std::string, std::string> ReadAttributes(const std::string& path) {
    std::map<std::string, std::string> attributes;
    std::string names(65536, '\0');
    const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
    const int error = errno;
    if (size < 0 && error == ENOTSUP) return attributes;
    if (size < 0) ThrowSystemError("list the attributes of", path, error);
    for (const char* name = names.data(); name < names.data() + size; name += std::string_view(name).size() + 1) {
        std::string value(65536, '\0');
        const ssize_t length = lgetxattr(path.c_str(), name, value.data(), value.size());
        const int failure = errno;
        if (length < 0) ThrowSystemError("read the attributes of", path, failure);
        attributes[name] = value.substr(0, static_cast<std::size_t>(length));
    }
    return attributes;
}

std::string ReadLink(const std::string& path) {
    std::array<char, PATH_MAX> target{};
    const ssize_t size = readlink(path.c_str(), target.data(), target.size());
    const int error = errno;
    if (size < 0) ThrowSystemError("read the link", path, error);
    return {target.data(), static_cast<std::size_t>(size)};
}

void CheckNames(const struct stat& status, const std::string& path) {
    if (!S_ISREG(status.st_mode) || status.st_nlink == 1) return;
    throw LoginsError(LoginsError::Kind::Refused,
                      "'" + path + "' has further names (hard links), which a replacement would part from it",
                      "make it a file of its own: cp --preserve=all FILE NEW && mv NEW FILE");
}

// False if there is none.
bool Look(const std::string& path, struct stat& status) {
    const bool there = lstat(path.c_str(), &status) == 0;
    const int error = errno;
    if (!there && error != ENOENT && error != ENOTDIR) ThrowSystemError("look at", path, error);
    return there;
}

FileState StateOf(const std::string& path, const struct stat& status) {
    FileState state;
    state.mode = status.st_mode & 07777;
    state.owner = status.st_uid;
    state.group = status.st_gid;
    if (S_ISLNK(status.st_mode)) {
        state.kind = FileState::Kind::Symlink;
        state.content = ReadLink(path);
        return state;
    }
    if (!S_ISREG(status.st_mode)) {
        throw LoginsError(LoginsError::Kind::Refused, "'" + path + "' is neither a file nor a link");
    }
    state.kind = FileState::Kind::Regular;
    state.content = ReadWhole(path);
    state.attributes = ReadAttributes(path);
    return state;
}

// A folder with default rights gives them to every new file in it. Labels are the security policy's, which may keep them.
void RemoveOtherAttributes(const std::string& staged, const FileState& state) {
    for (const auto& [name, value] : ReadAttributes(staged)) {
        if (state.attributes.contains(name)) continue;
        const bool removed = lremovexattr(staged.c_str(), name.c_str()) == 0;
        const int error = errno;
        if (!removed && name == kAccessList) ThrowSystemError("remove the access control list of", staged, error);
    }
}

void StageRegular(const std::string& staged, const FileState& state) {
    kit::Descriptor file = Open(staged, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    int error = errno;
    if (!file) ThrowSystemError("create", staged, error);
    WriteAll(file.Number(), staged, state.content);
    const bool owned = fchown(file.Number(), state.owner, state.group) == 0;
    error = errno;
    if (!owned) ThrowSystemError("set the owner of", staged, error);
    RemoveOtherAttributes(staged, state);
    const bool moded = fchmod(file.Number(), state.mode) == 0;
    error = errno;
    if (!moded) ThrowSystemError("set the mode of", staged, error);
    for (const auto& [name, value] : state.attributes) {
        const bool set = fsetxattr(file.Number(), name.c_str(), value.data(), value.size(), 0) == 0;
        error = errno;
        if (!set) ThrowSystemError("set the attribute " + name + " of", staged, error);
    }
    const bool synced = fsync(file.Number()) == 0 && file.Close();
    error = errno;
    if (!synced) ThrowSystemError("write", staged, error);
}

void StageLink(const std::string& staged, const FileState& state) {
    const bool made =
        symlink(state.content.c_str(), staged.c_str()) == 0 && lchown(staged.c_str(), state.owner, state.group) == 0;
    const int error = errno;
    if (!made) ThrowSystemError("create the link", staged, error);
}

}  // namespace

FileState FileState::With(const std::string& newContent) const {
    FileState state = *this;
    state.kind = Kind::Regular;
    state.content = newContent;
    return state;
}

FileState ReadState(const std::string& path) {
    struct stat status = {};
    if (!Look(path, status)) return {};
    CheckNames(status, path);
    return StateOf(path, status);
}

FileState ReadLinkedState(const std::string& path) {
    struct stat status = {};
    return Look(path, status) ? StateOf(path, status) : FileState();
}

bool SameContent(const FileState& a, const FileState& b) { return a.kind == b.kind && a.content == b.content; }

std::string Resolve(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
    const std::unique_ptr<char, decltype(&std::free)> target(realpath(path.c_str(), nullptr), &std::free);
    if (target == nullptr) {
        throw LoginsError(LoginsError::Kind::Refused, "'" + path + "' is a link that leads to no file",
                          "put a file in its place");
    }
    return target.get();
}

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// A final '~' marks a backup copy for pam-auth-update and for editors, a first '.' hides it from others.
std::string StagedName(const std::string& path, int id, Prepared which) {
    const std::size_t name = path.rfind('/') + 1;
    return path.substr(0, name) + '.' + path.substr(name) + ".nimauth-" + std::to_string(id) +
           (which == Prepared::After ? "~" : "-before~");
}

void Stage(const std::string& path, int id, const FileState& state, Prepared which) {
    const std::string staged = StagedName(path, id, which);
    if (state.kind == FileState::Kind::Regular) StageRegular(staged, state);
    if (state.kind == FileState::Kind::Symlink) StageLink(staged, state);
}

void Replace(const std::string& path, int id, const FileState& state, Prepared which) {
    const bool absent = state.kind == FileState::Kind::Absent;
    const bool done =
        absent ? unlink(path.c_str()) == 0 : std::rename(StagedName(path, id, which).c_str(), path.c_str()) == 0;
    const int error = errno;
    if (!done) ThrowSystemError(absent ? "remove" : "replace", path, error);
    SyncFolder(FolderOf(path));
}

void Unstage(const std::string& path, int id, Prepared which) noexcept {
    try {
        unlink(StagedName(path, id, which).c_str());
    } catch (...) {
        // Out of memory: the next call of the tool removes it.
    }
}

std::string ReadWhole(const std::string& path) {
    const kit::Descriptor file = Open(path, O_RDONLY | O_NOFOLLOW);
    const int error = errno;
    if (!file) ThrowSystemError("open", path, error);
    return ReadAll(file.Number(), path);
}

void WriteQuickly(const std::string& path, const std::string& content) {
    unlink(path.c_str());  // nothing that has the name already is written to
    const kit::Descriptor file = Open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    const int error = errno;
    if (!file) ThrowSystemError("create", path, error);
    WriteAll(file.Number(), path, content);
}

void WriteDurably(const std::string& path, const std::string& content) {
    unlink(path.c_str());  // nothing that has the name already is written to
    kit::Descriptor file = Open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    int error = errno;
    if (!file) ThrowSystemError("create", path, error);
    WriteAll(file.Number(), path, content);
    const bool synced = fsync(file.Number()) == 0 && file.Close();
    error = errno;
    if (!synced) ThrowSystemError("write", path, error);
}

void SyncFolder(const std::string& folder) {
    const kit::Descriptor opened = Open(folder, O_RDONLY | O_DIRECTORY);
    int error = errno;
    if (!opened) ThrowSystemError("open", folder, error);
    const bool synced = fsync(opened.Number()) == 0;
    error = errno;
    if (!synced && error != EINVAL) ThrowSystemError("write", folder, error);
}

}  // namespace nimbrel::logins
