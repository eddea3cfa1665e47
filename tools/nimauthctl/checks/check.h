// The checks of `nimauthctl check`, each a function of its own in one of two tables. A check changes nothing.

#ifndef NIMAUTHCTL_CHECKS_CHECK_H_
#define NIMAUTHCTL_CHECKS_CHECK_H_

#include <span>
#include <string>
#include <string_view>

#include "tools/nimauthctl/checks/finding.h"
#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/commands/membership.h"

namespace nimbrel::nimauthctl {

// What the checks are about. One check fills in what later ones need.
struct CheckSubject {
    const Invocation& invocation;
    std::string domain = {};    // that the host would join, or is in; empty if it is not known
    std::string provider = {};  // its name in the settings
    std::string pamModule = {};
    std::string nssService = {};  // empty until the provider has been loaded
    std::string machineAccount = {};
    StorePointer store = {};
};

// What must be known before a check makes sense; `Sssd` is a domain and a provider whose log-ins are SSSD's.
enum class Needs { Nothing, Domain, Settings, Provider, DomainAndProvider, Sssd };

struct Check {
    std::string_view name;
    Needs needs;
    // Whatever it throws is a failed check, described as any other failure.
    Finding (*run)(CheckSubject& subject);
};

// Each in the order in which one thing depends on another, which is that of the output.
std::span<const Check> JoinChecks();    // can the host join?
std::span<const Check> JoinedChecks();  // what keeps users of the domain from logging in?

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_CHECK_H_
