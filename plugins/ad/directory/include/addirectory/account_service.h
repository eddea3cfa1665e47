// Machine accounts made for other hosts: what an authentication-proxy service does in the domain, with a keytab of its
// own account. The host then joins with the account's name and a secret that is good once.
//
// A mark, 32 lower-case hexadecimal digits that the caller draws, is kept with the account together with the key version
// of its secret (attribute adminDescription: "nimauth:<mark>:<key version>"). By it the caller tells its own unused
// account from everybody else's: as soon as a host has joined, the key version is another one. A call that fails half-way
// can be made again: an account that it has changed carries the mark of that call.
//
// Threads: any calls at once. Every call ends within `Settings::joinBudget`.
// Errors: `UnchangedError` with 1355 (a controller broke off or would not answer), 1398 (clock), 1326, 1331 or 1787 (the
// service's own log-on), 5 (no right), 2 or 267 (unit), 1316 and 1317 as told at each call, and the kind of it that is
// `UnreachableError`; `AdError` with 1210 for a malformed name, with 1355 where a change was not answered and may have been
// made, and with 1359 for whatever goes wrong once an account has been changed.
//
// A controller that fails after the log-on is asked last for a while, as one that fails before it. One that does not answer
// a change is not, nor one that fails a renewal's question: another one need not know of the account yet when the call is
// made again. Other calls may have it avoided all the same.
//
//     AccountService service(settings, {"corp.test", "apxd", "/etc/nimbrel/apxd.keytab"});
//     const HandedOutAccount account = service.Create("NODE01", "Hosts", mark);
//     Answer(account.accountName, account.oneTimeSecret.View());     // "NODE01$", and its secret

#ifndef NIMBREL_AD_ACCOUNT_SERVICE_H_
#define NIMBREL_AD_ACCOUNT_SERVICE_H_

#include <string>

#include "addirectory/ad_error.h"
#include "addirectory/settings.h"
#include "pluginkit/secret.h"

namespace nimbrel::ad {

// No account was changed: what failed came before the change, or the controller answered that it would not make it.
class UnchangedError : public AdError {
 public:
    using AdError::AdError;
};

// 1355 because no controller is found, or none lets the service log on: none has been asked for anything.
class UnreachableError : public UnchangedError {
 public:
    explicit UnreachableError(const std::string& message) : UnchangedError(kStatusNoSuchDomain, message) {}
};

// Who the service is in the domain.
struct ServiceAccount {
    std::string domain;  // "corp.test"
    std::string name;    // "apxd" or "APX01$"
    std::string keytab;  // a file that holds its key
};

struct ServiceDomain {
    std::string dnsName;      // "corp.test"
    std::string netbiosName;  // "CORP"
    std::string sid;          // "S-1-5-21-1004336348-1177238915-682003330"
};

struct HandedOutAccount {
    std::string accountName;  // "NODE01$"
    kit::Secret oneTimeSecret;
};

class AccountService {
 public:
    AccountService(Settings settings, ServiceAccount account)
        : _settings(std::move(settings)), _account(std::move(account)) {}

    // Throws 1610, with the keytab's path and the reason, if it cannot be read or holds no AES key of the service's account:
    // no other call could succeed. Asks no controller.
    void RequireKey() const;

    ServiceDomain Domain() const;

    // Makes the account; an empty `unit` means the default container. 1316 if it exists.
    HandedOutAccount Create(const std::string& name, const std::string& unit, const std::string& mark) const;
    // A fresh secret for an account that carries the mark and whose secret nobody has used. 1316 for any other account,
    // 1317 if there is none. A join at another controller that the one that is asked has not heard of yet is not seen.
    HandedOutAccount Renew(const std::string& name, const std::string& mark) const;
    // Hands out an account that an administrator has made ahead of its host and that no host has logged on with; it
    // carries the mark then. 1316 if it is in use, 1317 if there is none.
    HandedOutAccount TakeOver(const std::string& name, const std::string& mark) const;

 private:
    Settings _settings;
    ServiceAccount _account;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_ACCOUNT_SERVICE_H_
