#include "controller_locator.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "addirectory/ad_error.h"
#include "dns.h"
#include "ldap_library.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumCandidates = 32;
constexpr std::size_t kMaximumAddresses = 3;  // two of one version beside one of the other

// --- What the process remembers ---

struct InUse {
    std::string name;
    Endpoint endpoint;
    std::string site;  // the host's; empty if unknown
};

struct Memory {
    std::mutex lock;                     // guards what follows; never held across a network step
    std::map<std::string, InUse> inUse;  // by domain
    std::map<std::string, Deadline::Clock::time_point> avoidUntil;  // by controller
};

// Never destroyed: a query may run while the process exits.
Memory& Remembered() {
    static auto* memory = new Memory;  // lives as long as the process
    return *memory;
}

std::optional<InUse> RecallInUse(const std::string& domain) {
    Memory& memory = Remembered();
    const std::lock_guard guard(memory.lock);
    const auto found = memory.inUse.find(domain);
    return found == memory.inUse.end() ? std::nullopt : std::optional(found->second);
}

void RememberInUse(const std::string& domain, const InUse& inUse, const std::string& askedAs) {
    Memory& memory = Remembered();
    const std::lock_guard guard(memory.lock);
    memory.inUse[domain] = inUse;
    memory.avoidUntil.erase(inUse.name);
    memory.avoidUntil.erase(askedAs);
}

bool IsAvoided(const std::string& name) {
    Memory& memory = Remembered();
    const std::lock_guard guard(memory.lock);
    const auto found = memory.avoidUntil.find(name);
    return found != memory.avoidUntil.end() && found->second > Deadline::Clock::now();
}

std::minstd_rand& Random() {
    thread_local std::minstd_rand random(std::random_device{}());
    return random;
}

// --- The ping ---

std::string PingFilter(const std::string& domain) {
    return "(&(DnsDomain=" + EscapeFilter(domain) + R"()(NtVer=\06\00\00\00)))";
}

// "20261121054300.0Z"; 0 if it is not such a time.
std::chrono::seconds ClockOffset(const std::string& currentTime) {
    std::tm time = {};
    const char* end = strptime(currentTime.c_str(), "%Y%m%d%H%M%S", &time);
    return std::chrono::seconds(end ? timegm(&time) - std::time(nullptr) : 0);
}

LocatedController Ping(const std::string& name, const Endpoint& endpoint, const std::string& domain,
                       const Deadline& deadline) {
    auto connection = std::make_unique<LdapConnection>(endpoint, "", deadline);
    Controller controller = AskController(*connection, endpoint.WithPort(0), domain);
    return {std::move(controller), std::move(connection), name};
}

// A name that an administrator gave for the very host: not an address, and not short.
bool IsFullHostName(const std::string& name) {
    return name.find('.') != std::string::npos && !Endpoint::FromText(name, 0);
}

// --- One search for a controller ---

class Search {
 public:
    Search(const Settings& settings, const std::string& domain, const Deadline& deadline, Patience patience)
        : _settings(settings),
          _domain(domain),
          _deadline(deadline),
          _mustBeWritable(patience == Patience::Change),
          _resolver(settings) {}

    // Tries what is preferred, then what the process and the DNS know; then the same again for those passed over.
    std::optional<LocatedController> Run(const std::vector<std::string>& preferred) {
        if (auto found = TryAll(preferred)) {
            return found;
        }
        const auto inUse = RecallInUse(_domain);
        if (inUse && !IsAvoided(inUse->name)) {
            _addresses.emplace(inUse->name, inUse->endpoint);
            if (auto found = TryAll({inUse->name})) {
                return found;
            }
        }
        const std::string site = !_settings.site.empty() ? _settings.site : inUse ? inUse->site : "";
        if (auto found = site.empty() ? std::nullopt : TryServices(site)) {
            return found;
        }
        auto found = TryServices("");
        return found ? Closer(std::move(*found)) : TryPassedOver();
    }

    const std::string& Fault() const { return _fault; }
    // One of those tried is there, or may be.
    bool MaySucceedLater() const { return _unanswered; }

 private:
    static std::string ServiceName(const std::string& site, const std::string& domain) {
        return "_ldap._tcp." + (site.empty() ? "" : site + "._sites.") + "dc._msdcs." + domain;
    }

    std::optional<LocatedController> TryServices(const std::string& site) {
        if (!_sitesAsked.insert(site).second) {
            return std::nullopt;
        }
        try {
            DnsAnswer answer = _resolver.Services(ServiceName(site, _domain), _deadline);
            _addresses.merge(answer.addresses);
            OrderServices(answer.services, Random());
            std::vector<std::string> names;
            for (const auto& service : answer.services) {
                names.push_back(service.host);
            }
            return TryAll(names);
        } catch (const AdError& error) {
            _fault = error.what();  // reported if nothing else is found
            return std::nullopt;
        }
    }

    std::optional<LocatedController> TryAll(const std::vector<std::string>& names) {
        for (const auto& name : names) {
            const bool isNew = _tried.size() < kMaximumCandidates && _tried.insert(name).second;
            if (isNew && IsAvoided(name)) {
                _passedOver.push_back(name);
            } else if (isNew) {
                if (auto found = Try(name, false)) {
                    return found;
                }
            }
        }
        return std::nullopt;
    }

    std::optional<LocatedController> TryPassedOver() {
        for (const auto& name : _passedOver) {
            if (auto found = Try(name, true)) {
                return found;
            }
        }
        return std::nullopt;
    }

    // The controllers of the host's own site, if the one found says that it is not among them.
    LocatedController Closer(LocatedController found) {
        const NetlogonReply& facts = found.controller.facts;
        if (facts.IsClosest() || facts.clientSite.empty() || !_settings.site.empty()) {
            return found;
        }
        auto closer = TryServices(facts.clientSite);
        return closer ? std::move(*closer) : std::move(found);
    }

    std::optional<LocatedController> Try(const std::string& name, bool isLastRound) {
        try {
            for (const auto& endpoint : AddressesOf(name)) {
                if (auto found = TryAddress(name, endpoint)) {
                    return Judged(std::move(*found), isLastRound);
                }
            }
        } catch (const AdError& error) {
            _fault = error.what();  // reported if nothing else is found
        }
        if (!_deadline.HasPassed()) {
            AvoidController(_settings, name);
        }
        return std::nullopt;
    }

    // Unset for one that cannot do what is to be done, and for one that had better be asked last.
    std::optional<LocatedController> Judged(LocatedController found, bool isLastRound) {
        const Controller& controller = found.controller;
        if (!controller.facts.ServesLdapAndKerberos()) {
            _fault = "'" + controller.name + "' does not serve both LDAP and Kerberos";
            return std::nullopt;
        }
        if (_mustBeWritable && !controller.facts.IsWritable()) {
            _fault = "'" + controller.name + "' is a read-only controller, and takes no changes";
            return std::nullopt;
        }
        // It may have been avoided under another name than this one.
        if (!isLastRound && (controller.facts.isPaused || IsAvoided(controller.name))) {
            _passedOver.push_back(found.askedAs);
            return std::nullopt;
        }
        return found;
    }

    std::optional<LocatedController> TryAddress(const std::string& name, const Endpoint& endpoint) {
        try {
            const Deadline deadline = _deadline.OrAfter(_settings.controllerBudget);
            return Ping(name, endpoint.WithPort(_settings.ldapPort), _domain, deadline);
        } catch (const AdError& error) {
            _fault = "'" + name + "': " + error.what();  // reported if nothing else is found
            _unanswered = _unanswered || IsNoAnswer(error);
            return std::nullopt;
        }
    }

    static bool IsNoAnswer(const AdError& error) {
        const auto* ldap = dynamic_cast<const LdapError*>(&error);
        return dynamic_cast<const NoAnswerError*>(&error) || (ldap && ldap->IsNoAnswer());
    }

    std::vector<Endpoint> AddressesOf(const std::string& name) {
        std::vector<Endpoint> endpoints;
        const auto [first, last] = _addresses.equal_range(name);
        std::transform(first, last, std::back_inserter(endpoints), [](const auto& one) { return one.second; });
        // A name server need not have sent all of them along.
        if (std::none_of(endpoints.begin(), endpoints.end(), HasRoute)) {
            endpoints = _resolver.Addresses(name, _deadline);
        }
        OrderAddresses(endpoints);
        if (endpoints.size() > kMaximumAddresses) {
            endpoints.erase(endpoints.begin() + kMaximumAddresses, endpoints.end());
        }
        return endpoints;
    }

    const Settings& _settings;
    const std::string& _domain;
    const Deadline& _deadline;
    const bool _mustBeWritable;
    Resolver _resolver;
    std::multimap<std::string, Endpoint> _addresses;
    std::set<std::string> _sitesAsked;
    std::set<std::string> _tried;
    std::vector<std::string> _passedOver;
    std::string _fault;
    bool _unanswered = false;
};

}  // namespace

Controller AskController(LdapConnection& connection, const Endpoint& endpoint, const std::string& domain) {
    const int ping = connection.Start({"", LdapScope::Base, PingFilter(domain), {"netlogon"}});
    const int root = connection.Start({"",
                                       LdapScope::Base,
                                       "(objectClass=*)",
                                       {"defaultNamingContext", "configurationNamingContext", "currentTime"}});
    const auto pong = connection.Finish(ping);
    const auto facts = pong.empty() ? std::nullopt : ParseNetlogonReply(pong.front().Text("netlogon"));
    const auto rootEntries = connection.Finish(root);
    if (!facts || !SameName(facts->domain, domain) || rootEntries.empty()) {
        throw AdError(kStatusNoSuchDomain, "'" + endpoint.Text() + "' is no controller of '" + domain + "'");
    }
    return {facts->controller,
            endpoint,
            *facts,
            rootEntries.front().Text("defaultnamingcontext"),
            rootEntries.front().Text("configurationnamingcontext"),
            ClockOffset(rootEntries.front().Text("currenttime"))};
}

LocatedController LocateController(const Settings& settings, const std::string& domain,
                                   const std::vector<std::string>& preferred, const Deadline& deadline,
                                   Patience patience) {
    AwaitLdapLibrary(deadline);
    const Deadline lastTry = deadline.OrAfter((patience == Patience::Change ? 3 : 1) * settings.controllerBudget);
    std::optional<LocatedController> found;
    for (int attempt = 1; !found; ++attempt) {
        Search search(settings, domain, deadline, patience);
        found = search.Run(preferred);
        if (!found && (!search.MaySucceedLater() || lastTry.HasPassed())) {
            throw AdError(kStatusNoSuchDomain, "No controller of the domain '" + domain + "' is reachable" +
                                                   (search.Fault().empty() ? "" : ": " + search.Fault()));
        }
        if (!found) {
            PauseBeforeRetry(attempt, lastTry);
        }
    }
    Controller& controller = found->controller;
    const bool isNamed = std::find(preferred.begin(), preferred.end(), found->askedAs) != preferred.end();
    controller.certifiedName = isNamed && IsFullHostName(found->askedAs) ? found->askedAs : domain;
    RememberInUse(domain, {controller.name, controller.endpoint, controller.facts.clientSite}, found->askedAs);
    found->connection->SetDeadline(deadline);
    return std::move(*found);
}

void AvoidController(const Settings& settings, const std::string& name) {
    Memory& memory = Remembered();
    const std::lock_guard guard(memory.lock);
    const auto now = Deadline::Clock::now();
    memory.avoidUntil[name] = now + settings.avoidance;
    std::erase_if(memory.avoidUntil, [&](const auto& one) { return one.second <= now; });
}

}  // namespace nimbrel::ad
