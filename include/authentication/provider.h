// A directory provider plug-in, loaded.
//
// `ActiveDirectoryProvider` opens /usr/libexec/nimauth/lib64/lib<name>.so, or else /usr/libexec/nimauth/lib<name>.so,
// checks its version and offers each entry of its table of C functions as a member function: texts become strings,
// arrays become containers, and a non-zero status becomes an exception. provider_abi.h describes the plug-in's side.
//
//     auto provider = std::make_shared<const ActiveDirectoryProvider>("embedded");
//     std::cout << provider->GetActiveDomain() << '\n';
//
// Threads: the object never changes after construction but by `CacheMetadata`; share it as const and call it from any
// thread. It takes no lock, so the plug-in sees concurrent calls. Every call blocks for as long as the plug-in takes.
//
// Errors: every operation throws `CallNotImplementedException` if the plug-in's slot is null, and for a non-zero status
// what `ThrowMappedException` throws for it, unless it says otherwise. Outputs of a failed call are not released.

#ifndef NIMBREL_AUTHENTICATION_PROVIDER_H_
#define NIMBREL_AUTHENTICATION_PROVIDER_H_

#include <deque>
#include <list>
#include <string>
#include <vector>

#include "authentication/directory_types.h"
#include "authentication/export.h"
#include "authentication/provider_abi.h"

namespace nimbrel::authentication {

class NIMAUTH_EXPORT ActiveDirectoryProvider {
 public:
    // Loads the plug-in `name`, which is used in the path as it is.
    //
    // Throws `IOError` "Unable to open provider: <loader's text>" if neither path can be opened, and
    // `InvalidActiveDirectoryProviderException` if a symbol is missing or the plug-in's API version is above 3. There is
    // no lower bound on the version. A plug-in whose metadata names no PAM or NSS module throws `std::logic_error`.
    explicit ActiveDirectoryProvider(const std::string& name);
    ActiveDirectoryProvider(const ActiveDirectoryProvider&) = delete;
    ActiveDirectoryProvider& operator=(const ActiveDirectoryProvider&) = delete;

    // Closes the plug-in.
    ~ActiveDirectoryProvider();

    // Reads module names and parameters from the metadata record. Called by the constructor; a further call reads the
    // same names and appends the parameters again, and is for no time when another thread uses the object.
    void CacheMetadata() const;

    // What a client needs to wire logins: the PAM module's file name, the NSS service's name, and their parameters. The
    // references live as long as this object.
    const std::string& PAMModule() const { return _pamModule; }
    const std::list<std::string>& PAMModuleParameters() const { return _pamModuleParameters; }
    const std::string& NSSModule() const { return _nssModule; }
    const std::list<std::string>& NSSModuleParameters() const { return _nssModuleParameters; }

    // The version of the operations table, not of the metadata record.
    int GetAPIVersion() const;

    // Joins with a user's credentials; an empty organizational unit means the default container. Statuses 1326 and
    // 0xFFFF0000 are tried again, four calls in all, each failure followed by a pause of 30 seconds (the fourth too).
    // Blocks for up to four calls and 120 seconds.
    void JoinDomain(const std::string& domain, const std::string& organizationalUnit,
                    const Credentials& credentials) const;

    // Joins with an account that exists already, with the same retries; each attempt is written to the system log as
    // "Adding host to domain: Attempt (1/4)". Needs table version 2, else `CallNotImplementedException`.
    void JoinDomainWithMachineAccount(const APX::DirectoryDomainInfo& domain,
                                      const APX::MachineAccountInfo& account) const;

    // Leaves the domain without credentials, or with them.
    void PartDomain() const;
    void PartDomain(const Credentials& credentials) const;

    // The joined domain; both names empty on a host that is no member.
    Domain GetActiveDomain() const;

    void SetPreferredDomainControllers(const std::deque<std::string>& controllers) const;
    std::deque<std::string> GetPreferredDomainControllers() const;

    // The provider's own value; cannot fail but for a null slot.
    TrustState GetDomainTrustState() const;

    // In the provider's order.
    std::deque<Domain> GetTrustedDomains() const;

    // Each single text is empty where the provider answers null.
    std::string GetMachineAccountDN() const;

    // An empty `firstName` is passed as null.
    std::string GetAnyDomainController(const std::string& firstName, const std::string& domain) const;
    std::string ConvertCanonicalUsername(const std::string& name) const;

    // Needs table version 2, else `CallNotImplementedException`.
    std::string GetHostPrincipalForDomain(const std::string& domain) const;

    // The provider's own value; cannot fail but for a null slot.
    TrustRelationship GetDomainTrustRelationship(const std::string& domain) const;

    void SetSmartCardEnabledServices(const std::vector<std::string>& services) const;
    std::vector<std::string> GetSmartCardEnabledServices() const;

 private:
    void* _library = nullptr;
    const NimauthProviderMetadata* _metadata = nullptr;
    const NimauthProviderOperations* _operations = nullptr;
    mutable std::string _pamModule;
    mutable std::list<std::string> _pamModuleParameters;
    mutable std::string _nssModule;
    mutable std::list<std::string> _nssModuleParameters;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_PROVIDER_H_
