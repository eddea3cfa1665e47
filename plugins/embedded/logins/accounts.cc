#include "accounts.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "embeddeddirectory/membership.h"
#include "fork_gate.h"
#include "pluginkit/directory_names.h"
#include "pluginkit/status_error.h"
#include "pluginkit/whole_file.h"

namespace nimbrel::embedded {
namespace {

constexpr char kBlanks[] = " \t\v\f\r";  // the C library leaves them out at a line's beginning

bool IsAccountName(const std::string& name) { return IsPortable(name) && name == kit::LowerCase(name); }

OpenMode ModeOfLookUps() { return IsInForeignHands() ? OpenMode::StoppableLookUp : OpenMode::LookUp; }

// Asks the directory for one user of the joined domain.
template <class Question>
std::optional<Account> AskDirectory(const Question& question) {
    const std::string domain = JoinedDomain();
    if (domain.empty()) return std::nullopt;
    const ForkGate gate;
    const std::optional<UserInfo> user = question(LookedUpDirectory(), domain);
    return user ? ToAccount(*user) : std::nullopt;
}

template <class Test>
std::optional<Account> AskPublished(const Test& test) {
    for (Account& account : ReadPublishedAccounts()) {
        if (test(account)) return std::move(account);
    }
    return std::nullopt;
}

}  // namespace

std::string JoinedDomain() { return LookedUpHost().ActiveDomain().dnsName; }

Host LookedUpHost() { return Host(kDefaultDirectoryPath, kDefaultMembershipPath, ModeOfLookUps()); }

Directory LookedUpDirectory() { return Directory::Open(kDefaultDirectoryPath, ModeOfLookUps()); }

Source SourceOfNames() { return IsRootsOwn() ? Source::Directory : Source::Published; }

Source SourceOfFlags() { return geteuid() == 0 ? Source::Directory : Source::Published; }

std::optional<Account> FindAccount(const std::string& name, Source source) {
    if (!IsAccountName(name)) return std::nullopt;
    if (source == Source::Published) return AskPublished([&](const Account& account) { return account.name == name; });
    return AskDirectory(
        [&](const Directory& directory, const std::string& domain) { return directory.FindUser(domain, name); });
}

std::optional<Account> FindAccount(uid_t uid, Source source) {
    if (!IsAccountNumber(uid)) return std::nullopt;
    if (source == Source::Published) return AskPublished([&](const Account& account) { return account.uid == uid; });
    return AskDirectory([&](const Directory& directory, const std::string& domain) {
        return directory.FindUserByNumber(domain, uid - kFirstUid);
    });
}

bool IsTaken(const Account& account) {
    for (const char* const path : {"/etc/passwd", "/etc/group"}) {
        const auto lines = kit::ReadWholeFile(path);
        if (!lines && errno != ENOENT) kit::ThrowFileError("read", path, errno);
        if (lines && IsTakenIn(*lines, account)) return true;
    }
    return false;
}

bool IsTakenIn(const std::string& lines, const Account& account) {
    const std::string number = std::to_string(account.uid);
    for (std::size_t begin = 0, end = 0; begin < lines.size(); begin = end + 1) {
        end = std::min(lines.find('\n', begin), lines.size());
        const std::size_t start = std::min(lines.find_first_not_of(kBlanks, begin), end);
        const std::string line = lines.substr(start, end - start);
        const std::size_t name = std::min(line.find(':'), line.size());
        const std::size_t password = std::min(line.find(':', name + 1), line.size());
        const std::string found = line.substr(std::min(password + 1, line.size()), number.size() + 1);
        if (line.compare(0, name, account.name) == 0 && found != number + ':') return true;
    }
    return false;
}

}  // namespace nimbrel::embedded
