// The users of the joined embedded domain as accounts of this host. For evaluation and rehearsals only.
//
// A user's number in the directory decides its ids: uid = gid = 1900000000 + number. The number is never given to
// another user of the same file, so files keep their owner when a user is removed and another one is added. Each user
// has a group of its own, of the same name. Home: /home/<name>; shell: /bin/bash.
//
// The name is the directory's in lower case, and no other spelling is answered: names of a host differ by case, so a
// user who could be looked up as "ALICE" would pass for another account than "alice" before the look-up and for the
// same one after it. Only names that every program takes for a user name become accounts: a letter or '_', then letters,
// digits, '.', '_' and '-', at most 64.
//
// A name that the host's own /etc/passwd or /etc/group has under another number stays the host's: `IsTaken`.
//
// The directory's files are for root. Programs without root's rights, and those that an ordinary user started with them,
// answer from what was published: see `PublishAccounts`.
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
#include "embeddeddirectory/host.h"
#include "published_accounts.h"

namespace nimbrel::embedded {

// Where the answer comes from.
enum class Source {
    Directory,  // for a process with root's rights; the flags are known
    Published,
};

// The directory for root, the published file for others and for what an ordinary user started that gets root's rights: it
// runs in his hands, as su and sudo do before they know who he is. What root started is root's own, in whatever SELinux
// domain it runs. Root of a user namespace that may not read the files is one of the others.
Source SourceOfNames();
// The directory for every process with root's rights.
Source SourceOfFlags();

// One account of the joined domain; unset when not joined, and for any other spelling of the name. Of the directory's
// users only this one is read, without its password's hash.
std::optional<Account> FindAccount(const std::string& name, Source source);
std::optional<Account> FindAccount(uid_t uid, Source source);

// True if a local user or group of that name has another number. Programs compare such names without their numbers: the
// group of a user "sudo" would count as the local group's. Throws 1359 where /etc/passwd or /etc/group cannot be read.
bool IsTaken(const Account& account);
// The same for the text of either file: "name:x:number:...", also behind blanks.
bool IsTakenIn(const std::string& lines, const Account& account);

// The joined domain's DNS name; empty when not joined.
std::string JoinedDomain();
// For questions only, and so that nobody waits for a program that its user has stopped.
Host LookedUpHost();
Directory LookedUpDirectory();

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_LOGINS_ACCOUNTS_H_
