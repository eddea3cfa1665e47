#include <algorithm>
#include <utility>

#include "directory_impl.h"

namespace nimbrel::embedded {
namespace {

constexpr char kColumns[] = "SELECT id, operation, delay_milliseconds, status, value, remaining FROM rehearsals ";

template <class Number>
std::optional<Number> Narrow(std::optional<std::int64_t> number) {
    return number ? std::optional(static_cast<Number>(*number)) : std::nullopt;
}

template <class Number>
std::optional<std::int64_t> Widen(std::optional<Number> number) {
    return number ? std::optional(std::int64_t{*number}) : std::nullopt;
}

RehearsalInfo ReadRow(const Statement& row) {
    return {row.Text(1), static_cast<std::uint32_t>(row.Number(2)), Narrow<std::uint32_t>(row.OptionalNumber(3)),
            Narrow<std::int32_t>(row.OptionalNumber(4)), Narrow<std::uint32_t>(row.OptionalNumber(5))};
}

std::size_t SlotOrder(const std::string& operation) {
    return static_cast<std::size_t>(std::find(kOperations.begin(), kOperations.end(), operation) - kOperations.begin());
}

void Require(bool condition, const char* message) {
    if (!condition) {
        throw DirectoryError(kStatusInvalidParameter, message);
    }
}

void Check(const RehearsalInfo& rehearsal) {
    Require(SlotOrder(rehearsal.operation) < kOperations.size(), "There is no such operation to rehearse");
    Require(rehearsal.delayMilliseconds <= kMaximumDelayMilliseconds, "A rehearsed delay is at most one day");
    Require(rehearsal.delayMilliseconds > 0 || rehearsal.status || rehearsal.value,
            "A rehearsal needs a delay, a status or a value");
    Require(rehearsal.status != kStatusSuccess,
            "Status 0 is success; leave the status out to let the call do its work");
    Require(!rehearsal.remaining || *rehearsal.remaining > 0, "A rehearsal is for one call at least");
    if (AnswersWithValue(rehearsal.operation)) {
        Require(!rehearsal.status, "This operation answers with a value, not a status");
    } else {
        Require(!rehearsal.value, "This operation answers with a status, not a value");
    }
}

}  // namespace

bool AnswersWithValue(std::string_view operation) {
    return operation == "get-domain-trust-state" || operation == "get-domain-trust-relationship";
}

std::vector<RehearsalInfo> ReadRehearsals(const Database& db) {
    std::vector<RehearsalInfo> rehearsals;
    auto rows = db.Prepare(kColumns);
    while (rows.Step()) {
        rehearsals.push_back(ReadRow(rows));
    }
    std::sort(rehearsals.begin(), rehearsals.end(), [](const auto& left, const auto& right) {
        return SlotOrder(left.operation) < SlotOrder(right.operation);
    });
    return rehearsals;
}

void Directory::SetRehearsal(const RehearsalInfo& rehearsal) {
    Check(rehearsal);
    Turn turn = _impl->Write();
    // A row of its own, with a new id: calls that wait in the old rehearsal see that it is gone.
    turn.Db().Prepare("DELETE FROM rehearsals WHERE operation = ?").Bind(rehearsal.operation).Run();
    turn.Db()
        .Prepare(
            "INSERT INTO rehearsals (operation, delay_milliseconds, status, value, remaining) "
            "VALUES (?, ?, ?, ?, ?)")
        .Bind(rehearsal.operation)
        .Bind(std::int64_t{rehearsal.delayMilliseconds})
        .Bind(Widen(rehearsal.status))
        .Bind(Widen(rehearsal.value))
        .Bind(Widen(rehearsal.remaining))
        .Run();
    turn.Commit();
}

bool Directory::ClearRehearsal(const std::string& operation) {
    Require(SlotOrder(operation) < kOperations.size(), "There is no such operation to rehearse");
    Turn turn = _impl->Write();
    turn.Db().Prepare("DELETE FROM rehearsals WHERE operation = ?").Bind(operation).Run();
    const bool cleared = turn.Db().Changes() > 0;
    turn.Commit();
    return cleared;
}

void Directory::ClearRehearsals() {
    Turn turn = _impl->Write();
    turn.Db().Prepare("DELETE FROM rehearsals").Run();
    turn.Commit();
}

std::vector<RehearsalInfo> Directory::ListRehearsals() const { return ReadRehearsals(_impl->Read().Db()); }

std::optional<Directory::TakenRehearsal> Directory::TakeRehearsal(std::string_view operation) {
    const auto find = [&](const Database& db) -> std::optional<TakenRehearsal> {
        auto rows = db.Prepare(std::string(kColumns) + "WHERE operation = ?");
        rows.Bind(operation);
        return rows.Step() ? std::optional(TakenRehearsal{ReadRow(rows), rows.Number(0)}) : std::nullopt;
    };
    auto taken = find(_impl->Read().Db());
    if (!taken || !taken->rehearsal.remaining) {
        return taken;
    }
    Turn turn = _impl->Write();
    taken = find(turn.Db());
    if (taken && taken->rehearsal.remaining == 0U) {
        return std::nullopt;
    }
    turn.Db()
        .Prepare("UPDATE rehearsals SET remaining = remaining - 1 WHERE operation = ? AND remaining > 0")
        .Bind(operation)
        .Run();
    turn.Commit();
    return taken;
}

bool Directory::StillRehearsed(std::int64_t ticket) const {
    const Turn turn = _impl->Read();
    return turn.Db().Prepare("SELECT 1 FROM rehearsals WHERE id = ?").Bind(ticket).Step();
}

}  // namespace nimbrel::embedded
