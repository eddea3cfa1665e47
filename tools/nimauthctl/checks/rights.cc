#include "tools/nimauthctl/checks/rights.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "pluginkit/rights.h"
#include "pluginkit/whole_file.h"
#include "tools/nimauthctl/apxhttps_settings.h"
#include "tools/nimauthctl/checks/login_files.h"

namespace nimbrel::nimauthctl {
namespace {

// Through links, to what is loaded in the end.
std::optional<FileRights> RightsOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return FileRights{status.st_uid, status.st_gid, status.st_mode, kit::HasAccessList(path)};
}

// Of the path itself.
std::optional<FileRights> OwnRightsOf(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) return std::nullopt;
    return FileRights{status.st_uid, status.st_gid, status.st_mode,
                      !S_ISLNK(status.st_mode) && kit::HasAccessList(path)};
}

bool OthersInGroupMay(mode_t right, const FileRights& rights) {
    return kit::OthersInGroupMay(right, rights.mode, rights.group, rights.hasAccessList);
}

std::string ByGroup(const FileRights& rights) {
    return rights.hasAccessList ? "by users on its access list" : "by its group";
}

// "/", "/usr" and "/usr/libexec" of "/usr/libexec/nimauth".
std::vector<std::string> FoldersAbove(const std::string& path) {
    std::vector<std::string> folders = {"/"};
    for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        folders.push_back(path.substr(0, slash));
    }
    return folders;
}

// Whoever may write a folder may put another one into the next one's place, on the way as it is written and on the way
// that it leads through links.
std::vector<std::string> FoldersOnTheWay(const std::string& root, const std::string& folder) {
    std::vector<std::string> folders = FoldersAbove(folder);
    std::error_code error;
    const std::string base = root.empty() ? "" : std::filesystem::canonical(root, error).string();
    const std::string real = std::filesystem::canonical(root + folder, error).string();
    const bool isInside = !error && real.compare(0, base.size(), base) == 0;
    if (!isInside || real.substr(base.size()) == folder) return folders;
    for (const std::string& above : FoldersAbove(real.substr(base.size()))) {
        if (std::find(folders.begin(), folders.end(), above) == folders.end()) folders.push_back(above);
    }
    return folders;
}

// The folders that are there, with those on the way to them, each before what is in it.
std::vector<std::string> FoldersAndFiles(const std::string& root, const std::vector<std::string>& folders) {
    std::vector<std::string> paths = FoldersOnTheWay(root, folders.back());
    for (const std::string& folder : folders) {
        if (!RightsOf(root + folder)) continue;
        if (std::find(paths.begin(), paths.end(), folder) == paths.end()) paths.push_back(folder);
        for (const std::string& path : AllMatches(root, folder + "/*")) {
            const auto rights = RightsOf(root + path);
            if (rights && S_ISREG(rights->mode)) paths.push_back(path);
        }
    }
    return paths;
}

// What is wrong, path by path, and the paths.
struct Wrong {
    std::string found;
    std::string paths;

    void Add(const std::string& path, const std::string& how) {
        if (how.empty()) return;
        found += (found.empty() ? "" : "; ") + path + ' ' + how;
        paths += ' ' + path;
    }
};

Finding CheckRights(const std::string& root, const std::vector<std::string>& folders) {
    Wrong wrong;
    for (const std::string& path : FoldersAndFiles(root, folders)) {
        if (const auto rights = RightsOf(root + path)) wrong.Add(path, WhoElseMayWrite(*rights));
    }
    if (wrong.found.empty()) return Pass("only root may write " + folders.back());
    return Fail(wrong.found,
                "see what they hold now, then: chown root:root" + wrong.paths + " && chmod go-w" + wrong.paths,
                ExitCode::Permission);
}

// `open` are those that hold secrets.
Finding RightsFinding(const Wrong& writable, const Wrong& open, const std::string& inOrder) {
    if (writable.found.empty() && open.found.empty()) return Pass(inOrder);
    std::string remedy = "see what they hold now, then: chown root:root" + writable.paths + open.paths;
    if (!writable.paths.empty()) remedy += " && chmod go-w" + writable.paths;
    if (!open.paths.empty()) remedy += " && chmod go-rwx" + open.paths;
    const bool both = !writable.found.empty() && !open.found.empty();
    return Fail(writable.found + (both ? "; " : "") + open.found, remedy, ExitCode::Permission);
}

constexpr char kState[] = "/var/lib/nimbrel";
constexpr char kJournal[] = "/var/lib/nimbrel/logins";
constexpr char kPublishedAccounts[] = "/var/lib/nimbrel/embedded-accounts";

// What lies below the state's folder, and can be seen. The journal is a folder of root's own: what is in it is nobody's
// business.
std::vector<std::string> StatePaths(const std::string& root) {
    std::vector<std::string> paths;
    std::error_code error;
    constexpr auto kOptions = std::filesystem::directory_options::skip_permission_denied;
    for (std::filesystem::recursive_directory_iterator item(root + kState, kOptions, error), end; !error && item != end;
         item.increment(error)) {
        paths.push_back(item->path().string().substr(root.size()));
        if (paths.back() == kJournal) item.disable_recursion_pending();
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool IsForAllToRead(const std::string& path, const FileRights& rights) {
    return path == kPublishedAccounts ? S_ISREG(rights.mode) : S_ISDIR(rights.mode) && path != kJournal;
}

// What the proxy plug-in's settings name; empty for what they do not.
struct NamedFiles {
    std::string certificate;
    std::string key;
};

NamedFiles FilesNamedIn(const std::string& settings) {
    return {ApxhttpsSetting(settings, "client-certificate"), ApxhttpsSetting(settings, "client-key")};
}

// What keeps the file from being used; empty if nothing does. A path that depends on the process's folder may lead
// anywhere.
std::string Unusable(const std::string& root, const std::string& path) {
    if (path.empty()) return "is not given";
    if (!path.starts_with('/')) return "'" + path + "' is no absolute path";
    struct stat status = {};
    const int error = stat((root + path).c_str(), &status) == 0 ? 0 : errno;
    return error == 0 ? "" : "'" + path + "' cannot be used: " + std::generic_category().message(error);
}

void AddFoldersOnTheWay(const std::string& root, const std::string& file, std::vector<std::string>& paths) {
    for (const std::string& folder : FoldersOnTheWay(root, file)) {
        if (std::find(paths.begin(), paths.end(), folder) == paths.end()) paths.push_back(folder);
    }
}

// By the host's own list: a directory that does not answer is not waited for.
std::string GroupName(const std::string& root, gid_t group) {
    std::istringstream lines(kit::ReadWholeFile(root + "/etc/group").value_or(""));
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line);) {
        const std::size_t password = line.find(':');
        const std::size_t number = password == std::string::npos ? password : line.find(':', password + 1);
        if (number == std::string::npos) continue;
        const std::string text = std::to_string(group) + ':';
        if (line.compare(number + 1, text.size(), text) == 0) return '\'' + line.substr(0, password) + '\'';
    }
    return std::to_string(group);
}

// Some distributions keep keys for a group of programs that may use them all, "ssl-cert".
bool IsForAGroup(const FileRights& key) { return OthersInGroupMay(S_IRGRP, key); }
bool MayHaveBeenRead(const FileRights& key) { return key.owner != 0 || (key.mode & S_IROTH) != 0; }

std::string WhoElseMayOpenKey(const FileRights& key) {
    std::string writes = WhoElseMayWrite(key);
    if (!writes.empty()) return writes;
    return (key.mode & S_IRWXO) != 0 ? "may be read by everybody" : "";
}

Finding WarnOfGroup(const std::string& root, const std::string& path, const FileRights& key) {
    const std::string who = key.hasAccessList ? ByGroup(key) : "by the group " + GroupName(root, key.group);
    return Warn(path + " may be read " + who, std::string("in order if all ") +
                                                  (key.hasAccessList ? "whom getfacl shows" : "its members") +
                                                  " may join as this host; else: chmod g-rwx " + path);
}

Finding RightsOfNamedFiles(const std::string& root, const NamedFiles& named) {
    std::vector<std::string> paths;
    for (const std::string& file : {named.certificate, named.key}) {
        if (file.starts_with('/')) AddFoldersOnTheWay(root, file, paths);
    }
    if (named.certificate != named.key && named.certificate.starts_with('/')) paths.push_back(named.certificate);
    Wrong writable;
    for (const std::string& path : paths) {
        if (const auto rights = RightsOf(root + path)) writable.Add(path, WhoElseMayWrite(*rights));
    }
    Wrong open;
    const auto key = named.key.starts_with('/') ? RightsOf(root + named.key) : std::nullopt;
    if (key) open.Add(named.key, WhoElseMayOpenKey(*key));
    Finding finding = RightsFinding(writable, open, "only root may read " + named.key);
    if (key && MayHaveBeenRead(*key)) finding.remedy += "; if others have read the key, have another one certified";
    if (finding.verdict != Verdict::Pass || !key || !IsForAGroup(*key)) return finding;
    return WarnOfGroup(root, named.key, *key);
}

}  // namespace

std::string WhoElseMayWrite(const FileRights& rights) {
    if (rights.owner != 0) return "belongs to user " + std::to_string(rights.owner);
    if ((rights.mode & S_IWOTH) != 0) return "may be written by everybody";
    return OthersInGroupMay(S_IWGRP, rights) ? "may be written " + ByGroup(rights) : "";
}

std::string WhoElseMayOpen(const FileRights& rights) {
    if (S_ISLNK(rights.mode)) return "is a symbolic link";
    std::string writes = WhoElseMayWrite(rights);
    if (!writes.empty()) return writes;
    if ((rights.mode & S_IRWXO) != 0) return "may be read by everybody";
    return OthersInGroupMay(S_IRWXG, rights) ? "may be read " + ByGroup(rights) : "";
}

Finding CheckSettingsFiles(const std::string& root) {
    constexpr char kFolder[] = "/etc/nimbrel/nimauth";
    if (!RightsOf(root + kFolder)) return Fail(std::string(kFolder) + " is missing", "install the library again");
    return CheckRights(root, {"/etc/nimbrel", kFolder});
}

Finding CheckStateFiles(const std::string& root) {
    if (!RightsOf(root + kState)) return Pass(std::string(kState) + " is not there yet");
    Wrong writable;
    std::vector<std::string> folders = FoldersOnTheWay(root, kState);
    folders.emplace_back(kState);
    for (const std::string& path : folders) {
        if (const auto rights = RightsOf(root + path)) writable.Add(path, WhoElseMayWrite(*rights));
    }
    Wrong open;
    for (const std::string& path : StatePaths(root)) {
        const auto rights = OwnRightsOf(root + path);
        if (!rights) continue;
        if (IsForAllToRead(path, *rights)) {
            writable.Add(path, WhoElseMayWrite(*rights));
        } else {
            open.Add(path, WhoElseMayOpen(*rights));
        }
    }
    return RightsFinding(writable, open, "only root may write " + std::string(kState));
}

Finding CheckProxyFiles(const std::string& root) {
    const auto text = kit::ReadWholeFile(root + kApxhttpsSettings);
    const int error = errno;
    if (!text && error != ENOENT) {
        return Fail(std::string(kApxhttpsSettings) + " cannot be read", "run this as root", ExitCode::Permission);
    }
    const NamedFiles named = FilesNamedIn(text.value_or(""));
    if (named.certificate.empty() && named.key.empty()) {
        return Pass("the proxy plug-in's settings name no certificate of this host");
    }
    Finding rights = RightsOfNamedFiles(root, named);
    if (rights.verdict == Verdict::Fail) return rights;
    for (const auto& [key, path] :
         {std::pair("client-certificate ", named.certificate), std::pair("client-key ", named.key)}) {
        const std::string unusable = Unusable(root, path);
        if (unusable.empty()) continue;
        return Warn(key + unusable,
                    std::string("needed to join through the authentication proxy only; correct ") + kApxhttpsSettings);
    }
    return rights;
}

Finding CheckProviderFiles(const std::string& root) {
    constexpr char kFolder[] = "/usr/libexec/nimauth";
    if (!RightsOf(root + kFolder)) return Fail(std::string(kFolder) + " is missing", "install the library again");
    return CheckRights(root, {std::string(kFolder) + "/lib64", kFolder});
}

}  // namespace nimbrel::nimauthctl
