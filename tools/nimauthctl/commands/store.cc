// nimauthctl store: which authentication store the host uses.

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "authentication/configuration.h"
#include "authentication/store_factory.h"
#include "authentication/stores.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/questions.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kLabel[] = "active store";

authentication::AuthenticationStoreFactory& Factory() {
    return *authentication::Singleton<authentication::AuthenticationStoreFactory>::_instance;
}

std::string RecordedStore() {
    const authentication::AuthenticationConfiguration record;
    return record["remote-authentication-store"];
}

bool IsKnown(const std::string& name) {
    const std::vector<std::string> names = Factory().GetRegisteredStores();
    return std::find(names.begin(), names.end(), name) != names.end();
}

[[noreturn]] void RefuseUnknown(const std::string& name) {
    std::string known;
    for (const std::string& store : Factory().GetRegisteredStores())
        known += (known.empty() ? "'" : ", '") + store + "'";
    throw UsageError("there is no authentication store '" + name + "'", "use one of " + known);
}

ExitCode List(const Invocation&, Report& report) {
    const std::string recorded = RecordedStore();
    for (const std::string& name : Factory().GetRegisteredStores()) {
        report.AddRow("store", "stores", name).Flag("active", name == recorded);
    }
    return ExitCode::Ok;
}

ExitCode Show(const Invocation&, Report& report) {
    const std::string recorded = RecordedStore();
    report.TextOrNone(kLabel, recorded);
    if (!IsKnown(recorded)) report.Note("no authentication store has this name; 'nimauthctl store set' repairs it");
    return ExitCode::Ok;
}

// Activation writes the record first and then refreshes the directory's answers, which may take long. The process must
// not end before the record is written.
ExitCode Activate(const std::string& name, int timeoutSeconds, Report& report) {
    auto activation = InBackground([name] {
        Factory().CreateInstance(name)->MakeActive();
        return true;
    });
    bool ended = EndsWithin(activation, std::chrono::seconds(timeoutSeconds));
    while (!ended && RecordedStore() != name) ended = EndsWithin(activation, std::chrono::milliseconds(50));
    if (ended) Take<bool>(activation);
    report.Text(kLabel, RecordedStore());
    if (ended) return ExitCode::Ok;
    report.Note("the directory did not answer in time; the change itself is made");
    return ExitCode::Stale;
}

ExitCode Set(const Invocation& invocation, Report& report) {
    const std::string name = invocation.Text("NAME");
    if (!IsKnown(name)) RefuseUnknown(name);
    const std::string before = RecordedStore();
    try {
        return Activate(name, invocation.Global().timeoutSeconds, report);
    } catch (...) {
        const Failure failure = DescribeCurrentException();
        if (before == name || RecordedStore() != name) throw;
        // What fails after the record is written does not take it back.
        report.Text(kLabel, name);
        report.AddFailure(failure);
        return failure.exitCode;
    }
}

constexpr char kAbout[] =
    "The host takes its users from one authentication store besides its own accounts: 'None' (local accounts only) or "
    "'Active Directory'. The choice is recorded in /etc/nimbrel/nimauth/authentication.conf.";

}  // namespace

Command StoreListCommand() {
    return {.name = "store list",
            .summary = "list the authentication stores and which one is active",
            .description = kAbout,
            .examples = {{"nimauthctl store list", "which stores are there?"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

Command StoreShowCommand() {
    return {.name = "store show",
            .summary = "show the active authentication store",
            .description = kAbout,
            .examples = {{"nimauthctl store show", "where do users come from?"}},
            .exitCodes = {ExitCode::Permission},
            .run = Show};
}

Command StoreSetCommand() {
    return {
        .name = "store set",
        .summary = "make an authentication store the active one",
        .description = std::string(kAbout) +
                       "\n\nThe record is changed first; then the directory is asked for its present state. If that "
                       "fails or takes longer than --timeout, the record stays changed. No PAM or name-service file "
                       "is touched, and the host neither joins nor leaves.",
        .arguments = {{"NAME", "the store's name: 'None' or 'Active Directory'"}},
        .examples = {{"nimauthctl store set \"Active Directory\"", "take users from the directory"},
                     {"nimauthctl store set None", "back to local accounts only"}},
        .exitCodes = {ExitCode::Permission, ExitCode::Stale},
        .changes = true,
        .run = Set};
}

}  // namespace nimbrel::nimauthctl
