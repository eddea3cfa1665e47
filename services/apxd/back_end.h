// The directory behind the service: what the service asks of it, whatever directory it is.
//
// A machine account is handed out with a mark, 32 lower-case hexadecimal digits that the service draws and notes before
// the account exists. The directory keeps the mark with the account until its secret is used or changed. So a service
// that was killed between creating an account and answering can tell its own unused account from everybody else's, and
// no other account is ever given a new secret.
//
// Threads: any calls at once.
// Errors: `Refusal` with the Windows system error number that the host is to see: 1355 the domain breaks off, 1210
// malformed name, 1316 the account exists or is in use, 1317 it does not exist, 2 or 267 the organizational unit is missing
// or malformed, 5 the service's own account has no right, 1331 the account is disabled, 1359 anything else; besides these,
// what the directory answers. After one of the kind `NothingChanged`, and of those `Unreachable`, nothing was changed. Nor
// was it after 2, 5, 267, 1210, 1316, 1317 and 1331, after 1326, 1398 and 1787, with which the service's own log-on is
// refused, and after 1325 and 8557, the directory's rules for secrets and for how many accounts. After any other it is open.
//
//     const HandOver account = backEnd.Create({"NODE01", "Hosts", mark});
//     Answer(account.accountName, account.oneTimeSecret.Text());     // "NODE01$", and its secret

#ifndef NIMBREL_APXD_BACK_END_H_
#define NIMBREL_APXD_BACK_END_H_

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "services/apxd/secret_text.h"

namespace nimbrel::apxd {

inline constexpr std::uint32_t kFileNotFound = 2;            // no such organizational unit
inline constexpr std::uint32_t kAccessDenied = 5;            //
inline constexpr std::uint32_t kNotSupported = 50;           // no such path or method
inline constexpr std::uint32_t kInvalidParameter = 87;       // malformed request
inline constexpr std::uint32_t kDiskFull = 112;              //
inline constexpr std::uint32_t kInvalidComputerName = 1210;  //
inline constexpr std::uint32_t kRetryLater = 1237;           // too many requests
inline constexpr std::uint32_t kAccountExists = 1316;        //
inline constexpr std::uint32_t kNoSuchAccount = 1317;        //
inline constexpr std::uint32_t kNoSuchDomain = 1355;         //
inline constexpr std::uint32_t kInternalError = 1359;        //

// A request that is not granted. The text is for the host's administrator and the log; it holds no secret.
class Refusal : public std::runtime_error {
 public:
    Refusal(std::uint32_t status, const std::string& message) : std::runtime_error(message), _status(status) {}

    // Never 0.
    std::uint32_t Status() const noexcept { return _status; }

 private:
    std::uint32_t _status;
};

// Nothing was changed, whatever the status: what failed came before the change, or the directory would not make it.
class NothingChanged : public Refusal {
 public:
    using Refusal::Refusal;
};

// 1355 where nobody could be asked.
class Unreachable : public NothingChanged {
 public:
    explicit Unreachable(const std::string& message) : NothingChanged(kNoSuchDomain, message) {}
};

struct DomainFacts {
    std::string netbiosName;  // "CORP"
    std::string dnsName;      // "corp.test"
    std::string sid;          // "S-1-5-21-1004336348-1177238915-682003330"
};

struct NewAccount {
    std::string name;                // "NODE01"
    std::string organizationalUnit;  // as the directory writes it; empty for its default place
    std::string mark;
};

// An account for a host to join with, once.
struct HandOver {
    std::string accountName;  // "NODE01$"
    SecretText oneTimeSecret;
};

class BackEnd {
 public:
    virtual ~BackEnd() = default;

    virtual DomainFacts Domain() = 0;

    // Throws `Unreachable` while it is known that the others would: what they need of the caller can be saved. Asks nobody.
    virtual void RequireReachable() = 0;

    // Creates the account; the directory itself decides between two that come at once. 1316 if it exists.
    virtual HandOver Create(const NewAccount& account) = 0;

    // Gives an account that carries `mark`, and whose secret nobody has used, a fresh secret; it keeps the mark. 1316 for
    // any other account, 1317 if there is none.
    virtual HandOver Renew(const std::string& name, const std::string& mark) = 0;

    // Hands out an account that an administrator has made ahead of its host and that no host uses; it carries `mark`
    // then. 1316 if it is in use, 1317 if there is none.
    virtual HandOver TakeOver(const std::string& name, const std::string& mark) = 0;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_BACK_END_H_
