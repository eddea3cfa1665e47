// The machine account in the domain: made or reset for a join, put back when the join fails, taken away by a leave.
//
// Threads: as the connection given. Errors: `AdError` with 2 (no such unit), 5 (no right), 1316 (the name belongs to
// something that is no ordinary computer), 1325, 8557, and 1355 when the controller does not answer.

#ifndef NIMBREL_AD_COMPUTER_ACCOUNT_H_
#define NIMBREL_AD_COMPUTER_ACCOUNT_H_

#include <cstdint>
#include <optional>
#include <string>

#include "controller_locator.h"
#include "ldap_connection.h"
#include "pluginkit/secret.h"

namespace nimbrel::ad {

struct ComputerAccount {
    std::string distinguishedName;
    std::uint32_t keyVersion = 1;
    std::string sid;                  // "S-1-5-21-...-1105"; empty where the domain does not tell it
    std::optional<LdapEntry> before;  // the account as it was; unset if the join made it
    bool mayBeOthers = false;         // its creation got no answer: another object may bear the name
    bool hasFreshSecret = false;      // the former one, if any, is lost
    std::string note;                 // goes into a new account's adminDescription, if there is one
};

// What the domain says of itself to a host that is logged in.
struct DomainFacts {
    std::string dnsName;      // "corp.test"
    std::string netbiosName;  // "CORP"
    std::string sid;          // "S-1-5-21-..."
};

class ComputerAccounts {
 public:
    // `connection` is logged in at `controller`; both outlive the object.
    ComputerAccounts(LdapConnection& connection, const Controller& controller)
        : _connection(connection), _controller(controller) {}

    // Finds out where the account stands or would stand, and about the domain, before anything is changed. An empty
    // `unit` means the default container.
    struct Survey {
        DomainFacts domain;
        std::string container;
        std::optional<LdapEntry> existing;
    };
    Survey Look(const std::string& computer, const std::string& unit);

    // Makes the account, or resets the existing one where it stands, with the secret. `account` tells at every moment
    // what `Undo` has to take back, also when this throws.
    void Prepare(const Survey& survey, const std::string& computer, const kit::Secret& secret,
                 ComputerAccount& account);
    // Makes the account that the survey has not found, and no more: what the domain has given it, `Complete` asks.
    void Create(const Survey& survey, const std::string& computer, const kit::Secret& secret, ComputerAccount& account);
    // As the account's own owner: changes the secret from `old` to `fresh`.
    void ChangeSecret(const LdapEntry& account, const kit::Secret& old, const kit::Secret& fresh);
    // As the account's own owner: the host's names, where the domain lets it write them.
    void CompleteOwn(const std::string& computer, const LdapEntry& account);
    std::uint32_t KeyVersion(const std::string& distinguishedName);
    // What the domain has given the account: its key version and its SID.
    void Complete(ComputerAccount& account);
    // Deletes what the join made; gives a reset account its attributes back. Its former secret is lost. Only with proof
    // where the account may be another's.
    void Undo(const ComputerAccount& account);

    // The machine account of that name, if there is one.
    std::optional<LdapEntry> Find(const std::string& computer);
    // Deletes the account with what hangs below it, or disables it where any of that may not be deleted, and returns false.
    bool DeleteOrDisable(const LdapEntry& account);

 private:
    std::vector<LdapEntry> FinishContainer(int question);
    void Reset(const LdapEntry& existing, const std::string& computer, const kit::Secret& secret,
               ComputerAccount& account);
    void DeleteWithChildren(const std::string& distinguishedName);

    LdapConnection& _connection;
    const Controller& _controller;
};

// Throws 1316 for the account of anything but a host: a user, a domain controller of either kind, a trust, a managed
// service.
void RequireOrdinaryComputer(const LdapEntry& account);
bool IsDisabled(const LdapEntry& account);
// "S-1-5-21-...-1105" of an account that was found with `Look` or `Find`; empty where the domain does not tell it.
std::string AccountSid(const LdapEntry& account);

// Whether the controller has refused. Else it is not known what became of the request.
bool IsAnswered(const LdapError& error);

// The quoted UTF-16 form in which a domain takes a password. Throws 1326 for a text that is not UTF-8.
kit::Secret PasswordValue(std::string_view password);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_COMPUTER_ACCOUNT_H_
