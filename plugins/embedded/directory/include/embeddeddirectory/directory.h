// The embedded directory: domains, users, organizational units, computer accounts, trusts and domain controllers in one
// SQLite file. It stands in for a real directory where there is none: for evaluation, in an air-gapped laboratory, and
// to rehearse how a management agent takes a slow, failing or strict domain. It is no identity service: nobody logs in
// against it over a network, and whoever can write the file is its administrator.
//
// Files: the database, its "-wal" and its "-shm" beside it, all of mode 0600 under any umask. A symbolic link in place
// of the database is refused. A new file appears complete or not at all. Every change is one durable transaction; a
// change waits up to ten seconds for another process's.
//
// Threads: an object may be used from any number of threads; its calls take turns, hashing a password apart. Several
// objects, in one process or many, may have the same file open; each call sees every change committed before it.
// A process that forks must not use a file in the child that an object of the parent has open (SQLite's rule).
//
// A user who is added to the file that the host itself uses, or removed from it, is published: /var/lib/nimbrel/
// embedded-accounts tells the names and numbers of the joined domain's users to programs that may not read the directory.
//
// Errors: `DirectoryError` with the status named at each call; 1359 for a damaged, full, foreign or busy file, 5 for
// one that may not be used, 1355 for an unknown domain. A call that throws has changed nothing.
//
// Arguments: `domain` is a DNS name ("corp.test") or a NetBIOS name ("CORP"). `unit` is an organizational unit in path
// form ("Hosts/Sub", outermost first) or as distinguished name ("OU=Sub,OU=Hosts,DC=corp,DC=test"). Case does not
// matter.
//
//     Directory directory = Directory::Open("/var/lib/nimbrel/directory.db", OpenMode::CreateIfMissing);
//     directory.AddDomain("corp.test");
//     directory.AddOrganizationalUnit("corp.test", "Hosts");
//     directory.AddUser("corp.test", "admin1", password, {.mayJoin = true});

#ifndef NIMBREL_EMBEDDED_DIRECTORY_H_
#define NIMBREL_EMBEDDED_DIRECTORY_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "embeddeddirectory/directory_error.h"
#include "embeddeddirectory/directory_types.h"
#include "pluginkit/secret.h"

namespace nimbrel::embedded {

inline constexpr char kDefaultDirectoryPath[] = "/var/lib/nimbrel/directory.db";

// A user as typed by an administrator: "alice", "alice@corp.test" or "CORP\alice". The caller keeps and wipes the
// texts.
struct UserCredentials {
    std::string_view userName;
    std::string_view password;
};

// A computer account as it was before a change, secret hash included. Only good for `RestoreComputer`.
struct ComputerBackup;

// The outcome of a join on the domain's side.
struct JoinedComputer {
    ComputerInfo computer;
    DomainInfo domain;
    kit::Secret secret;  // the account's new secret, for the host to keep
    std::shared_ptr<const ComputerBackup> before;
};

class Directory {
 public:
    // Opens the file. `CreateIfMissing` also creates the last folder of the path (mode 0755) and an empty directory; the
    // two look-ups are for calls that change nothing: see `OpenMode`. Throws 1355 if the file is missing, 5 if it is a
    // link, no regular file or not ours to use.
    static Directory Open(const std::string& path = kDefaultDirectoryPath, OpenMode mode = OpenMode::MustExist);

    Directory(Directory&&) noexcept;
    Directory& operator=(Directory&&) noexcept;
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory();

    // --- Domains ---

    // Adds a domain with a new SID and one reachable controller "dc1.<dnsName>". An empty NetBIOS name means the first
    // label of the DNS name in upper case, cut at 15 characters. Throws 1212 (malformed), 1356 (a name is taken).
    DomainInfo AddDomain(const std::string& dnsName, const std::string& netbiosName = "");
    // Removes the domain with everything in it, and the trusts of other domains to it.
    void RemoveDomain(const std::string& domain);
    std::vector<DomainInfo> ListDomains() const;
    std::optional<DomainInfo> FindDomain(const std::string& domain) const;

    // --- Users ---

    // Throws 1315 (malformed name), 1316 (taken), 87 (empty or over-long password), 2 or 267 (a unit is not there).
    void AddUser(const std::string& domain, const std::string& name, std::string_view password,
                 const UserFlags& flags = {}, const std::vector<std::string>& delegatedUnits = {});
    // These four throw 1317 for an unknown user. A new password lifts neither flag of the old one.
    void SetUserPassword(const std::string& domain, const std::string& name, std::string_view password);
    void SetUserFlags(const std::string& domain, const std::string& name, const UserFlags& flags);
    void SetUserDelegation(const std::string& domain, const std::string& name, const std::vector<std::string>& units);
    void RemoveUser(const std::string& domain, const std::string& name);
    // An empty `domain` means every domain, here and in the listings below.
    std::vector<UserInfo> ListUsers(const std::string& domain = "") const;
    std::optional<UserInfo> FindUser(const std::string& domain, const std::string& name) const;
    std::optional<UserInfo> FindUserByNumber(const std::string& domain, std::int64_t number) const;

    // Logs a user on to `domain` or to the domain that the user name carries, and returns the user. Throws 1355 (no
    // controller reachable), 1326 (unknown user, wrong password), 1909 (locked, whatever the password), and after the
    // right password 1331, 1793, 1330 or 1907.
    UserInfo Authenticate(const std::string& domain, const UserCredentials& credentials) const;

    // --- Organizational units ---

    // Adds the unit and those above it that are missing. Throws 267 (malformed), 183 (already there).
    OrganizationalUnitInfo AddOrganizationalUnit(const std::string& domain, const std::string& unit);
    // Throws 2 (not there), 145 (holds accounts or units). Delegations on it go with it.
    void RemoveOrganizationalUnit(const std::string& domain, const std::string& unit);
    std::vector<OrganizationalUnitInfo> ListOrganizationalUnits(const std::string& domain = "") const;

    // --- Computer accounts, as their administrator sees them ---

    // Creates the account ahead of its host, with a one-time secret; an empty `unit` means the default container. The
    // second form does it with a user's rights (5 when they do not suffice). Throws 1210 (malformed name), 1316
    // (taken), 2 (no such unit).
    PreStagedComputer PreStageComputer(const std::string& domain, const std::string& name,
                                       const std::string& unit = "");
    PreStagedComputer PreStageComputer(const std::string& domain, const std::string& name, const std::string& unit,
                                       const UserCredentials& credentials);
    // The two calls of an authentication proxy, which must be able to repeat an answer that was lost. `mark`, 32
    // lower-case hexadecimal digits of the caller's own, stays with the account for as long as its secret does: a join, a
    // reset or another hand-out takes it away. `Restage...` gives an account that still waits for its host a fresh
    // one-time secret, which then carries `mark`; it throws 1316 unless the present secret carries `expectedMark`. An
    // empty `expectedMark` takes any account that waits. Both throw 1355 (unknown domain, no controller reachable), 1210
    // and 87 (malformed mark); the first 1316 (taken) and 2 or 267 (unit), the second 1317 (unknown) and 1331 (disabled).
    PreStagedComputer StageMarkedComputer(const std::string& domain, const std::string& name, const std::string& unit,
                                          const std::string& mark);
    PreStagedComputer RestageMarkedComputer(const std::string& domain, const std::string& name,
                                            const std::string& expectedMark, const std::string& mark);
    // Gives the account a secret that nobody has: a joined host is out of step from now on. These four throw 1317 for
    // an unknown account.
    void ResetComputer(const std::string& domain, const std::string& name);
    void SetComputerEnabled(const std::string& domain, const std::string& name, bool enabled);
    void RemoveComputer(const std::string& domain, const std::string& name);
    ComputerInfo GetComputer(const std::string& domain, const std::string& name) const;
    std::vector<ComputerInfo> ListComputers(const std::string& domain = "") const;

    // --- Computer accounts, as a host uses them ---

    // Creates the account of `hostName`, or resets it where it stands if the user may write it there, and enables it.
    // Throws 1355 (unknown domain, no controller reachable), 1210, the codes of `Authenticate`, 2 or 267 (unit), 5 (no
    // right).
    JoinedComputer JoinComputer(const std::string& domain, const std::string& hostName, const std::string& unit,
                                const UserCredentials& credentials);
    // Takes over a pre-staged account and changes its secret. `accountName` may end in "$". Throws 1355, 1326 (unknown
    // account, wrong or used secret), 1331.
    JoinedComputer JoinPreStagedComputer(const std::string& domain, const std::string& accountName,
                                         std::string_view oneTimeSecret);
    // Deletes the account with a user's rights; null if there was none, or one that does not take this secret: another
    // host has joined with it since, or it was reset. Throws 1355, the codes of `Authenticate`, 5.
    std::shared_ptr<const ComputerBackup> DeleteComputer(const std::string& domain, const std::string& accountName,
                                                         const UserCredentials& credentials, std::string_view secret);
    // Takes back a join: the account is as it was before, or gone if the join created it. Does nothing if the account
    // has been changed since.
    void UndoJoin(const JoinedComputer& joined);
    // Takes back a deletion. Does nothing if the account exists again.
    void UndoDelete(const ComputerBackup& deleted);
    // How the domain takes the host's own log-on: kTrustStateHealthy, ...SecretMismatch, ...AccountDisabled,
    // ...AccountMissing or ...NoController.
    std::int32_t CheckComputer(const std::string& domain, const std::string& accountName,
                               std::string_view secret) const;

    // --- Trusts ---

    // Throws 1212 (malformed partner), 183 (already there), 87 (relationship given as one of the library's own).
    void AddTrust(const TrustInfo& trust);
    // `partner` is a DNS or NetBIOS name. Throws 1168.
    void RemoveTrust(const std::string& domain, const std::string& partner);
    std::vector<TrustInfo> ListTrusts(const std::string& domain = "") const;

    // --- Domain controllers ---

    // Throws 1210 (malformed name), 183 (already there), 87 (priority).
    void AddController(const ControllerInfo& controller);
    // These two throw 1168 for an unknown controller.
    void SetControllerReachable(const std::string& domain, const std::string& name, bool reachable);
    void RemoveController(const std::string& domain, const std::string& name);
    std::vector<ControllerInfo> ListControllers(const std::string& domain = "") const;

    // --- Rehearsals ---

    // Replaces what the operation rehearsed before. Throws 87: unknown operation, nothing asked for, status 0, a status
    // for a value operation or the other way round, delay too long, remaining 0.
    void SetRehearsal(const RehearsalInfo& rehearsal);
    // True if there was one. A call that is waiting in it goes on at once.
    bool ClearRehearsal(const std::string& operation);
    void ClearRehearsals();
    std::vector<RehearsalInfo> ListRehearsals() const;

    // A rehearsal that one call has taken. `ticket` tells `StillRehearsed` whether it has been cleared or replaced
    // since.
    struct TakenRehearsal {
        RehearsalInfo rehearsal;
        std::int64_t ticket = 0;
    };
    // Counts one call of the operation; unset when there is nothing to rehearse (any more).
    std::optional<TakenRehearsal> TakeRehearsal(std::string_view operation);
    bool StillRehearsed(std::int64_t ticket) const;

    // --- All of it ---

    // Taken in one transaction.
    DirectorySnapshot Export() const;

 private:
    class Impl;
    explicit Directory(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> _impl;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DIRECTORY_H_
