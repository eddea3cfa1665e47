// nimauthctl explain: what a failure means, before or after it happens.

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "authentication/exceptions.h"
#include "tools/nimauthctl/catalogue.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr char kWhat[] = "CODE|NAME";
constexpr char kUnknownException[] = "UnknownException";

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

// The library's own text for a status.
std::string LibraryText(std::uint32_t status) {
    try {
        authentication::ThrowMappedException(status);
    } catch (const authentication::Exception& error) {
        return error.what();
    }
}

std::string Hexadecimal(std::uint32_t status) {
    std::array<char, 16> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "0x%08x", status));
    return text.data();
}

std::string NextLook(ExitCode code) {
    switch (code) {
        case ExitCode::Network:
            return "'nimauthctl check DOMAIN', and 'nimauthctl dc any DOMAIN'";
        case ExitCode::HostName:
            return "'nimauthctl check DOMAIN', and 'getent hosts \"$(hostname)\"'";
        case ExitCode::OtherState:
        case ExitCode::NotJoined:
        case ExitCode::Stale:
            return "'nimauthctl status'";
        default:
            return "'nimauthctl status', 'nimauthctl config show', and the system log";
    }
}

struct Explanation {
    std::string message;
    std::string exception;
    std::string cause;
    std::string remedy;
    ExitCode exitCode = ExitCode::Failure;
    bool hasCode = false;
    std::uint32_t code = 0;
};

Explanation Of(const StatusEntry& entry) {
    return {LibraryText(entry.status),
            std::string(entry.exception),
            std::string(entry.cause),
            std::string(entry.remedy),
            entry.exitCode,
            true,
            entry.status};
}

Explanation Of(const ClassEntry& entry) {
    return {"", std::string(entry.exception), std::string(entry.cause), std::string(entry.remedy), entry.exitCode};
}

// A status that nobody has written about is still told apart: its number, and how the library reports it.
Explanation OfStatus(std::uint32_t status) {
    if (const StatusEntry* const entry = FindStatus(status)) return Of(*entry);
    return {.message = LibraryText(status),
            .exception = "UnknownException",
            .cause = "a status of the directory provider that is not explained here",
            .remedy = "look the number up in the provider's documentation, and see its messages in the system log",
            .hasCode = true,
            .code = status};
}

// True for "1326" and "0x52e", whose value is stored.
bool ReadCode(const std::string& text, std::uint64_t* code) {
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string digits = isHexadecimal ? text.substr(2) : text;
    const char* const allowed = isHexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) return false;
    if (digits.size() > 10) throw UsageError(std::string(kWhat) + ": a status code has at most 32 bits");
    *code = std::stoull(digits, nullptr, isHexadecimal ? 16 : 10);
    if (*code > 0xffffffff) throw UsageError(std::string(kWhat) + ": a status code has at most 32 bits");
    return true;
}

// "Exception 0x0000052e: The attempted logon is invalid. ..." names its code itself.
bool ReadCodeOfMessage(const std::string& text, std::uint64_t* code) {
    constexpr std::string_view kPrefix = "exception 0x";
    const std::string lower = Lower(text);
    if (!lower.starts_with(kPrefix)) return false;
    const std::size_t end = lower.find_first_not_of("0123456789abcdef", kPrefix.size());
    return ReadCode("0x" + lower.substr(kPrefix.size(), end - kPrefix.size()), code);
}

constexpr ClassEntry kUnknownStatus = {
    kUnknownException, ExitCode::Failure,
    "the provider answered with a status for which the library has no class of its own",
    "explain its number, which stands behind 'Exception 0x' in the message: 'nimauthctl explain 0x216d'"};

// Whether a status's text or explanation speaks of it. Fewer letters say too little.
bool Mentions(const StatusEntry& entry, const std::string& wanted) {
    const auto holds = [&](std::string_view text) { return Lower(text).find(wanted) != std::string::npos; };
    return wanted.size() >= 4 && (holds(LibraryText(entry.status)) || holds(entry.cause));
}

// By the class's name, or else by words.
std::vector<Explanation> ExplainName(const std::string& text) {
    const std::string wanted = Lower(text);
    if (wanted == Lower(kUnknownException)) return {Of(kUnknownStatus)};
    std::vector<Explanation> found;
    for (const StatusEntry& entry : StatusEntries()) {
        // Status 0 is reported as status 2.
        if (entry.status != 0 && Lower(entry.exception) == wanted) found.push_back(Of(entry));
    }
    for (const ClassEntry& entry : ClassEntries()) {
        if (entry.text.empty() && Lower(entry.exception) == wanted) found.push_back(Of(entry));
    }
    if (!found.empty()) return found;
    for (const StatusEntry& entry : StatusEntries()) {
        if (Mentions(entry, wanted)) found.push_back(Of(entry));
    }
    return found;
}

void ShowOne(const Explanation& explanation, Report& report) {
    report.TextOrNone("message", explanation.message);
    if (explanation.hasCode) {
        report.Number("code", explanation.code);
        report.Text("hexadecimal", Hexadecimal(explanation.code));
    } else {
        report.None("code");
        report.None("hexadecimal");
    }
    report.Text("exception", explanation.exception);
    report.Text("cause", explanation.cause);
    report.Text("remedy", explanation.remedy);
    report.Text("next", NextLook(explanation.exitCode));
    report.Coded("exit status", static_cast<int>(explanation.exitCode), Meaning(explanation.exitCode));
}

void ShowMatches(const std::vector<Explanation>& matches, Report& report) {
    for (const Explanation& match : matches) {
        report.AddRow("match", "matches", Hexadecimal(match.code))
            .Number("code", match.code)
            .Text("exception", match.exception)
            .Text("message", match.message)
            .Text("cause", match.cause);
    }
    report.Note("several statuses match; 'nimauthctl explain CODE' tells all about one");
}

std::vector<Explanation> Find(const std::string& what) {
    std::uint64_t code = 0;
    if (ReadCode(what, &code) || ReadCodeOfMessage(what, &code)) return {OfStatus(static_cast<std::uint32_t>(code))};
    return ExplainName(what);
}

ExitCode Explain(const Invocation& invocation, Report& report) {
    const std::string what = invocation.Text(kWhat);
    if (what.empty()) throw UsageError(std::string(kWhat) + " is empty", "give a status code or an exception's name");
    const std::vector<Explanation> found = Find(what);
    if (found.empty()) {
        throw ToolError(ExitCode::Failure, "there is no explanation of '" + what + "'",
                        "it is neither a status code nor the name of an exception, and no text speaks of it",
                        "give the number behind 'Exception 0x', or the exception's name as --json shows it");
    }
    if (found.size() == 1) {
        ShowOne(found.front(), report);
    } else {
        ShowMatches(found, report);
    }
    return ExitCode::Ok;
}

}  // namespace

Command ExplainCommand() {
    return {
        .name = "explain",
        .summary = "explain a status code or an exception: cause, remedy, where to look next",
        .description =
            "Tells what a failure means: the library's text for it, its cause, the remedy, what to look at next, and "
            "the exit status that a command ends with. Nothing of the host is read.\n\n"
            "What is asked for is a status code (decimal or hexadecimal), the name of an exception, a whole message "
            "that begins with 'Exception 0x', or a few words of a status's text or cause. Words that fit several are "
            "answered with a list.",
        .arguments = {{kWhat, "1326, 0x52e, LogonFailureException, or words such as 'trust secret'"}},
        .examples = {{"nimauthctl explain 1326", "what does status 1326 mean?"},
                     {"nimauthctl explain 0x0000216d", "the number behind 'Exception 0x' in a log"},
                     {"nimauthctl explain InvalidHostNameException", "an exception of the library"},
                     {"nimauthctl explain 'logon server'", "whatever speaks of log-on servers"}},
        .run = Explain};
}

}  // namespace nimbrel::nimauthctl
