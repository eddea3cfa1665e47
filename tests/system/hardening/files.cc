#include "files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ios>
#include <regex>

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;

struct Row {
    const char* path;  // a pattern of the whole path; the first row that fits counts
    mode_t mode;       // with the type
};

constexpr mode_t kPublic = S_IFREG | 0644;
constexpr mode_t kSecret = S_IFREG | 0600;
constexpr mode_t kFolder = S_IFDIR | 0755;
constexpr mode_t kSecretFolder = S_IFDIR | 0700;

const Row kRows[] = {
    // The library and the platform.
    {"/etc/nimbrel/nimauth/authentication\\.conf", kPublic},
    {"/etc/(hosts|resolv\\.conf|nsswitch\\.conf)", kPublic},
    {"/etc/systemd(/resolved\\.conf\\.d)?", kFolder},
    {"/etc/systemd/resolved\\.conf\\.d/[0-9a-z-]+\\.conf", kPublic},
    {"/var/lib/nimbrel", kFolder},
    {"/var/lib/nimbrel/configstore\\.db(-wal|-shm)?", kSecret},
    // The providers.
    {"/var/lib/nimbrel/(directory|embedded-membership)\\.db(-wal|-shm)?", kSecret},
    {"/var/lib/nimbrel/embedded-accounts", kPublic},
    {"/var/lib/nimbrel/ad", kFolder},
    {"/var/lib/nimbrel/(ad/membership(\\.lock)?|ad-log-ins\\.conf)", kSecret},
    {"/etc/krb5\\.keytab", kSecret},
    {"/etc/sssd(/conf\\.d)?", S_IFDIR | 0711},
    {"/etc/sssd/conf\\.d/[0-9]+-nimauth-[a-z]+\\.conf", kSecret},
    // The changes of the log-in files: the journal, which keeps each file as it was, and the files.
    {"/var/lib/nimbrel/logins(/[0-9]+(/before|/after)?)?", kSecretFolder},
    {"/var/lib/nimbrel/logins/(lock|[0-9]+/(record|state))", kSecret},
    {"/var/lib/nimbrel/logins/[0-9]+/(before|after)(/[a-z.-]+)*/(common-[a-z-]+|nsswitch\\.conf|seen|nimauth)",
     kPublic},
    {"/var/lib/nimbrel/logins/[0-9]+/(before|after)/var/lib/pam/[a-z-]+", kPublic},
    {"/var/lib/nimbrel/logins/[0-9]+/(before|after)(/[a-z.-]+)+", kFolder},
    {"/etc/pam\\.d/common-[a-z-]+", kPublic},
    {"/usr/share/pam-configs/nimauth", kPublic},
    {"/var/lib/pam/[a-z-]+", kPublic},
    // The service.
    {"/run/apxd/ledger(\\.lock)?", kSecret},
};

// Folders take another time with every file in them.
bool HasChanged(const struct stat& before, const struct stat& after) {
    return before.st_ino != after.st_ino || before.st_mode != after.st_mode || before.st_uid != after.st_uid ||
           before.st_gid != after.st_gid;
}

const Row* RowOf(const std::string& path) {
    for (const Row& row : kRows) {
        if (std::regex_match(path, std::regex(row.path))) return &row;
    }
    return nullptr;
}

}  // namespace

Files FilesOfTheHost() {
    Files files;
    constexpr auto kOptions = fs::directory_options::skip_permission_denied;  // the machine's own, to an ordinary user
    for (const char* const folder : {"/etc", "/home", "/root", "/run", "/tmp", "/usr/share/pam-configs", "/var"}) {
        for (fs::recursive_directory_iterator item(folder, kOptions), end; item != end; ++item) {
            const std::string path = item->path();
            if (path == NIMAUTH_SOURCE || path == NIMAUTH_BUILD) {  // wherever somebody builds
                item.disable_recursion_pending();
                continue;
            }
            struct stat status = {};
            if (lstat(path.c_str(), &status) == 0) files[path] = status;
        }
    }
    return files;
}

void ExpectModes(const Files& before, const Files& after) {
    int made = 0;
    for (const auto& [path, status] : after) {
        const auto old = before.find(path);
        if (old != before.end() && !HasChanged(old->second, status)) continue;
        ++made;
        const Row* const row = RowOf(path);
        EXPECT_NE(nullptr, row) << path << " is not in the table, with mode " << std::oct << status.st_mode;
        if (row == nullptr) continue;
        EXPECT_EQ(row->mode, status.st_mode) << path << ": " << std::oct << status.st_mode << ", not " << row->mode;
        EXPECT_EQ(0U, status.st_uid) << path;
        EXPECT_EQ(0U, status.st_gid) << path;
    }
    EXPECT_GT(made, 0);
}

}  // namespace nimbrel::testing
