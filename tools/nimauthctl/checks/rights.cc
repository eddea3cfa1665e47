#include "tools/nimauthctl/checks/rights.h"

#include <sys/stat.h>

#include <optional>
#include <vector>

#include "tools/nimauthctl/checks/login_files.h"

namespace nimbrel::nimauthctl {
namespace {

// Through links, to what is loaded in the end.
std::optional<struct stat> StatusOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

// The folders that are there, each before what is in it.
std::vector<std::string> FoldersAndFiles(const std::string& root, const std::vector<std::string>& folders) {
    std::vector<std::string> paths;
    for (const std::string& folder : folders) {
        if (!StatusOf(root + folder)) continue;
        paths.push_back(folder);
        for (const std::string& path : AllMatches(root, folder + "/*")) {
            const auto status = StatusOf(root + path);
            if (status && S_ISREG(status->st_mode)) paths.push_back(path);
        }
    }
    return paths;
}

Finding CheckRights(const std::string& root, const std::vector<std::string>& folders) {
    const std::vector<std::string> paths = FoldersAndFiles(root, folders);
    std::string wrong;
    std::string names;
    for (const std::string& path : paths) {
        const auto status = StatusOf(root + path);
        const std::string how = status ? WhoElseMayWrite(status->st_uid, status->st_mode) : "";
        if (how.empty()) continue;
        wrong += (wrong.empty() ? "" : "; ") + path + ' ' + how;
        names += ' ' + path;
    }
    if (wrong.empty()) return Pass("only root may write " + folders.back());
    return Fail(wrong, "see what they hold now, then: chown root:root" + names + " && chmod go-w" + names,
                ExitCode::Permission);
}

}  // namespace

std::string WhoElseMayWrite(uid_t owner, mode_t mode) {
    if (owner != 0) return "belongs to user " + std::to_string(owner);
    if ((mode & S_IWOTH) != 0) return "may be written by everybody";
    return (mode & S_IWGRP) != 0 ? "may be written by its group" : "";
}

Finding CheckSettingsFiles(const std::string& root) {
    constexpr char kFolder[] = "/etc/nimbrel/nimauth";
    if (!StatusOf(root + kFolder)) return Fail(std::string(kFolder) + " is missing", "install the library again");
    return CheckRights(root, {"/etc/nimbrel", kFolder});
}

Finding CheckProviderFiles(const std::string& root) {
    constexpr char kFolder[] = "/usr/libexec/nimauth";
    if (!StatusOf(root + kFolder)) return Fail(std::string(kFolder) + " is missing", "install the library again");
    return CheckRights(root, {std::string(kFolder) + "/lib64", kFolder});
}

}  // namespace nimbrel::nimauthctl
