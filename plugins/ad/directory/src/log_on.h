// Who logs on: a user whose credentials an administrator gave, or the machine account with this host's keytab.

#ifndef NIMBREL_AD_LOG_ON_H_
#define NIMBREL_AD_LOG_ON_H_

#include <string>

#include "addirectory/host.h"
#include "addirectory/settings.h"
#include "deadline.h"
#include "kerberos.h"
#include "session.h"

namespace nimbrel::ad {

// The Kerberos name of a user as typed, for a log-on at a domain. Throws 1326 for a name that no domain can know.
Principal PrincipalOf(const std::string& userName, const std::string& domain, const std::string& netbiosName);

// A user's log-on. A refusal is told apart as far as the controller tells: 1331, 1793, 1909, 1330 or 1907; for that the
// password goes over TLS to who proves to be `Controller::certifiedName`.
Session::LogOn UserLogOn(const Settings& settings, const UserCredentials& credentials, const Deadline& deadline);
// The machine account's, with a keytab as libkrb5 names it. An unknown account is 1787. That and a wrong key are a
// `StaleRefusalError`.
Session::LogOn MachineLogOn(const std::string& computer, const std::string& keytab);

// Logs on at that controller, and forgets the ticket.
void TryLogOn(const Settings& settings, const Controller& controller, const Session::LogOn& logOn,
              const Deadline& deadline);

// The Windows status in a controller's diagnostic text ("80090308: LdapErr: ..., data 533, v1db1"), or 0.
std::uint32_t StatusOfDiagnostic(std::string_view diagnostic);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_LOG_ON_H_
