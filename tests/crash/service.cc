// What the authentication-proxy service remembers, in an empty folder of the program's own.

#include <system_error>

#include "crash/files.h"
#include "crash/operation.h"
#include "pluginkit/status_error.h"
#include "services/apxd/ledger.h"

namespace nimbrel::crash {
namespace {

using apxd::Ledger;

constexpr char kFolder[] = "/srv";
constexpr char kLedger[] = "/srv/ledger";
constexpr char kClient[] = "192.0.2.10";

Operation OnTheLedger(const char* name, std::function<void()> prepare, std::function<void(Ledger&)> run) {
    Operation operation;
    operation.name = name;
    operation.folders = {kFolder};
    operation.prepare = std::move(prepare);
    operation.run = [run = std::move(run)] {
        Ledger ledger(kLedger);
        run(ledger);
    };
    // The service reads it when it starts, and only then.
    operation.read = [] {
        const Ledger ledger(kLedger);
        Parts parts;
        for (const char* const account : {"NODE01", "NODE02"}) {
            const auto entry = ledger.Find(account, kClient);
            parts[account] = entry ? entry->mark : "";
        }
        return parts;
    };
    operation.isDocumented = IsOneOf<std::system_error, std::runtime_error>;
    return operation;
}

void NoteFirst(Ledger& ledger) { ledger.Note("NODE01", kClient, {"0123456789abcdef0123456789abcdef", 1767225600}); }

}  // namespace

std::vector<Operation> Operations() {
    CoverFolder(kFolder);
    return {OnTheLedger(
                "ledger, first account", [] {}, NoteFirst),
            OnTheLedger(
                "ledger, account taken back",
                [] {
                    Ledger ledger(kLedger);
                    NoteFirst(ledger);
                },
                [](Ledger& ledger) { ledger.Forget("NODE01", kClient); }),
            OnTheLedger(
                "ledger, made shorter",
                [] {
                    Ledger ledger(kLedger);
                    NoteFirst(ledger);
                },
                [](Ledger& ledger) { ledger.Prune(2'000'000'000, {}); })};
}

}  // namespace nimbrel::crash
