// nimauthctl join

#include <memory>
#include <string>
#include <utility>

#include "authentication/directory_config_store.h"
#include "tools/nimauthctl/checks/name_checks.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/interruption.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/progress.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::ActiveDirectoryConfigStore;
using authentication::ActiveDirectoryStore;
using authentication::ActiveDirectoryStoreConfiguration;

constexpr char kTarget[] = "DOMAIN[/OU]";

struct Target {
    std::string domain;
    std::string organizationalUnit;
};

Target SplitTarget(const std::string& text) {
    const std::size_t slash = text.find('/');
    if (slash == 0 || text.empty()) throw UsageError("the domain's name is empty", "give its DNS name, as corp.test");
    if (slash == std::string::npos) return {text, ""};
    return {text.substr(0, slash), text.substr(slash + 1)};
}

// A provider that does not know its machine account yet gives an empty text.
void ShowMembership(const ActiveDirectoryStoreConfiguration& configuration, Report& report) {
    report.Text("domain", configuration.DomainDNSName());
    report.TextOrNone("domain NetBIOS name", configuration.DomainNetBIOSName());
    report.TextOrNone("machine account", configuration.MachineAccountDN());
}

// True if nothing needs to be done. A directory that does not answer in time is asked to join: it refuses a second
// membership itself.
bool IsJoinedAlready(const ActiveDirectoryStore& store, const Target& target, const Invocation& invocation,
                     Report& report) {
    const auto answer = AskConfiguration(store, invocation);
    const std::string& present = answer.value.DomainDNSName();
    if (answer.stale || present.empty()) return false;
    if (!SameName(present, target.domain) && !SameName(answer.value.DomainNetBIOSName(), target.domain)) {
        throw ToolError(ExitCode::OtherState, "the host is joined to " + present + " already",
                        "it can be in one domain only", "leave first with 'nimauthctl leave'");
    }
    report.Flag("joined", true);
    report.Flag("changed", false);
    ShowMembership(answer.value, report);
    return true;
}

// What the directory made of the join. The join itself is done: an answer that is missing does not undo it.
void ShowMachineAccount(const ActiveDirectoryStore& store, const Invocation& invocation, Report& report) {
    try {
        const auto answer = AskConfiguration(store, invocation);
        report.TextOrNone("machine account", answer.value.MachineAccountDN());
        if (answer.stale) report.MarkStale("machine account");
    } catch (...) {
        report.Unavailable("machine account", DescribeCurrentException());
    }
}

void ShowJoin(const Target& target, bool skipHostNameCheck, Report& report) {
    report.Flag("joined", true);
    report.Flag("changed", true);
    report.Text("domain", target.domain);
    report.TextOrNone("organizational unit", target.organizationalUnit);
    report.TextOrNone("host name", KernelHostName());
    report.Text("host name check", skipHostNameCheck ? "skipped" : "passed, hosts file made to fit");
}

// The library's own number of attempts, with its pauses in between.
constexpr int kAttempts = 4;

// All that the join needs. It is the work's own, which goes on after an interruption.
struct JoinWork {
    StorePointer store;
    std::shared_ptr<Progress> progress;
    std::shared_ptr<Password> password;
    std::string user;
    Target target;
    std::string whole;
    bool skipHostNameCheck;

    bool operator()();

 private:
    void TakeFirstSteps() const;
};

// The steps of `JoinDomain`, one by one, so that each can be told. An empty password is refused by it before anything
// is changed: no step is taken or told then.
bool JoinWork::operator()() {
    const std::shared_ptr<Password> held = std::move(password);  // wiped at the end of the call
    const PauseWatch watch(*progress);
    if (!held->View().empty()) TakeFirstSteps();
    store->JoinDomain(whole, Credentials{user.c_str(), held->Text()}, true);
    return true;
}

void JoinWork::TakeFirstSteps() const {
    const std::string domain = Printable(target.domain);
    if (!skipHostNameCheck) {
        progress->Step("host-name", "making the host's name fit " + domain);
        store->SanitiseHostnameForDomain(target.domain);
    }
    progress->Attempts("joining " + domain, kAttempts);
}

// Carries the work out, which owns what it uses: it goes on after an interruption.
template <typename Work>
void RunJoin(const StorePointer& store, Progress& progress, const Invocation& invocation, Work work) {
    try {
        RunLong(progress, std::move(work));
    } catch (const Interrupted& interruption) {
        TellInterruption(interruption, store, progress, invocation);
    }
}

void CallJoin(const StorePointer& store, const Target& target, const Invocation& invocation) {
    const auto progress = std::make_shared<Progress>(invocation.Global());
    JoinWork work = {store,
                     progress,
                     std::make_shared<Password>(),
                     invocation.Text("user"),
                     target,
                     invocation.Text(kTarget),
                     invocation.Has("skip-hostname-check")};
    ReadPassword(*work.password, work.user, invocation);
    invocation.Trace("joining " + work.whole);
    RunJoin(store, *progress, invocation, std::move(work));
}

// The library takes a join back whose settings could not be stored; any other failure is thrown on.
ExitCode ShowJoinTakenBack(const Failure& failure, Report& report) {
    if (failure.exception != "ConfigStoreException") throw CarriedFailure(failure);
    report.Flag("joined", false);
    report.Note("the host joined, but the domain settings could not be stored, so it has left again");
    report.AddFailure(failure);
    return failure.exitCode;
}

// ---------------------------------------------------------------- through an authentication proxy

void CheckProxyWords(const Invocation& invocation) {
    for (const char* const key : {kTarget, "user", "password-stdin", "password-fd"}) {
        if (!invocation.Has(key)) continue;
        throw UsageError("a join with --proxy takes neither a domain nor a user: the proxy knows them",
                         "leave them out, and give the organizational unit with --ou");
    }
}

bool IsJoinedThroughProxy(const ActiveDirectoryStore& store, const Invocation& invocation, Report& report) {
    const auto answer = AskConfiguration(store, invocation);
    if (answer.stale || answer.value.DomainDNSName().empty()) return false;
    const std::string present = ActiveDirectoryConfigStore().GetAuthProxyAddr();
    if (present != invocation.Text("proxy")) {
        throw ToolError(ExitCode::OtherState, "the host is joined to " + answer.value.DomainDNSName() + " already",
                        "it was not joined through this proxy", "leave first with 'nimauthctl leave'");
    }
    report.Flag("joined", true);
    report.Flag("changed", false);
    ShowMembership(answer.value, report);
    report.Text("proxy address", present);
    return true;
}

void CallProxyJoin(const StorePointer& store, const std::string& proxy, const Invocation& invocation) {
    const auto progress = std::make_shared<Progress>(invocation.Global());
    const bool skipHostNameCheck = invocation.Has("skip-hostname-check");
    invocation.Trace("joining through the proxy " + proxy);
    RunJoin(store, *progress, invocation, [store, progress, proxy, unit = invocation.Text("ou"), skipHostNameCheck] {
        const PauseWatch watch(*progress);
        progress->Attempts("joining through the proxy " + Printable(proxy), kAttempts);
        store->JoinDomainWithAPX(proxy, unit, skipHostNameCheck);
        return true;
    });
}

ExitCode JoinThroughProxy(const Invocation& invocation, Report& report) {
    CheckProxyWords(invocation);
    const std::string proxy = invocation.Text("proxy");
    const StorePointer store = OpenStore(invocation);
    if (invocation.Has("if-needed") && IsJoinedThroughProxy(*store, invocation, report)) return ExitCode::Ok;
    try {
        CallProxyJoin(store, proxy, invocation);
    } catch (const CarriedFailure& error) {
        return ShowJoinTakenBack(OfProxy(error.Described()), report);
    }
    const Target target = {ActiveDirectoryConfigStore().GetDomainName(), invocation.Text("ou")};
    ShowJoin(target, invocation.Has("skip-hostname-check"), report);
    report.Text("proxy address", proxy);
    ShowMachineAccount(*store, invocation, report);
    return ExitCode::Ok;
}

ExitCode Join(const Invocation& invocation, Report& report) {
    if (invocation.Has("proxy")) return JoinThroughProxy(invocation, report);
    if (invocation.Has("ou")) throw UsageError("--ou belongs to --proxy", "write DOMAIN/OU instead");
    const Target target = SplitTarget(invocation.Text(kTarget));
    const StorePointer store = OpenStore(invocation);
    if (invocation.Has("if-needed") && IsJoinedAlready(*store, target, invocation, report)) return ExitCode::Ok;
    try {
        CallJoin(store, target, invocation);
    } catch (const CarriedFailure& error) {
        return ShowJoinTakenBack(error.Described(), report);
    }
    ShowJoin(target, invocation.Has("skip-hostname-check"), report);
    ShowMachineAccount(*store, invocation, report);
    return ExitCode::Ok;
}

std::vector<Option> JoinOptions() {
    std::vector<Option> options = {
        {.flags = "-U,--user", .value = "USER", .help = "the user whose rights the join uses", .required = true},
        {.flags = "--proxy",
         .value = "ADDRESS",
         .help = "join through the authentication proxy at this IPv4 address, without a user"},
        {.flags = "--ou", .value = "OU", .help = "with --proxy: the organizational unit for the computer account"},
        {.flags = "--if-needed", .help = "do nothing, and succeed, if the host is in this domain already"},
        {.flags = "--skip-hostname-check",
         .help = "take the host's name as it is, and leave the hosts file and the DNS search list alone"}};
    for (Option& option : PasswordOptions()) options.push_back(std::move(option));
    return options;
}

}  // namespace

Command JoinCommand() {
    return {
        .name = "join",
        .summary = "join a directory domain",
        .description =
            "Joins the host to a domain: makes the host's name fit, has the directory create or take over the host's "
            "computer account, and stores the domain settings. If these cannot be stored the host leaves again.\n\n"
            "The password is asked for without echo unless --password-stdin or --password-fd says where to read it; "
            "it never comes from the command line or the environment. A log-on that the directory refuses is tried "
            "four times, 30 seconds apart, because a new account may not have reached every controller yet: a wrong "
            "password is reported after two minutes. A terminal shows each attempt and how long the pauses still "
            "last; Ctrl-C ends them and tells what state the host is in.\n\n"
            "With --proxy the host needs no user: an authentication proxy creates its computer account, and tells "
            "which domain that is in. Import the proxy's certificate first, with 'nimauthctl proxy cert import'.",
        .arguments = {{kTarget,
                       "the domain's DNS name and, behind a slash, the organizational unit for the computer "
                       "account, outermost first"}},
        .options = JoinOptions(),
        .examples = {{"nimauthctl join corp.test -U administrator", "join, computer account in the default container"},
                     {"nimauthctl join corp.test/Hosts/Lab -U alice@corp.test", "computer account in Hosts/Lab"},
                     {"nimauthctl join --proxy 192.0.2.7 --ou Hosts", "through a proxy, without a user's password"},
                     {"nimauthctl join corp.test -U joiner --if-needed --password-stdin <secret",
                      "from a script that may run again"}},
        .exitCodes = {ExitCode::OtherState, ExitCode::Permission, ExitCode::Authentication, ExitCode::HostName,
                      ExitCode::Network},
        .alternative = "proxy",
        .changes = true,
        .needsRoot = true,
        .run = Join};
}

}  // namespace nimbrel::nimauthctl
