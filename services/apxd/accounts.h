// Handing out machine accounts: who gets which, and who is refused.
//
//   - An account that does not exist is created for the client that asks.
//   - A client whose answer was lost asks again, from the same address and with the same certificate, and gets a fresh
//     secret, as long as nobody has used the account's secret and the time for it has not run out.
//   - An account that the configuration names as pre-staged goes to the first client that asks for it, and only to that
//     one for as long as the configuration names it.
//   - Any other account that exists is refused with 1316, whoever asks. It is never reset.

#ifndef NIMBREL_APXD_ACCOUNTS_H_
#define NIMBREL_APXD_ACCOUNTS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "services/apxd/back_end.h"
#include "services/apxd/ledger.h"

namespace nimbrel::apxd {

struct Wish {
    std::string name;                // account name: "NODE01"
    std::string organizationalUnit;  // empty for the default place
    std::string client;              // what the same client shows each time, without blanks
};

// Threads: any. The back end and the ledger must outlive the object.
class Accounts {
 public:
    enum class Way { Created, Renewed, TakenOver };

    struct Result {
        HandOver account;
        Way way;
    };

    using Seconds = std::function<std::int64_t()>;

    // `now` gives the seconds since 1970.
    Accounts(BackEnd& backEnd, Ledger& ledger, std::set<std::string> preStaged, std::int64_t retrySeconds, Seconds now)
        : _backEnd(backEnd),
          _ledger(ledger),
          _preStaged(std::move(preStaged)),
          _retrySeconds(retrySeconds),
          _now(std::move(now)) {}

    // Throws `Refusal`, and what the ledger throws.
    Result HandOut(const Wish& wish);

 private:
    std::optional<Result> Renew(const Wish& wish);
    Result TakeOver(const Wish& wish);
    Result Create(const Wish& wish);
    void Note(const Wish& wish, const std::string& mark, bool takenOver);

    BackEnd& _backEnd;
    Ledger& _ledger;
    const std::set<std::string> _preStaged;
    const std::int64_t _retrySeconds;
    const Seconds _now;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_ACCOUNTS_H_
