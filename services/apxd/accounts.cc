#include "services/apxd/accounts.h"

#include <openssl/rand.h>

#include <array>

namespace nimbrel::apxd {
namespace {

std::string DrawMark() {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), bytes.size()) != 1) throw Refusal(kInternalError, "there are no random numbers");
    std::string mark;
    for (const unsigned char byte : bytes) {
        mark += "0123456789abcdef"[byte >> 4U];
        mark += "0123456789abcdef"[byte & 0xFU];
    }
    return mark;
}

}  // namespace

Accounts::Result Accounts::HandOut(const Wish& wish) {
    const Ledger::Turn turn(_ledger, wish.name);
    if (auto again = Renew(wish)) return std::move(*again);
    return _preStaged.contains(wish.name) ? TakeOver(wish) : Create(wish);
}

// Unset if the account was never created after all, or has been deleted since.
std::optional<Accounts::Result> Accounts::Renew(const Wish& wish) {
    const auto entry = _ledger.Find(wish.name, wish.client);
    if (!entry || (!entry->takenOver && _now() - entry->time > _retrySeconds)) return std::nullopt;
    try {
        return Result{_backEnd.Renew(wish.name, entry->mark), Way::Renewed};
    } catch (const Refusal& refusal) {
        // A pre-staged account may be noted and not yet taken over: then its mark is another, and what follows decides.
        if (refusal.Status() == kNoSuchAccount || (refusal.Status() == kAccountExists && entry->takenOver)) {
            return std::nullopt;
        }
        throw;
    }
}

Accounts::Result Accounts::TakeOver(const Wish& wish) {
    const std::string owner = _ledger.TakenOverBy(wish.name);
    if (!owner.empty() && owner != wish.client) {
        throw Refusal(kAccountExists, "the pre-staged account " + wish.name + " has been handed out already");
    }
    const std::string mark = DrawMark();
    _ledger.Note(wish.name, wish.client, {mark, _now(), true});
    try {
        return {_backEnd.TakeOver(wish.name, mark), Way::TakenOver};
    } catch (const Refusal& refusal) {
        // Nobody's yet: the administrator may still make or free the account for another host.
        const bool refused = refusal.Status() == kAccountExists || refusal.Status() == kNoSuchAccount;
        if (owner.empty() && refused) _ledger.Forget(wish.name, wish.client);
        throw;
    }
}

// The note comes first: from the moment the account exists, the mark that proves it our own is on the disk. A failure
// other than a refusal leaves it there, for the account may exist all the same.
Accounts::Result Accounts::Create(const Wish& wish) {
    const std::string mark = DrawMark();
    _ledger.Note(wish.name, wish.client, {mark, _now(), false});
    try {
        return {_backEnd.Create({wish.name, wish.organizationalUnit, mark}), Way::Created};
    } catch (const Refusal& refusal) {
        if (refusal.Status() == kAccountExists) _ledger.Forget(wish.name, wish.client);
        throw;
    }
}

}  // namespace nimbrel::apxd
