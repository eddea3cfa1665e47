#include "tools/nimauthctl/checks/shared_checks.h"

#include <netdb.h>
#include <unistd.h>

#include "authentication/configuration.h"
#include "authentication/provider.h"
#include "tools/nimauthctl/checks/name_checks.h"
#include "tools/nimauthctl/commands/ask_within.h"

namespace nimbrel::nimauthctl {

Finding CheckUserIsRoot(CheckSubject&) {
    if (geteuid() == 0) return Pass("root");
    return Fail("not root, so other findings may be wrong", "run it again as root, for example with sudo",
                ExitCode::Permission);
}

Finding CheckProviderSettings(CheckSubject& subject) {
    const authentication::ProviderConfiguration settings;
    subject.provider = settings["provider"];
    return Pass("the provider is '" + subject.provider + "'");
}

Finding CheckProvider(CheckSubject& subject) try {
    const authentication::ActiveDirectoryProvider provider(subject.provider);
    subject.pamModule = provider.PAMModule();
    subject.nssService = provider.NSSModule();
    return Pass("'" + subject.provider + "' loads: API version " + std::to_string(provider.GetAPIVersion()) +
                ", log-in modules " + subject.pamModule + " and " + subject.nssService);
} catch (const std::exception& error) {
    // Why it cannot be loaded says more than that it is invalid, as a join would put it.
    return Fail(error.what(), "install the provider, or name another one in /etc/nimbrel/nimauth/provider.conf");
}

Finding CheckHostNameResolves(CheckSubject& subject) {
    return Pass("'" + KernelHostName() + "' resolves to '" + ResolvedHostName(subject) + "'");
}

Finding CheckDomainResolves(CheckSubject& subject) {
    const auto resolves = AskWithinTraced(subject.invocation, "the domain's address", [domain = subject.domain] {
        addrinfo* found = nullptr;
        const int error = getaddrinfo(domain.c_str(), nullptr, nullptr, &found);
        if (error == 0) freeaddrinfo(found);
        return error == 0;
    });
    if (resolves.value_or(false)) return Pass("'" + subject.domain + "' resolves");
    return Warn("'" + subject.domain + "' does not resolve" + (resolves ? "" : " in time"),
                "check the host's DNS servers in /etc/resolv.conf; a real domain needs them");
}

Finding CheckController(CheckSubject& subject) {
    const StorePointer store = OpenStore(subject.invocation);
    const auto controller =
        AskWithinTraced(subject.invocation, "a domain controller",
                        [store, domain = subject.domain] { return store->GetDomainControllerForDomain(domain); });
    if (!controller) {
        return Fail("the provider does not find a controller in time",
                    "check the network to the domain, or try again with a longer --timeout", ExitCode::Network);
    }
    if (controller->empty()) return Warn("the provider cannot tell", "see 'nimauthctl status' once it is joined");
    return Pass("'" + *controller + "' answers");
}

}  // namespace nimbrel::nimauthctl
