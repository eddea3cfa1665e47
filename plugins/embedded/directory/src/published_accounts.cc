#include "published_accounts.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <string_view>
#include <utility>

#include "embeddeddirectory/directory.h"
#include "embeddeddirectory/host.h"
#include "fork_gate.h"
#include "pluginkit/cancellation.h"
#include "pluginkit/descriptor.h"
#include "pluginkit/directory_names.h"
#include "pluginkit/owner_lock.h"
#include "pluginkit/whole_file.h"

namespace nimbrel::embedded {
namespace {

constexpr std::int64_t kLastNumber = 100'000'000;
constexpr std::size_t kLongestName = 64;
constexpr std::chrono::milliseconds kLongestTurn{2'000};

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool IsFurther(char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '.' || c == '-'; }

// Empty if it cannot be read.
std::string ReadPublished() { return kit::ReadWholeFile(kPublishedAccounts).value_or(""); }

// Everybody is root in a user namespace of his own, and has no further rights to the files.
bool MayRead() { return eaccess(kDefaultMembershipPath, R_OK) == 0 || errno != EACCES; }

std::vector<Account> ListDirectory() {
    const std::string domain =
        Host(kDefaultDirectoryPath, kDefaultMembershipPath, OpenMode::LookUp).ActiveDomain().dnsName;
    std::vector<Account> accounts;
    if (domain.empty()) return accounts;
    const ForkGate gate;
    const Directory directory = Directory::Open(kDefaultDirectoryPath, OpenMode::LookUp);
    if (!directory.FindDomain(domain)) return accounts;  // it was removed: nobody is in it
    for (const UserInfo& user : directory.ListUsers(domain)) {
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

bool IsPortable(const std::string& name) {
    return !name.empty() && name.size() <= kLongestName && IsLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), IsFurther);
}

bool IsAccountNumber(uid_t uid) { return uid > kFirstUid && uid <= kFirstUid + kLastNumber; }

std::optional<Account> ToAccount(const UserInfo& user) {
    if (!IsPortable(user.name) || user.number < 1 || user.number > kLastNumber) return std::nullopt;
    return Account{kit::LowerCase(user.name), kFirstUid + static_cast<uid_t>(user.number), user.flags};
}

bool IsInForeignHands() { return getauxval(AT_SECURE) != 0 && (getauxval(AT_UID) != 0 || getauxval(AT_EUID) != 0); }

bool IsRootsOwn() { return geteuid() == 0 && !IsInForeignHands() && MayRead(); }

std::vector<Account> ReadPublishedAccounts() { return ParsePublished(ReadPublished()); }

// In turn: who comes second reads the directory after the first has published what it read.
void PublishAccounts() noexcept try {
    if (!IsRootsOwn()) return;
    const kit::CancellationShield shield;
    kit::OwnerLock turn(std::string(kPublishedAccounts) + ".lock", kit::OwnerLock::File::GoesWithTheLock);
    if (!turn.TryFor(kLongestTurn)) return;
    const std::string text = PublishedText(ListDirectory());
    if (text != ReadPublished()) ReplacePublished(text);
} catch (...) {
    // Neither a change nor a log-in fails for it: only names are missing.
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
        long uid = 0;
        if (colon != std::string::npos) std::from_chars(line.data() + colon + 1, line.data() + line.size(), uid);
        const std::string name = kit::LowerCase(line.substr(0, colon));
        if (IsPortable(name) && uid > long{kFirstUid} && uid <= long{kFirstUid} + kLastNumber) {
            accounts.push_back({name, static_cast<uid_t>(uid), std::nullopt});
        }
    }
    return accounts;
}

}  // namespace nimbrel::embedded
