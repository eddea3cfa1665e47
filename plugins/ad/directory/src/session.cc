#include "session.h"

#include <cstdlib>
#include <exception>
#include <set>
#include <utility>

#include "addirectory/ad_error.h"
#include "dns.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

constexpr std::size_t kMaximumKdcReply = 1U << 20;
constexpr std::size_t kMaximumCentres = 3;
constexpr std::chrono::seconds kMaximumSkew{300};
constexpr int kAttempts = 4;

void RequireClock(const Controller& controller) {
    if (std::chrono::abs(controller.clockOffset) > kMaximumSkew) {
        throw AdError(kStatusTimeSkew, "This host's clock and that of '" + controller.name + "' are " +
                                           std::to_string(controller.clockOffset.count()) + " seconds apart");
    }
}

// Who has been asked for a session, and what is to be reported if nobody gives one.
class OtherControllers {
 public:
    // A refusal stands if nobody else is found.
    template <class Find>
    LocatedController Locate(const Find& find) {
        if (!_refusal) {
            return find();
        }
        try {
            LocatedController located = find();
            if (!_asked.contains(located.controller.name)) {
                return located;
            }
        } catch (const AdError&) {  // the refusal says more
        }
        std::rethrow_exception(_refusal);
    }

    // Called while the error is handled. Throws what is to be reported if it is the last one, or no other controller
    // could do better.
    void RequireAnotherTry(const std::string& name, const AdError& error, bool isLast) {
        const bool isStale = dynamic_cast<const StaleRefusalError*>(&error);
        const bool isRefusal = isStale || error.Status() == kStatusTimeSkew;
        const bool isFinal = (!isRefusal && error.Status() != kStatusNoSuchDomain) || (isStale && _isStale);
        _asked.insert(name);
        _isStale = _isStale || isStale;
        if (isFinal) {
            throw;
        }
        if (isRefusal && !_refusal) {
            _refusal = std::current_exception();
        }
        if (isLast) {
            std::rethrow_exception(_refusal ? _refusal : std::current_exception());
        }
    }

 private:
    std::set<std::string> _asked;
    std::exception_ptr _refusal;
    bool _isStale = false;
};

}  // namespace

std::chrono::milliseconds StepLimit(const Settings& settings) { return 5 * settings.controllerBudget; }

KdcCarrier::KdcCarrier(const Settings& settings, std::string realm, const Endpoint& controller,
                       const Deadline& deadline)
    : _settings(settings), _deadline(deadline) {
    _centres.emplace(std::move(realm), controller.WithPort(settings.kerberosPort));
}

std::string KdcCarrier::Exchange(const std::string& realm, std::string_view request) {
    const auto known = _centres.find(UpperCase(realm));
    if (known == _centres.end()) {
        return ExchangeElsewhere(UpperCase(realm), request);
    }
    // A busy centre may hang up; the same request may be sent again.
    const Deadline limit = _deadline.OrAfter(StepLimit(_settings));
    for (int attempt = 1;; ++attempt) {
        try {
            return ExchangeFrames(known->second, request, 4, kMaximumKdcReply, limit);
        } catch (const NoAnswerError&) {
            if (attempt == kAttempts || limit.HasPassed()) {
                throw;
            }
            PauseBeforeRetry(attempt, limit);
        }
    }
}

std::string KdcCarrier::ExchangeElsewhere(const std::string& realm, std::string_view request) {
    const Resolver resolver(_settings);
    DnsAnswer answer = resolver.Services("_kerberos._tcp." + LowerCase(realm), _deadline);
    std::minstd_rand random(std::random_device{}());
    OrderServices(answer.services, random);
    if (answer.services.size() > kMaximumCentres) {
        answer.services.resize(kMaximumCentres);
    }
    for (const auto& service : answer.services) {
        try {
            const auto endpoints = resolver.Addresses(service.host, _deadline);
            if (endpoints.empty()) {
                continue;
            }
            const Endpoint centre = endpoints.front().WithPort(_settings.kerberosPort);
            std::string reply =
                ExchangeFrames(centre, request, 4, kMaximumKdcReply, _deadline.OrAfter(_settings.controllerBudget));
            _centres.emplace(realm, centre);
            return reply;
        } catch (const AdError&) {
            continue;  // the next one may do better
        }
    }
    throw AdError(kStatusNoSuchDomain, "No key distribution centre of the realm '" + realm + "' is reachable");
}

void AtSomeController(const Settings& settings, const std::string& domain, const std::vector<std::string>& preferred,
                      const Deadline& deadline, Patience patience,
                      const std::function<void(LocatedController located)>& work) {
    OtherControllers others;
    for (int attempt = 1;; ++attempt) {
        LocatedController located = others.Locate([&] {  //
            return LocateController(settings, domain, preferred, deadline, patience);
        });
        const std::string names[] = {located.controller.name, located.askedAs};
        located.connection->SetStepLimit(StepLimit(settings));
        try {
            work(std::move(located));
            return;
        } catch (const AdError& error) {
            others.RequireAnotherTry(names[0], error, attempt == kAttempts || deadline.HasPassed());
        }
        for (const auto& name : names) {
            AvoidController(settings, name);
        }
    }
}

Session::Session(const Settings& settings, const std::string& domain, const std::vector<std::string>& preferred,
                 const LogOn& logOn, const Deadline& deadline, Patience patience)
    : _realm(UpperCase(domain)) {
    AtSomeController(settings, domain, preferred, deadline, patience,
                     [&](LocatedController located) { Open(settings, std::move(located), logOn, deadline); });
}

Session::Session(const Settings& settings, const Controller& controller, const std::string& domain, const LogOn& logOn,
                 const Deadline& deadline)
    : _realm(UpperCase(domain)) {
    auto connection = std::make_unique<LdapConnection>(controller.endpoint.WithPort(settings.ldapPort), controller.name,
                                                       deadline.OrAfter(settings.controllerBudget));
    connection->SetDeadline(deadline);
    connection->SetStepLimit(StepLimit(settings));
    Open(settings, {controller, std::move(connection)}, logOn, deadline);
}

void Session::Open(const Settings& settings, LocatedController located, const LogOn& logOn, const Deadline& deadline) {
    RequireClock(located.controller);
    _connection.reset();
    _tickets.reset();
    _carrier = std::make_unique<KdcCarrier>(settings, _realm, located.controller.endpoint, deadline);
    _tickets = std::make_unique<Tickets>(
        _realm, [carrier = _carrier.get()](const std::string& realm, std::string_view request) {
            return carrier->Exchange(realm, request);
        });
    logOn(*_tickets, located.controller);
    located = LogIn(std::move(located));
    _controller = std::move(located.controller);
    _connection = std::move(located.connection);
}

LocatedController Session::LogIn(LocatedController located) {
    const Controller& said = located.controller;
    const std::string& domain = said.facts.domain;
    const std::string service = "ldap/" + said.name + "/" + domain + "@" + UpperCase(domain);
    located.connection->BindSealed(_tickets->Context(), _tickets->TicketFor(service));
    Controller proved = AskController(*located.connection, said.endpoint, domain);
    if (proved.name != said.name) {
        throw AdError(kStatusNoSuchDomain, "'" + said.name + "' calls itself '" + proved.name + "' after the log-in");
    }
    proved.certifiedName = said.certifiedName;
    return {std::move(proved), std::move(located.connection)};
}

LocatedController Session::ConnectTo(LocatedController other) { return LogIn(std::move(other)); }

void Session::SetDeadline(const Deadline& deadline) {
    _carrier->SetDeadline(deadline);
    _connection->SetDeadline(deadline);
}

}  // namespace nimbrel::ad
