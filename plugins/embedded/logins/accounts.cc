#include "accounts.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "embeddeddirectory/membership.h"
#include "fork_gate.h"
#include "pluginkit/descriptor.h"
#include "pluginkit/directory_names.h"
#include "pluginkit/owner_lock.h"
#include "pluginkit/status_error.h"
#include "pluginkit/whole_file.h"

namespace nimbrel::embedded {
namespace {

constexpr std::int64_t kLastNumber = 100'000'000;
constexpr std::size_t kLongestName = 64;
constexpr std::chrono::milliseconds kLongestTurn{2'000};
constexpr char kBlanks[] = " \t\v\f\r";  // the C library leaves them out at a line's beginning

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool IsFurther(char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '.' || c == '-'; }

bool IsPortable(const std::string& name) {
    return !name.empty() && name.size() <= kLongestName && IsLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), IsFurther);
}

bool IsAccountName(const std::string& name) { return IsPortable(name) && name == kit::LowerCase(name); }

// Empty if it cannot be read.
std::string ReadPublished() { return kit::ReadWholeFile(kPublishedAccounts).value_or(""); }

// Started by an ordinary user to get root's rights. The kernel does not tell that by AT_SECURE alone: it says so, too, of
// what root started in another SELinux domain (sshd, login, crond), or from a file with a group's rights. The two numbers
// are those of the start, whatever the program has made of its own since.
bool IsInForeignHands() { return getauxval(AT_SECURE) != 0 && (getauxval(AT_UID) != 0 || getauxval(AT_EUID) != 0); }

// Everybody is root in a user namespace of his own, and has no further rights to the files.
bool MayRead() { return eaccess(kDefaultMembershipPath, R_OK) == 0 || errno != EACCES; }

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
    for (Account& account : ParsePublished(ReadPublished())) {
        if (test(account)) return std::move(account);
    }
    return std::nullopt;
}

std::vector<Account> ListDirectory() {
    const std::string domain = JoinedDomain();
    std::vector<Account> accounts;
    if (domain.empty()) return accounts;
    const ForkGate gate;
    for (const UserInfo& user : LookedUpDirectory().ListUsers(domain)) {
        if (auto account = ToAccount(user)) accounts.push_back(std::move(*account));
    }
    return accounts;
}

bool WriteAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(file, text.data(), text.size());
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// In the publishers' turn: what is there under the new file's name is a killed one's.
void ReplacePublished(const std::string& text) {
    const std::string built = std::string(kPublishedAccounts) + ".new";
    unlink(built.c_str());
    kit::Descriptor file(open(built.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file) return;
    const bool complete = fchmod(file.Number(), 0644) == 0 && WriteAll(file.Number(), text) &&
                          fsync(file.Number()) == 0 && file.Close() &&
                          std::rename(built.c_str(), kPublishedAccounts) == 0;
    if (!complete) unlink(built.c_str());
}

}  // namespace

std::optional<Account> ToAccount(const UserInfo& user) {
    if (!IsPortable(user.name) || user.number < 1 || user.number > kLastNumber) return std::nullopt;
    return Account{kit::LowerCase(user.name), kFirstUid + static_cast<uid_t>(user.number), user.flags};
}

std::string JoinedDomain() { return LookedUpHost().ActiveDomain().dnsName; }

Host LookedUpHost() { return Host(kDefaultDirectoryPath, kDefaultMembershipPath, ModeOfLookUps()); }

Directory LookedUpDirectory() { return Directory::Open(kDefaultDirectoryPath, ModeOfLookUps()); }

Source SourceOfNames() {
    return geteuid() == 0 && !IsInForeignHands() && MayRead() ? Source::Directory : Source::Published;
}

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

bool IsAccountNumber(uid_t uid) { return uid > kFirstUid && uid <= kFirstUid + kLastNumber; }

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

// In turn: who comes second reads the directory after the first has published what it read.
void PublishAccounts() noexcept try {
    if (SourceOfNames() != Source::Directory) return;
    kit::OwnerLock turn(std::string(kPublishedAccounts) + ".lock", kit::OwnerLock::File::GoesWithTheLock);
    if (!turn.TryFor(kLongestTurn)) return;
    const std::string text = PublishedText(ListDirectory());
    if (text != ReadPublished()) ReplacePublished(text);
} catch (...) {
    // A log-in does not fail for it: only names are missing in listings.
}

std::string PublishedText(const std::vector<Account>& accounts) {
    std::string text;
    for (const Account& account : accounts) text += account.name + ':' + std::to_string(account.uid) + '\n';
    return text;
}

std::vector<Account> ParsePublished(const std::string& text) {
    std::vector<Account> accounts;
    std::istringstream lines(text);
    lines.exceptions(std::ios_base::badbit);  // a stream takes exhausted memory for the end of the text otherwise
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        const long uid = colon == std::string::npos ? 0 : std::atol(line.c_str() + colon + 1);
        const std::string name = kit::LowerCase(line.substr(0, colon));
        if (IsPortable(name) && uid > long{kFirstUid} && uid <= long{kFirstUid} + kLastNumber) {
            accounts.push_back({name, static_cast<uid_t>(uid), std::nullopt});
        }
    }
    return accounts;
}

}  // namespace nimbrel::embedded
