#include <filesystem>
#include <iterator>
#include <map>

#include "tools/loginfiles/plan.h"

namespace nimbrel::logins {
namespace {

using ByPath = std::map<std::string, const FileState*>;

ByPath StatesAfter(const std::vector<Change>& changes) {
    ByPath after;
    for (const Change& change : changes) after[change.path] = &change.after;
    return after;
}

// A device or the like has no text: "/etc/pam.d/x -> /dev/null".
bool HasState(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::symlink_status(path, error);
    return std::filesystem::is_regular_file(status) || std::filesystem::is_symlink(status);
}

struct Found {
    std::string path;
    std::string text;
};

// What a reader of the path would find, and where; unset if nothing, or a link that leads nowhere.
std::optional<Found> FindAfter(std::string path, const ByPath& after) {
    for (int links = 0; links < 8; ++links) {
        const auto change = after.find(path);
        if (change == after.end() && !HasState(path)) return std::nullopt;
        const FileState state = change == after.end() ? ReadLinkedState(path) : *change->second;
        if (state.kind == FileState::Kind::Absent) return std::nullopt;
        if (state.kind == FileState::Kind::Regular) return Found{path, state.content};
        path = (std::filesystem::path(FolderOf(path)) / state.content).lexically_normal();
    }
    return std::nullopt;
}

// The same of a service, in the first folder that has it, or of a file elsewhere.
std::optional<Found> FindPam(const std::string& name, const ByPath& after) {
    if (!IsService(name)) return FindAfter(name, after);
    if (IsMasked(PathOf(name))) return Found{PathOf(name), ""};
    std::optional<Found> found = FindAfter(PathOf(name), after);
    for (const char* const folder : kVendorFolders) {
        if (!found) found = FindAfter(std::string(folder) + '/' + name, after);
    }
    return found;
}

}  // namespace

PamFiles FilesAfter(const std::vector<Change>& changes) {
    const ByPath after = StatesAfter(changes);
    PamFiles files = ReadPamFiles();
    for (const Change& change : changes) {
        const std::string name = change.path.substr(change.path.rfind('/') + 1);
        if (FolderOf(change.path) == kPamFolder && !IsBackup(name)) files[name];
    }
    for (auto file = files.begin(); file != files.end();) {
        std::optional<Found> found = FindPam(file->first, after);
        if (found) file->second = std::move(found->text);
        file = found ? std::next(file) : files.erase(file);
    }
    return files;
}

std::string PlaceAfter(const std::string& name, const std::vector<Change>& changes) {
    const std::optional<Found> found = FindPam(name, StatesAfter(changes));
    return found ? found->path : "";
}

}  // namespace nimbrel::logins
