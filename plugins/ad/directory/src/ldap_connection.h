// One LDAP connection to a controller, bounded by a deadline at every step.
//
// libldap encodes and decodes; the bytes travel through our own socket, first in clear (for the questions that a
// controller answers to anybody) and, after `BindSealed`, encrypted with the Kerberos key of the log-in.
//
// One object belongs to one thread at a time. Errors: `LdapError`, whose status is 1355 when the controller does not
// answer in time, closes the connection, or answers with more than 64 kilobytes before and 4 megabytes after
// `BindSealed`, or with more than 10,000 messages.

#ifndef NIMBREL_AD_LDAP_CONNECTION_H_
#define NIMBREL_AD_LDAP_CONNECTION_H_

#include <krb5/krb5.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "addirectory/ad_error.h"
#include "deadline.h"
#include "sockets.h"

namespace nimbrel::ad {

// A refusal by the controller, or -1 (libldap's "server down") when there is none to refuse.
class LdapError : public AdError {
 public:
    // `diagnostic` is the controller's own text, which begins with a Windows status in hexadecimal: "0000216D: ...".
    LdapError(int code, const std::string& action, const std::string& diagnostic);

    int Code() const noexcept { return _code; }
    // The controller closed the connection or did not answer in time.
    bool IsNoAnswer() const noexcept;
    const std::string& Diagnostic() const noexcept { return _diagnostic; }

 private:
    int _code;
    std::string _diagnostic;
};

// The Windows status for an LDAP result code and the diagnostic text that came with it.
std::uint32_t StatusOfLdapCode(int code, std::string_view diagnostic);

class LdapEntry {
 public:
    std::string distinguishedName;
    std::map<std::string, std::vector<std::string>> attributes;  // by name in lower case

    // The first value of the attribute, or nothing.
    std::string Text(const std::string& name) const;
    // 0 for a missing one or one that is no number.
    std::int64_t Number(const std::string& name) const;
    std::vector<std::string> Values(const std::string& name) const;
};

enum class LdapScope { Base, OneLevel, Subtree };

struct LdapSearch {
    std::string base;
    LdapScope scope = LdapScope::Base;
    std::string filter = "(objectClass=*)";
    std::vector<std::string> attributes;
};

struct LdapAttribute {
    std::string name;
    std::vector<std::string_view> values;
};

enum class LdapChangeKind { Add, Delete, Replace };

struct LdapChange {
    LdapChangeKind kind;
    LdapAttribute attribute;
};

class LdapConnection {
 public:
    // Connects; `host` is the controller's DNS name where it is known already.
    LdapConnection(const Endpoint& endpoint, const std::string& host, const Deadline& deadline);
    LdapConnection(const LdapConnection&) = delete;
    LdapConnection& operator=(const LdapConnection&) = delete;
    ~LdapConnection();

    // Counts for everything from now on.
    void SetDeadline(const Deadline& deadline);
    // How long the controller has for each single answer; without limit unless set.
    void SetStepLimit(std::chrono::milliseconds limit);

    // Logs in with a service ticket and seals the connection. The ticket is used during the call only; the context must
    // outlive the connection.
    void BindSealed(krb5_context context, krb5_creds* ticket);
    // Starts TLS on a fresh connection, whose certificate must be signed by an authority of the file and have `host`
    // among its alternative DNS names, as a whole: a wildcard names nobody.
    void StartTls(const std::string& authorityFile);
    void BindSimple(const std::string& name, const char* password);

    std::vector<LdapEntry> Search(const LdapSearch& search);
    // In two steps, so that several questions can travel at once.
    int Start(const LdapSearch& search);
    std::vector<LdapEntry> Finish(int question);

    // The bytes sent are wiped from memory afterwards, as they may hold a secret.
    void Add(const std::string& distinguishedName, const std::vector<LdapAttribute>& attributes);
    void Modify(const std::string& distinguishedName, const std::vector<LdapChange>& changes);
    // `withChildren` deletes what hangs below the entry as well.
    void Delete(const std::string& distinguishedName, bool withChildren);

 private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_LDAP_CONNECTION_H_
