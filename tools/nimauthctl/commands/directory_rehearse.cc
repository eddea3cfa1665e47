// nimauthctl directory rehearse

#include <limits>
#include <string>

#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/directory_common.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kOperation[] = "OPERATION";

std::string OperationNames() {
    std::string names;
    for (const std::string_view operation : embedded::kOperations)
        names += (names.empty() ? "" : ", ") + std::string(operation);
    return names;
}

void CheckOperation(const std::string& operation) {
    for (const std::string_view known : embedded::kOperations) {
        if (known == operation) return;
    }
    throw UsageError("there is no operation '" + operation + "' to rehearse", "use one of " + OperationNames());
}

bool DescribesRehearsal(const Invocation& invocation) {
    return invocation.Has("delay") || invocation.Has("status") || invocation.Has("value") || invocation.Has("count");
}

embedded::RehearsalInfo ReadRehearsal(const Invocation& invocation) {
    using Limits = std::numeric_limits<std::int32_t>;
    embedded::RehearsalInfo rehearsal;
    rehearsal.operation = invocation.Text(kOperation);
    if (invocation.Has("delay")) {
        rehearsal.delayMilliseconds =
            ParseMilliseconds("--delay", invocation.Text("delay"), embedded::kMaximumDelayMilliseconds);
    }
    if (invocation.Has("status")) rehearsal.status = ParseStatus("--status", invocation.Text("status"));
    if (invocation.Has("value")) {
        rehearsal.value =
            static_cast<std::int32_t>(ParseInteger("--value", invocation.Text("value"), Limits::min(), Limits::max()));
    }
    if (invocation.Has("count")) {
        rehearsal.remaining = static_cast<std::uint32_t>(
            ParseInteger("--count", invocation.Text("count"), 1, std::numeric_limits<std::uint32_t>::max()));
    }
    return rehearsal;
}

// The directory would refuse these too; here the command line is named.
void CheckRehearsal(const embedded::RehearsalInfo& rehearsal) {
    CheckOperation(rehearsal.operation);
    const bool answersWithValue = embedded::AnswersWithValue(rehearsal.operation);
    if (rehearsal.status && answersWithValue) {
        throw UsageError("'" + rehearsal.operation + "' answers with a value, not a status", "use --value N");
    }
    if (rehearsal.value && !answersWithValue) {
        throw UsageError("'" + rehearsal.operation + "' answers with a status, not a value", "use --status CODE");
    }
    if (rehearsal.delayMilliseconds == 0 && !rehearsal.status && !rehearsal.value) {
        throw UsageError("nothing to rehearse", "give --delay, --status or --value");
    }
}

void Clear(const Invocation& invocation) {
    if (DescribesRehearsal(invocation)) throw UsageError("--clear takes no other option of a rehearsal");
    if (!invocation.Has(kOperation)) return OpenDirectory().ClearRehearsals();
    CheckOperation(invocation.Text(kOperation));
    OpenDirectory().ClearRehearsal(invocation.Text(kOperation));
}

void Prepare(const Invocation& invocation) {
    if (!invocation.Has(kOperation)) throw UsageError("OPERATION is missing", "use one of " + OperationNames());
    const embedded::RehearsalInfo rehearsal = ReadRehearsal(invocation);
    CheckRehearsal(rehearsal);
    OpenDirectory().SetRehearsal(rehearsal);
}

ExitCode Rehearse(const Invocation& invocation, Report& report) {
    if (invocation.Has("clear")) {
        Clear(invocation);
    } else if (invocation.Has(kOperation) || DescribesRehearsal(invocation)) {
        Prepare(invocation);
    }
    report.List("rehearsal", "rehearsals");
    for (const auto& rehearsal : OpenDirectory().ListRehearsals()) AddRehearsalRow(rehearsal, report);
    return ExitCode::Ok;
}

}  // namespace

Command DirectoryRehearseCommand() {
    return {
        .name = "directory rehearse",
        .summary = "have the embedded directory answer late or with a failure",
        .description = Describe(
            "From the next call on, the provider's operation waits or fails as told, in every process of the host, "
            "until the given number of calls is used up or the rehearsal is cleared. So a hung controller, a clock "
            "skew or a broken trust can be met with the real library. Without arguments the present rehearsals are "
            "shown.\n\nOperations: " +
            OperationNames() + "."),
        .arguments = {{kOperation, "which operation of the provider; with --clear, all of them unless given", true}},
        .options = {{.flags = "--delay", .value = "TIME", .help = "wait before the answer: 1500 (ms), 10s, 5m"},
                    {.flags = "--status", .value = "CODE", .help = "answer with this status: 1398, 0x576"},
                    {.flags = "--value",
                     .value = "N",
                     .help = "answer with this number (get-domain-trust-state, get-domain-trust-relationship)"},
                    {.flags = "--count", .value = "N", .help = "for so many calls only"},
                    {.flags = "--clear", .help = "end the rehearsal; calls that wait in it go on at once"}},
        .examples = {{"nimauthctl directory rehearse get-trusted-domains --delay 60s", "a hung controller"},
                     {"nimauthctl directory rehearse join-domain --status 1398 --count 1", "clocks apart, once"},
                     {"nimauthctl directory rehearse --clear", "everything works again"}},
        .exitCodes = {ExitCode::Permission},
        .changes = true,
        .run = Rehearse};
}

}  // namespace nimbrel::nimauthctl
