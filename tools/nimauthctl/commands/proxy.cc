// nimauthctl proxy: the authentication proxy that a host joins through, and its certificate.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <system_error>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "pluginkit/whole_file.h"
#include "tools/nimauthctl/commands/ask_within.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/commands/membership.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/proxy_certificate.h"
#include "tools/nimauthctl/report.h"
#include "tools/nimauthctl/standard_streams.h"

namespace nimbrel::nimauthctl {
namespace {

using authentication::ActiveDirectoryConfigStore;

constexpr char kAbout[] =
    "An authentication proxy is a service that creates computer accounts in a domain, so that a host can join without "
    "ever holding a domain user's password. The host knows it by its IPv4 address and by its certificate, which is "
    "imported beforehand.";

// Unset if there is no answer in time.
std::optional<std::string> AskForDomain(const std::string& address, const Invocation& invocation) try {
    return AskWithinTraced(invocation, "the domain of the proxy " + address,
                           [store = OpenStore(invocation), address] { return store->GetDomainForAPXService(address); });
} catch (const CarriedFailure& error) {
    throw CarriedFailure(OfProxy(error.Described()));
}

ExitCode ShowDomain(const Invocation& invocation, Report& report) {
    const std::string address = invocation.Text("ADDRESS");
    const auto domain = AskForDomain(address, invocation);
    if (!domain) {
        throw ToolError(
            ExitCode::Network, "the proxy " + address + " does not answer in time", "",
            "check the address, the proxy service and the firewalls in between, or give a longer --timeout");
    }
    report.Text("domain", *domain);
    report.Text("proxy address", address);
    report.Note("the proxy's certificate is not verified for this question");
    return ExitCode::Ok;
}

void ShowCertificate(const ProxyCertificate& certificate, Report& report) {
    report.Text("subject", certificate.subject);
    report.Text("issuer", certificate.issuer);
    report.Text("valid from", certificate.validFrom);
    report.Text("valid until", certificate.validUntil);
    report.Text("thumbprint", certificate.thumbprint);
    if (!certificate.isValidNow) report.Note("the certificate is not valid now: a join that verifies it is refused");
}

[[noreturn]] void FailRead(const std::string& path, int error) {
    throw ToolError(error == EACCES ? ExitCode::Permission : ExitCode::Failure,
                    "unable to read '" + path + "': " + std::generic_category().message(error), "",
                    "give the path of the certificate's PEM file");
}

std::string ReadCertificateFile(const std::string& path) {
    std::optional<std::string> text = kit::ReadWholeFile(path);
    const int error = errno;
    if (!text) FailRead(path, error);
    return std::move(*text);
}

class Terminal {
 public:
    Terminal() : _descriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (_descriptor >= 0) return;
        throw UsageError("there is no terminal to ask whether the certificate is trusted",
                         "compare the thumbprint with the proxy's own, then give it with --yes THUMBPRINT");
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { close(_descriptor); }

    std::string Ask(const std::string& question) const {
        WriteAll(_descriptor, question);
        std::string answer;
        for (char c = 0; read(_descriptor, &c, 1) == 1 && c != '\n';) answer += c;
        return answer;
    }

 private:
    int _descriptor;
};

// What a connection presents proves nothing by itself; a person, or a script that was told, must know the thumbprint.
void RequireTrust(const ProxyCertificate& certificate, const Invocation& invocation) {
    if (invocation.Has("yes")) {
        if (SameThumbprint(invocation.Text("yes"), certificate.thumbprint)) return;
        throw ToolError(ExitCode::Failure, "the certificate's thumbprint is " + certificate.thumbprint,
                        "it is not the one given with --yes", "find out whose certificate it is");
    }
    if (!invocation.Has("fetch")) return;
    Report shown;
    ShowCertificate(certificate, shown);
    const std::string question = shown.AsText() + "Trust this certificate? Type yes: ";
    if (Terminal().Ask(question) == "yes") return;
    throw ToolError(ExitCode::Failure, "the certificate was not imported", "it was not confirmed with yes", "");
}

ProxyCertificate WantedCertificate(const Invocation& invocation) {
    if (invocation.Has("FILE") == invocation.Has("fetch")) {
        throw UsageError("give either FILE or --fetch ADDRESS", "see 'nimauthctl proxy cert import --help'");
    }
    if (invocation.Has("FILE")) return ReadProxyCertificate(ReadCertificateFile(invocation.Text("FILE")));
    return FetchProxyCertificate(invocation.Text("fetch"), invocation.Global().timeoutSeconds);
}

ExitCode Import(const Invocation& invocation, Report& report) {
    const ProxyCertificate certificate = WantedCertificate(invocation);
    RequireTrust(certificate, invocation);
    OpenStore(invocation)->ImportCertificateForAPX(certificate.pem);
    ShowCertificate(certificate, report);
    report.Flag("imported", true);
    return ExitCode::Ok;
}

ExitCode Show(const Invocation&, Report& report) {
    ActiveDirectoryConfigStore settings;
    std::string text;
    try {
        text = settings.GetCertificate();
    } catch (const authentication::ConfigurationError&) {
        report.None("thumbprint");
        report.Note("no proxy's certificate has been imported yet");
        return ExitCode::Ok;
    }
    ShowCertificate(ReadProxyCertificate(text), report);
    return ExitCode::Ok;
}

}  // namespace

Command ProxyDomainCommand() {
    return {.name = "proxy domain",
            .summary = "ask an authentication proxy which domain it serves",
            .description = std::string(kAbout) + "\n\nThe question is asked without verifying the certificate.",
            .arguments = {{"ADDRESS", "the proxy's IPv4 address"}},
            .examples = {{"nimauthctl proxy domain 192.0.2.7", "which domain would the host join?"}},
            .exitCodes = {ExitCode::OtherState, ExitCode::Permission, ExitCode::Authentication, ExitCode::Network},
            .run = ShowDomain};
}

Command ProxyCertImportCommand() {
    return {
        .name = "proxy cert import",
        .summary = "trust an authentication proxy's certificate",
        .description =
            std::string(kAbout) +
            "\n\nStores the certificate and its SHA-1 thumbprint for joins to come, and shows what was stored. With "
            "--fetch it is the one that the proxy presents now; then the thumbprint must be confirmed on the terminal, "
            "or known and given with --yes: compare it with what the proxy's administrator tells.",
        .arguments = {{"FILE", "the certificate, PEM", true}},
        .options = {{.flags = "--fetch", .value = "ADDRESS", .help = "take the certificate that the proxy presents"},
                    {.flags = "--yes",
                     .value = "THUMBPRINT",
                     .help = "ask nothing, and refuse a certificate with another thumbprint"}},
        .examples = {{"nimauthctl proxy cert import proxy.pem", "a file that the proxy's administrator gave"},
                     {"nimauthctl proxy cert import --fetch 192.0.2.7", "look at it, then trust it"}},
        .exitCodes = {ExitCode::Permission, ExitCode::Network},
        .changes = true,
        .run = Import};
}

Command ProxyCertShowCommand() {
    return {.name = "proxy cert show",
            .summary = "show the proxy certificate that the host trusts",
            .description = std::string(kAbout) + "\n\nShows what was imported last; none is no failure.",
            .examples = {{"nimauthctl proxy cert show", "which certificate, and until when?"}},
            .exitCodes = {ExitCode::Permission},
            .run = Show};
}

}  // namespace nimbrel::nimauthctl
