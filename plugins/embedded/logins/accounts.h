// The users of the joined embedded domain as accounts of this host. For evaluation and rehearsals only.
//
// A user's number in the directory decides its ids: uid = gid = 1900000000 + number. The number is never given to
// another user of the same file, so files keep their owner when a user is removed and another one is added. Each user
// has a group of its own, of the same name. Home: /home/<name>; shell: /bin/bash.
//
// Only names that every program takes for a user name become accounts: a letter or '_', then letters, digits, '.', '_'
// and '-', at most 64.
//
// The directory's files are for root. A log-in therefore publishes the accounts, without anything secret, in a file
// that all may read; programs without root's rights answer from it, as it was at the last log-in.
//
// Errors: `DirectoryError`, as the directory throws it; nothing else but `std::bad_alloc`.
// Threads: any.

#ifndef NIMBREL_EMBEDDED_LOGINS_ACCOUNTS_H_
#define NIMBREL_EMBEDDED_LOGINS_ACCOUNTS_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "embeddeddirectory/directory_types.h"

namespace nimbrel::embedded {

inline constexpr uid_t kFirstUid = 1'900'000'000;
inline constexpr char kPublishedAccounts[] = "/var/lib/nimbrel/embedded-accounts";

struct Account {
    std::string name;  // spelled as in the directory
    uid_t uid = 0;     // the gid, too
    UserFlags flags = {};
};

// The user as an account; unset for a name or number that cannot be one.
std::optional<Account> ToAccount(const UserInfo& user);

// Every account of the joined domain: from the directory for root, else as published. Empty when not joined.
std::vector<Account> Accounts();
// In any spelling of the name.
std::optional<Account> FindAccount(const std::string& name);
std::optional<Account> FindAccount(uid_t uid);

// The joined domain's DNS name; empty when not joined.
std::string JoinedDomain();

// Brings the published file up to date. A failure is not told: the accounts stay as they were published.
void PublishAccounts() noexcept;

// One line "name:uid" per account, and back. Lines that make no sense are left out.
std::string PublishedText(const std::vector<Account>& accounts);
std::vector<Account> ParsePublished(const std::string& text);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_LOGINS_ACCOUNTS_H_
