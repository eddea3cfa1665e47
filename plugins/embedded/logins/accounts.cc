#include "accounts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "embeddeddirectory/membership.h"
#include "fork_gate.h"
#include "pluginkit/directory_names.h"
#include "pluginkit/status_error.h"
#include "pluginkit/whole_file.h"

namespace nimbrel::embedded {
namespace {

constexpr std::int64_t kLastNumber = 100'000'000;
constexpr std::size_t kLongestName = 64;

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool IsFurther(char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '.' || c == '-'; }

bool IsPortable(const std::string& name) {
    return !name.empty() && name.size() <= kLongestName && IsLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), IsFurther);
}

bool IsAccountName(const std::string& name) { return IsPortable(name) && name == kit::LowerCase(name); }

std::vector<Account> FromDirectory() {
    const std::string domain = JoinedDomain();
    std::vector<Account> accounts;
    if (domain.empty()) return accounts;
    const ForkGate gate;
    for (const UserInfo& user : Directory::Open().ListUsers(domain)) {
        if (auto account = ToAccount(user)) accounts.push_back(std::move(*account));
    }
    return accounts;
}

// Empty if it cannot be read.
std::string ReadPublished() { return kit::ReadWholeFile(kPublishedAccounts).value_or(""); }

bool WriteWhole(const std::string& path, const std::string& text) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file < 0) return false;
    const bool written =
        fchmod(file, 0644) == 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return close(file) == 0 && written;
}

}  // namespace

std::optional<Account> ToAccount(const UserInfo& user) {
    if (!IsPortable(user.name) || user.number < 1 || user.number > kLastNumber) return std::nullopt;
    return Account{kit::LowerCase(user.name), kFirstUid + static_cast<uid_t>(user.number), user.flags};
}

std::string JoinedDomain() { return Host().ActiveDomain().dnsName; }

std::vector<Account> Accounts() { return geteuid() == 0 ? FromDirectory() : ParsePublished(ReadPublished()); }

std::optional<Account> FindAccount(const std::string& name) {
    if (!IsAccountName(name)) return std::nullopt;
    for (Account& account : Accounts()) {
        if (account.name == name) return std::move(account);
    }
    return std::nullopt;
}

std::optional<Account> FindAccount(uid_t uid) {
    if (!IsAccountNumber(uid)) return std::nullopt;
    for (Account& account : Accounts()) {
        if (account.uid == uid) return std::move(account);
    }
    return std::nullopt;
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
        const std::string line = lines.substr(begin, end - begin);
        const std::size_t name = std::min(line.find(':'), line.size());
        const std::size_t password = std::min(line.find(':', name + 1), line.size());
        const std::string found = line.substr(std::min(password + 1, line.size()), number.size() + 1);
        if (line.compare(0, name, account.name) == 0 && found != number + ':') return true;
    }
    return false;
}

void PublishAccounts() noexcept try {
    const std::string text = PublishedText(FromDirectory());
    if (text == ReadPublished()) return;
    const std::string built = std::string(kPublishedAccounts) + '.' + std::to_string(getpid());
    if (!WriteWhole(built, text) || std::rename(built.c_str(), kPublishedAccounts) != 0) unlink(built.c_str());
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
