// A log-in at a controller: the tickets of one account and a sealed connection that it is logged in on.
//
// The ticket is for "ldap/dc1.corp.test/corp.test": a service of three parts is a controller's, while any member of the
// domain has "ldap/node01.corp.test" for itself. A controller whose account lacks that name is not used. What it told
// about itself before the connection was sealed is asked for once more.
//
// Opening one tries again, another controller first, when one that answered the ping fails after it, has another time
// than this host, or does not know the account as this host does; nothing has been changed in the domain until then.
// When none answers the ping it fails at once.
//
// One object belongs to one thread. Errors: `AdError` with the status of the refusal; 1398 when this host's clock and
// those of all controllers that answer are more than five minutes apart; 1355 when no controller answers.

#ifndef NIMBREL_AD_SESSION_H_
#define NIMBREL_AD_SESSION_H_

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "addirectory/settings.h"
#include "controller_locator.h"
#include "deadline.h"
#include "kerberos.h"
#include "ldap_connection.h"

namespace nimbrel::ad {

// Carries Kerberos requests to the key distribution centres: the own realm's is the controller, others are looked up.
class KdcCarrier {
 public:
    KdcCarrier(const Settings& settings, std::string realm, const Endpoint& controller, const Deadline& deadline);

    std::string Exchange(const std::string& realm, std::string_view request);
    void SetDeadline(const Deadline& deadline) { _deadline = deadline; }

 private:
    std::string ExchangeElsewhere(const std::string& realm, std::string_view request);

    const Settings _settings;
    std::map<std::string, Endpoint> _centres;  // by realm in upper case
    Deadline _deadline;
};

// A log-on is refused, but another controller may know better: it takes time until each has heard of an account or of a
// new secret. One other is asked.
class StaleRefusalError : public AdError {
 public:
    using AdError::AdError;
};

// Does the work at a controller of the domain, and at another one when it throws what that one might do better: a
// failure after the first answer, another time than this host's, a `StaleRefusalError`. Who has failed is asked last
// for a while. Work that may be done twice only.
void AtSomeController(const Settings& settings, const std::string& domain, const std::vector<std::string>& preferred,
                      const Deadline& deadline, Patience patience,
                      const std::function<void(LocatedController located)>& work);

class Session {
 public:
    // Gets the first ticket, with a password or a keytab.
    using LogOn = std::function<void(Tickets&, const Controller&)>;

    Session(const Settings& settings, const std::string& domain, const std::vector<std::string>& preferred,
            const LogOn& logOn, const Deadline& deadline, Patience patience = Patience::Query);
    // At that controller alone, in one attempt.
    Session(const Settings& settings, const Controller& controller, const std::string& domain, const LogOn& logOn,
            const Deadline& deadline);
    // The same account at a controller of another domain, with a ticket across the trust.
    LocatedController ConnectTo(LocatedController other);

    const Controller& At() const { return _controller; }
    LdapConnection& Ldap() { return *_connection; }
    void SetDeadline(const Deadline& deadline);

 private:
    void Open(const Settings& settings, LocatedController located, const LogOn& logOn, const Deadline& deadline);
    LocatedController LogIn(LocatedController located);

    std::string _realm;
    Controller _controller;
    std::unique_ptr<KdcCarrier> _carrier;
    std::unique_ptr<Tickets> _tickets;
    std::unique_ptr<LdapConnection> _connection;  // last, so that it goes first: it stands on the tickets' context
};

// How long one step at a controller that has answered the ping may take: longer than the ping, as the controller is there
// and may be busy.
std::chrono::milliseconds StepLimit(const Settings& settings);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_SESSION_H_
