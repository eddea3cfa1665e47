#include "services/apxd/accounts.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <iterator>

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

// After these nothing has been made or changed. After any other the account may exist, or carry the new mark, all the same.
bool IsOutcomeKnown(const Refusal& refusal) {
    static constexpr std::uint32_t kKnown[] = {
        kFileNotFound, kAccessDenied, 267,  kInvalidComputerName, kAccountExists, kNoSuchAccount, 1326,
        1331,          1398,          1787,  // the service's own log-on
        1325,          8557,                 // the directory's rules for secrets, and for how many
    };
    return dynamic_cast<const NothingChanged*>(&refusal) != nullptr ||
           std::find(std::begin(kKnown), std::end(kKnown), refusal.Status()) != std::end(kKnown);
}

}  // namespace

// Nothing is noted for a directory that will not be asked.
void Accounts::Note(const Wish& wish, const std::string& mark, bool takenOver) {
    _backEnd.RequireReachable();
    const std::int64_t now = _now();
    _ledger.Note(wish.name, wish.client, {mark, now, takenOver}, now - _retrySeconds);
}

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
    Note(wish, mark, true);
    try {
        return {_backEnd.TakeOver(wish.name, mark), Way::TakenOver};
    } catch (const Refusal& refusal) {
        // Nobody's yet: the administrator may still make or free the account for another host.
        if (owner.empty() && IsOutcomeKnown(refusal)) _ledger.Forget(wish.name, wish.client);
        throw;
    }
}

// The note comes first: from the moment the account exists, the mark that proves it our own is on the disk. A failure that
// leaves the outcome open leaves it there.
Accounts::Result Accounts::Create(const Wish& wish) {
    const std::string mark = DrawMark();
    Note(wish, mark, false);
    try {
        return {_backEnd.Create({wish.name, wish.organizationalUnit, mark}), Way::Created};
    } catch (const Refusal& refusal) {
        if (IsOutcomeKnown(refusal)) _ledger.Forget(wish.name, wish.client);
        throw;
    }
}

}  // namespace nimbrel::apxd
