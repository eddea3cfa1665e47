#include "log_on.h"

#include <algorithm>
#include <charconv>

#include "addirectory/ad_error.h"
#include "names.h"

namespace nimbrel::ad {
namespace {

bool MayBeToldApart(const KerberosError& error) {
    return error.Code() == KRB5KDC_ERR_CLIENT_REVOKED || error.Code() == KRB5KDC_ERR_KEY_EXP;
}

bool IsLogOnStatus(std::uint32_t status) {
    static constexpr std::uint32_t kKnown[] = {kStatusPasswordExpired, kStatusAccountDisabled, kStatusAccountExpired,
                                               kStatusPasswordMustChange, kStatusAccountLocked};
    return std::find(std::begin(kKnown), std::end(kKnown), status) != std::end(kKnown);
}

std::string SimpleName(const Principal& principal) {
    return principal.isEnterprise ? principal.name : LowerCase(principal.name);
}

// Kerberos has one refusal for disabled, expired and locked accounts. A simple bind over TLS tells which, to a holder of
// a certificate for the domain itself or for a name that the administrator gave: Kerberos' refusal, the DNS and the
// controller's own words may all be forged, and every web server of the firm has a certificate for some name in the
// domain. 0 if it does not.
std::uint32_t AskForReason(const Settings& settings, const Controller& controller, const Principal& principal,
                           const char* password, const Deadline& deadline) {
    if (settings.certificateAuthority.empty()) {
        return 0;
    }
    try {
        LdapConnection connection(controller.endpoint.WithPort(settings.ldapsPort), controller.certifiedName,
                                  deadline.OrAfter(settings.controllerBudget));
        connection.StartTls(settings.certificateAuthority);
        connection.BindSimple(SimpleName(principal), password);
        return 0;
    } catch (const LdapError& error) {
        const std::uint32_t status = StatusOfDiagnostic(error.Diagnostic());
        return IsLogOnStatus(status) ? status : 0;
    } catch (const AdError&) {
        return 0;  // the refusal itself stands
    }
}

}  // namespace

std::uint32_t StatusOfDiagnostic(std::string_view diagnostic) {
    static constexpr std::string_view kData = "data ";
    const auto at = diagnostic.find(kData);
    std::uint32_t status = 0;
    if (at != std::string_view::npos) {
        const char* first = diagnostic.data() + at + kData.size();
        std::from_chars(first, diagnostic.data() + diagnostic.size(), status, 16);
    }
    return status;
}

Principal PrincipalOf(const std::string& userName, const std::string& domain, const std::string& netbiosName) {
    UserName user;
    try {
        user = SplitUserName(userName);
    } catch (const AdError&) {
        throw AdError(kStatusLogonFailure, "The user name is malformed");  // to a domain it is an unknown user
    }
    const bool isOwn = user.domain.empty() || SameName(user.domain, domain) || SameName(user.domain, netbiosName);
    if (isOwn) {
        return {user.name + "@" + UpperCase(domain), false};
    }
    if (userName.find('\\') == std::string::npos) {
        return {user.name + "@" + user.domain, true};
    }
    if (user.domain.find('.') == std::string::npos) {
        throw AdError(kStatusLogonFailure, "The user's domain '" + user.domain + "' is unknown");
    }
    return {user.name + "@" + UpperCase(user.domain), false};
}

Session::LogOn UserLogOn(const Settings& settings, const UserCredentials& credentials, const Deadline& deadline) {
    return [&settings, &credentials, deadline](Tickets& tickets, const Controller& controller) {
        const Principal principal =
            PrincipalOf(credentials.userName, controller.facts.domain, controller.facts.netbiosDomain);
        try {
            tickets.LogOnWithPassword(principal, credentials.password);
        } catch (const KerberosError& error) {
            if (!MayBeToldApart(error)) {
                throw;
            }
            const auto reason = AskForReason(settings, controller, principal, credentials.password, deadline);
            throw AdError(reason != 0 ? reason : error.Status(), error.what());
        }
    };
}

Session::LogOn MachineLogOn(const std::string& computer, const std::string& keytab) {
    return [computer, keytab](Tickets& tickets, const Controller& controller) {
        try {
            tickets.LogOnWithKeytab({computer + "$@" + UpperCase(controller.facts.domain), false}, keytab);
        } catch (const KerberosError& error) {
            if (error.Code() == KRB5KDC_ERR_C_PRINCIPAL_UNKNOWN) {
                throw StaleRefusalError(kStatusNoTrustAccount, "The domain has no account for this host");
            }
            if (error.Status() == kStatusLogonFailure) {
                throw StaleRefusalError(error.Status(), error.what());
            }
            throw;
        }
    };
}

void TryLogOn(const Settings& settings, const Controller& controller, const Session::LogOn& logOn,
              const Deadline& deadline) {
    const std::string realm = UpperCase(controller.facts.domain);
    KdcCarrier carrier(settings, realm, controller.endpoint, deadline);
    Tickets tickets(realm,
                    [&](const std::string& to, std::string_view request) { return carrier.Exchange(to, request); });
    logOn(tickets, controller);
}

}  // namespace nimbrel::ad
