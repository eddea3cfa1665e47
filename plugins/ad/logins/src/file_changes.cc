#include "file_changes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "files.h"
#include "pluginkit/descriptor.h"
#include "pluginkit/folders.h"
#include "pluginkit/status_error.h"

namespace nimbrel::ad::logins {
namespace {

constexpr mode_t kFileMode = 0600;

void WriteAll(int fd, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) kit::ThrowFileError("write", path, errno);
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

// Not a failure of the change: by now the names are what they should be.
void SyncFolder(const std::string& folder) {
    const kit::Descriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd) fsync(fd.Number());
}

std::string SidePrefix(const std::string& path) { return kit::FolderOf(path) + "/." + NameOf(path) + '.'; }

// One file of the set on its way from old to new.
class PendingFile {
 public:
    explicit PendingFile(const FileChange& change)
        : _path(change.path),
          _folder(kit::FolderOf(_path)),
          _new(SidePrefix(_path) + "XXXXXX"),
          _old(SidePrefix(_path) + "old") {
        RemoveLeftovers(_path);
        if (change.text) Write(*change.text);
    }
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile() {
        if (_written) unlink(_new.c_str());
        if (_kept) unlink(_old.c_str());
    }

    // `last`: nothing that could fail comes after this one, so the old file is not kept.
    void TakeEffect(bool last) {
        if (!last) KeepOld();
        const int result = _written ? rename(_new.c_str(), _path.c_str()) : unlink(_path.c_str());
        if (result != 0) kit::ThrowFileError(_written ? "write" : "remove", _path, errno);
        _written = false;
        _effective = true;
    }

    void GiveBack() {
        if (!_effective) return;
        const int result = _kept ? rename(_old.c_str(), _path.c_str()) : unlink(_path.c_str());
        _kept = _kept && result != 0;
    }

    const std::string& Folder() const { return _folder; }

 private:
    void Write(const std::string& text) {
        const kit::Descriptor fd(mkostemp(_new.data(), O_CLOEXEC));
        if (!fd) kit::ThrowFileError("write", _path, errno);
        _written = true;
        try {
            WriteAll(fd.Number(), text, _path);
            if (fchmod(fd.Number(), kFileMode) != 0 || fsync(fd.Number()) != 0) {
                kit::ThrowFileError("write", _path, errno);
            }
        } catch (...) {  // the destructor of a half-made object does not run
            unlink(_new.c_str());
            throw;
        }
    }

    // A second name, which costs no space and cannot fail on the way back.
    void KeepOld() {
        if (link(_path.c_str(), _old.c_str()) == 0) {
            _kept = true;
        } else if (errno != ENOENT) {
            kit::ThrowFileError("replace", _path, errno);
        }
    }

    std::string _path;
    std::string _folder;
    std::string _new;
    std::string _old;
    bool _written = false;    // the new text is under its own name
    bool _kept = false;       // the old file has a second name
    bool _effective = false;  // the path has changed
};

bool IsAsWanted(const FileChange& change) {
    const auto file = ReadFile(change.path);
    if (!file || !change.text) return file.has_value() == change.text.has_value();
    return file->text == *change.text && file->mode == kFileMode;
}

}  // namespace

void RemoveLeftovers(const std::string& path) {
    const std::string prefix = NameOf(SidePrefix(path));
    for (const auto& name : FileNames(kit::FolderOf(path))) {
        if (name.compare(0, prefix.size(), prefix) == 0) RemoveFile(kit::FolderOf(path) + '/' + name);
    }
}

bool ChangeFiles(const std::vector<FileChange>& changes) {
    std::vector<std::unique_ptr<PendingFile>> pending;
    for (const auto& change : changes) {
        if (IsAsWanted(change)) {
            RemoveLeftovers(change.path);
        } else {
            pending.push_back(std::make_unique<PendingFile>(change));
        }
    }
    try {
        for (const auto& file : pending) file->TakeEffect(file == pending.back());
    } catch (...) {  // all or none
        for (auto file = pending.rbegin(); file != pending.rend(); ++file) (*file)->GiveBack();
        throw;
    }
    for (const auto& file : pending) SyncFolder(file->Folder());
    return !pending.empty();
}

}  // namespace nimbrel::ad::logins
