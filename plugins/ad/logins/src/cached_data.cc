#include "cached_data.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <system_error>

#include "adlogins/log_ins.h"
#include "files.h"
#include "names.h"

namespace nimbrel::ad::logins {
namespace {

constexpr char kState[] = "/var/lib/sss/";
constexpr char kTemporary[] = "/tmp";
constexpr char kUserCachePrefix[] = "krb5cc_";
// Where SSSD's mapping of SIDs begins and ends unless it is told otherwise; root's own tickets are below.
constexpr uid_t kFirstMappedUser = 200000;
constexpr uid_t kLastMappedUser = 2000200000;

// Goes through all steps, whatever becomes of each.
class Steps {
 public:
    void Try(const std::function<void()>& step) {
        try {
            step();
        } catch (const kit::StatusError& error) {  // the other steps are to be taken all the same
            if (!_first) _first = error;
        }
    }
    void End() const {
        if (_first) throw kit::StatusError(*_first);
    }

 private:
    std::optional<kit::StatusError> _first;
};

void RemoveTree(const std::string& path) {
    std::error_code error;
    std::filesystem::remove_all(path, error);
    if (error) kit::ThrowFileError("remove", path, error.value());
}

std::vector<std::string> FilesOf(const std::string& domain) {
    const std::string realm = UpperCase(domain);
    std::string underscored = LowerCase(domain);
    std::replace(underscored.begin(), underscored.end(), '.', '_');
    std::vector<std::string> files;
    for (const std::string& name : {domain, LowerCase(domain)}) {
        files.insert(files.end(), {"db/cache_" + name + ".ldb", "db/timestamps_" + name + ".ldb"});
    }
    for (const char* const kind : {"db/ccache_", "db/fast_ccache_", "pubconf/kdcinfo.", "pubconf/kpasswdinfo."}) {
        files.push_back(kind + realm);
    }
    files.push_back("pubconf/krb5.include.d/domain_realm_" + underscored);
    return files;
}

// The big-endian number at `at`.
std::optional<std::uint32_t> NumberAt(const std::string& text, std::size_t at) {
    if (text.size() < at + 4) return std::nullopt;
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(text[at + i]);
    return number;
}

// The realm of a credential cache's owner, in the file format's version 4: two bytes of version, a header with its
// length, then the owner as type, number of parts and realm. Empty if it is none.
std::string RealmOfCache(const std::string& text) {
    constexpr std::size_t kHeader = 4;
    if (text.size() < kHeader || text[0] != 5 || text[1] != 4) return "";
    const auto headerLength =
        static_cast<std::size_t>(static_cast<unsigned char>(text[2])) << 8 | static_cast<unsigned char>(text[3]);
    const std::size_t realm = kHeader + headerLength + 8;
    const auto length = NumberAt(text, realm);
    if (!length || text.size() < realm + 4 + *length) return "";
    return text.substr(realm + 4, *length);
}

bool IsMappedUsersFile(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid >= kFirstMappedUser &&
           status.st_uid < kLastMappedUser;
}

bool IsUserCacheOf(const std::string& path, const std::vector<std::string>& realms) {
    if (!IsMappedUsersFile(path)) return false;
    const auto text = ReadFileIfPossible(path);
    return text && std::find(realms.begin(), realms.end(), RealmOfCache(*text)) != realms.end();
}

void RemoveUserCaches(const std::string& folder, const std::vector<std::string>& domains) {
    std::vector<std::string> realms;
    realms.reserve(domains.size());
    for (const auto& domain : domains) realms.push_back(UpperCase(domain));
    for (const auto& name : FileNames(folder)) {
        const std::string path = folder + '/' + name;
        if (name.rfind(kUserCachePrefix, 0) == 0 && IsUserCacheOf(path, realms)) RemoveFile(path);
    }
}

}  // namespace

void RemoveCachedData(const std::string& root, const std::vector<std::string>& domains) {
    if (domains.empty()) return;
    const std::string state = root + kState;
    Steps steps;
    for (const auto& domain : domains) {
        for (const auto& file : FilesOf(domain)) steps.Try([&] { RemoveFile(state + file); });
        steps.Try([&] { RemoveTree(state + "gpo_cache/" + LowerCase(domain)); });
    }
    for (const auto& name : FileNames(state + "mc")) steps.Try([&] { RemoveFile(state + "mc/" + name); });
    // A copy of the configuration, which SSSD makes anew from its files.
    steps.Try([&] { RemoveFile(state + "db/config.ldb"); });
    steps.Try([&] { RemoveUserCaches(root + kTemporary, domains); });
    steps.End();
}

}  // namespace nimbrel::ad::logins
