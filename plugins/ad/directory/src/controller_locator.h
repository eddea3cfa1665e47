// Finds a domain controller that answers.
//
// Asked in this order, the ones that failed lately last: the controllers that the caller prefers; the one in use; those
// that the DNS names for the host's site; those that it names for the whole domain, by priority and weight. The first
// that answers the NetLogon ping over LDAP, without credentials, and serves the domain with LDAP and Kerberos is taken,
// its connection with it. One that says that it is paused comes last, and for a change read-only ones do not count.
//
// What was learnt (the controller in use, the host's site, who failed) is kept for the life of the process.
//
// Threads: any. Errors: `AdError` with 1355 when no controller answers in time or the DNS names none.

#ifndef NIMBREL_AD_CONTROLLER_LOCATOR_H_
#define NIMBREL_AD_CONTROLLER_LOCATOR_H_

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "addirectory/settings.h"
#include "deadline.h"
#include "ldap_connection.h"
#include "netlogon_reply.h"
#include "sockets.h"

namespace nimbrel::ad {

// What a controller tells about itself. Who asks without having logged in may be lied to.
struct Controller {
    std::string name;  // "dc1.corp.test"
    Endpoint endpoint;
    NetlogonReply facts;
    std::string domainDN;                 // "DC=corp,DC=test"
    std::string configurationDN;          // "CN=Configuration,DC=corp,DC=test"
    std::chrono::seconds clockOffset{0};  // the controller's clock minus this host's
    // The one name that a certificate must have to be the controller's, and that nobody on the network has named: the
    // preferred name under which it was found, where that is a full host name, else the domain's.
    std::string certifiedName = {};
};

struct LocatedController {
    Controller controller;
    std::unique_ptr<LdapConnection> connection;  // nobody is logged in on it
    std::string askedAs = {};                    // the name or address under which it was found
};

// For how long controllers that do not answer are asked again when no other does: they may be busy, as when hundreds of
// hosts start at once. One that refuses the connection is not.
enum class Patience {
    Query,  // the time of one answer: another query comes soon
    Change  // three times that, as whoever joins or leaves would have to begin anew; at one that takes changes
};

// `domain` is a DNS name in lower case. `preferred` are host names or addresses.
LocatedController LocateController(const Settings& settings, const std::string& domain,
                                   const std::vector<std::string>& preferred, const Deadline& deadline,
                                   Patience patience = Patience::Query);

// Asks the controller at the other end of the connection. Throws 1355 if it serves another domain or none.
Controller AskController(LdapConnection& connection, const Endpoint& endpoint, const std::string& domain);

// The controller answered the ping but failed at what came after: it is asked last for a while, under either name.
void AvoidController(const Settings& settings, const std::string& name);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_CONTROLLER_LOCATOR_H_
