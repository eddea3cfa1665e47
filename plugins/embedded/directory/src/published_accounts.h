// The accounts of the joined domain's users, without anything secret, in a file that all may read: the directory's own
// files are for root. One line for each, "name:uid".
//
// Whoever changes who is in it writes it anew: adding and removing a user, removing a domain, a join, a leave. So does the
// opening of a session, for what was changed in another way, and for a change whose process was killed before it came to
// this.
//
// Errors: nothing but `std::bad_alloc`. Threads: any.

#ifndef NIMBREL_EMBEDDED_PUBLISHED_ACCOUNTS_H_
#define NIMBREL_EMBEDDED_PUBLISHED_ACCOUNTS_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "embeddeddirectory/directory_types.h"

namespace nimbrel::embedded {

inline constexpr uid_t kFirstUid = 1'900'000'000;
inline constexpr char kPublishedAccounts[] = "/var/lib/nimbrel/embedded-accounts";

struct Account {
    std::string name;                // in lower case
    uid_t uid = 0;                   // the gid, too
    std::optional<UserFlags> flags;  // unset: not known, as for a published account
};

// True for a name that every program takes for a user's.
bool IsPortable(const std::string& name);
// True for a number that an account can have; no local account's is one.
bool IsAccountNumber(uid_t uid);
// The user as an account; unset for a name or number that cannot be one.
std::optional<Account> ToAccount(const UserInfo& user);

// Started by an ordinary user to get root's rights. The kernel does not tell that by AT_SECURE alone: it says so, too, of
// what root started in another SELinux domain (sshd, login, crond), or from a file with a group's rights. The two numbers
// are those of the start, whatever the program has made of its own since.
bool IsInForeignHands();
// True for a process with root's rights that no ordinary user has started, and that may read the directory's files.
bool IsRootsOwn();

// Brings the file up to date, on the disk; does nothing unless `IsRootsOwn`. A failure is not told: the accounts stay as
// they were published. Not inside a `ForkGate`.
void PublishAccounts() noexcept;

// What the file holds; nothing if it cannot be read.
std::vector<Account> ReadPublishedAccounts();

// The text of the file, and back. Lines that make no sense are left out.
std::string PublishedText(const std::vector<Account>& accounts);
std::vector<Account> ParsePublished(const std::string& text);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_PUBLISHED_ACCOUNTS_H_
