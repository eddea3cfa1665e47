#include "pluginkit/folders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "pluginkit/descriptor.h"
#include "pluginkit/status_error.h"

namespace nimbrel::kit {
namespace {

constexpr mode_t kParentMode = 0755;

}  // namespace

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool MakeFolder(const std::string& folder, mode_t mode) {
    if (mkdir(folder.c_str(), mode) != 0) {
        if (errno == EEXIST) return false;
        ThrowFileError("make", folder, errno);
    }
    if (chmod(folder.c_str(), mode) != 0) ThrowFileError("make", folder, errno);  // the umask may have taken rights
    SyncFolder(FolderOf(folder));
    return true;
}

std::vector<std::string> MakeFolders(const std::string& folder, mode_t mode) {
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0) return {};
    std::vector<std::string> made = MakeFolders(FolderOf(folder), kParentMode);
    if (MakeFolder(folder, mode)) made.push_back(folder);
    return made;
}

void SyncFolder(const std::string& folder) {
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened || fsync(opened.Number()) != 0) ThrowFileError("sync", folder, errno);
}

}  // namespace nimbrel::kit
