// nimauthctl status

#include <unistd.h>

#include <chrono>
#include <string>
#include <system_error>
#include <thread>

#include "authentication/configuration.h"
#include "authentication/directory_config_store.h"
#include "orbconfigstore/config_store.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/trust_report.h"
#include "tools/nimauthctl/numbers.h"
#include "tools/nimauthctl/presentation.h"
#include "tools/nimauthctl/standard_streams.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::ActiveDirectoryConfigStore;

constexpr char kSmartCardServices[] = "smart-card services";

// One look at the host. Each answer stands for itself: one that cannot be had does not take the others along.
class Status {
 public:
    Status(const Invocation& invocation, AnswerLog& log, Report& report)
        : _invocation(invocation), _log(log), _report(report) {}

    ExitCode Show();

 private:
    template <typename Part>
    void Try(const std::string& label, Part part) {
        TryPart(label, _report, part);
    }

    void ShowActiveStore();
    void ShowProvider();
    void ShowDirectory();
    void ShowConfiguration();
    void ShowSmartCardServices();
    void ShowStoredSettings();
    void NoteContradiction();

    // Whether the host may be a member: it is, or nobody answered in time.
    bool MayBeJoined() const { return _configurationStale || !_domain.empty(); }

    const Invocation& _invocation;
    AnswerLog& _log;
    Report& _report;
    std::string _provider;
    StorePointer _store;
    bool _configurationKnown = false;
    bool _configurationStale = false;
    std::string _domain;
    std::string _storedDomain;
};

ExitCode Status::Show() {
    Try("active store", [this] { ShowActiveStore(); });
    Try("provider", [this] { ShowProvider(); });
    Try("directory", [this] { ShowDirectory(); });
    Try("stored domain", [this] { ShowStoredSettings(); });
    _log.Show(_report);
    NoteContradiction();
    return ResultOf(_report);
}

void Status::ShowActiveStore() {
    const authentication::AuthenticationConfiguration record;
    _report.TextOrNone("active store", record["remote-authentication-store"]);
}

void Status::ShowProvider() {
    const authentication::ProviderConfiguration settings;
    _provider = settings["provider"];
    _report.TextOrNone("provider", _provider);
}

void Status::ShowDirectory() {
    _store = OpenStore(_invocation);
    Try("joined", [this] { ShowConfiguration(); });
    TrustReport trusts(_store, _provider, _invocation, _log, _report);
    if (MayBeJoined()) Try("trusted domains", [&] { trusts.ShowTrustedDomains(_configurationKnown); });
    Try("trust state", [&] { trusts.ShowTrustState(); });
    if (!_domain.empty()) Try("own relationship", [&] { trusts.ShowOwnRelationship(_domain); });
    Try(kSmartCardServices, [this] { ShowSmartCardServices(); });
}

void Status::ShowConfiguration() {
    const auto answer = AskConfiguration(*_store, _invocation);
    _log.Note("membership", answer.stale);
    _configurationKnown = !answer.stale;
    _configurationStale = answer.stale;
    _domain = answer.value.DomainDNSName();
    if (answer.stale) {
        _report.None("joined");
    } else {
        _report.Flag("joined", !_domain.empty());
    }
    _report.TextOrNone("domain", _domain);
    _report.TextOrNone("domain NetBIOS name", answer.value.DomainNetBIOSName());
    _report.TextOrNone("machine account", answer.value.MachineAccountDN());
    _report.List("preferred controller", "preferred controllers");
    for (const std::string& controller : answer.value.PreferredDomainControllers()) {
        _report.AddRow("preferred controller", "preferred controllers", controller);
    }
    if (!answer.stale) return;
    for (const char* const label :
         {"joined", "domain", "domain NetBIOS name", "machine account", "preferred controllers"}) {
        _report.MarkStale(label);
    }
}

// The library asks this one without a time-out.
void Status::ShowSmartCardServices() {
    _invocation.Trace("asking for the smart-card services");
    const auto services = AskWithin(_invocation.Global().timeoutSeconds,
                                    [store = _store] { return store->GetSmartCardEnabledServices(); });
    _log.Note(kSmartCardServices, !services);
    _report.List("smart-card service", kSmartCardServices);
    if (!services) return _report.MarkStale(kSmartCardServices);
    for (const std::string& service : *services) _report.AddRow("smart-card service", kSmartCardServices, service);
}

void Status::ShowStoredSettings() {
    const auto store = OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace);
    const auto object = store->GetObject(ActiveDirectoryConfigStore::AD_CSO_ID);
    std::string unit;
    std::string proxy;
    if (object != nullptr) {
        object->GetValue(ActiveDirectoryConfigStore::DOMAIN_NAME_KEY, &_storedDomain);
        object->GetValue(ActiveDirectoryConfigStore::ORG_UNIT_KEY, &unit);
        object->GetValue(ActiveDirectoryConfigStore::AUTH_PROXY_ADDR_KEY, &proxy);
    }
    _report.TextOrNone("stored domain", _storedDomain);
    _report.TextOrNone("stored organizational unit", unit);
    _report.TextOrNone("proxy address", proxy);
}

void Status::NoteContradiction() {
    if (!_configurationKnown) return;
    if (_domain.empty() && !_storedDomain.empty()) {
        _report.Note("the stored settings name a domain, but the host is not joined; so a leave with -U leaves it");
    } else if (!_domain.empty() && _storedDomain.empty()) {
        _report.Note("the host is joined, but no domain settings are stored");
    }
}

constexpr char kClearScreen[] = "\x1b[H\x1b[2J";
constexpr int kUsualInterval = 5;

// Shows one look as soon as it is had. A terminal shows the latest one; a pipe gets them all, each followed by an empty
// line, or with --json one object after the other.
void ShowLook(const Report& look, const Settings& settings) {
    const bool isTerminal = !settings.json && isatty(STDOUT_FILENO) == 1;
    const std::string text = (isTerminal ? kClearScreen : "") + Present(look, settings) + (settings.json ? "" : "\n");
    const int error = WriteAll(STDOUT_FILENO, text);
    if (error != 0) {
        throw ToolError(ExitCode::Failure,
                        "unable to write to standard output: " + std::generic_category().message(error), "", "");
    }
    WriteError(PresentFailures(look, settings));
}

// Looks again and again; the last look is left to the caller. A value that a time-out made stale is the one of an earlier
// look then, and its age grows.
ExitCode Watch(const Invocation& invocation, AnswerLog& log, Report& report) {
    const auto interval = std::chrono::seconds(invocation.Has("interval")
                                                   ? ParseInteger("--interval", invocation.Text("interval"), 1, 86400)
                                                   : kUsualInterval);
    const std::int64_t count =
        invocation.Has("count") ? ParseInteger("--count", invocation.Text("count"), 1, 1'000'000'000) : 0;
    for (std::int64_t looks = 1; looks != count; ++looks) {
        Report look;
        log.BeginLook();
        Status(invocation, log, look).Show();
        ShowLook(look, invocation.Global());
        std::this_thread::sleep_for(interval);
    }
    log.BeginLook();
    return Status(invocation, log, report).Show();
}

ExitCode ShowStatus(const Invocation& invocation, Report& report) {
    AnswerLog log(invocation.Global());
    if (invocation.Has("watch")) return Watch(invocation, log, report);
    if (invocation.Has("interval") || invocation.Has("count")) {
        throw UsageError("--interval and --count are of no use without --watch", "add --watch");
    }
    return Status(invocation, log, report).Show();
}

}  // namespace

Command StatusCommand() {
    return {
        .name = "status",
        .summary = "show the host's membership and how well the domain trusts it",
        .description =
            "Shows the active store, the provider, the domain, the machine account, the preferred controllers, the "
            "trust state, the trusted domains with the relationship to each, the smart-card services, and the stored "
            "domain settings. A host that is not joined is no failure.\n\n"
            "The directory is given --timeout seconds for each answer. One that does not come in time is marked "
            "[stale], shown with the last known value (unknown, if there is none), and makes the exit status 6. An "
            "answer that fails is shown as unavailable, with the reason on standard error. The lines 'answer:' tell "
            "how old each answer is, and which setting's time-out struck.",
        .options = {{.flags = "-w,--watch", .help = "look again every few seconds, until Ctrl-C"},
                    {.flags = "--interval", .value = "SECONDS", .help = "how long between looks; 5 unless given"},
                    {.flags = "--count", .value = "N", .help = "look so many times only"}},
        .examples = {{"nimauthctl status", "how does this host stand?"},
                     {"nimauthctl status --watch --timeout 5", "stay and look; ages of stale answers grow"},
                     {"nimauthctl status --json --timeout 5", "for a monitor"}},
        .exitCodes = {ExitCode::Permission, ExitCode::Stale, ExitCode::Authentication, ExitCode::Network},
        .run = ShowStatus};
}

}  // namespace nimbrel::nimauthctl
