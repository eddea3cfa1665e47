// The domain settings in the host's configuration store.
//
// After a join the host's configuration store keeps which domain the host is in, so that the knowledge outlives a
// restart and other components of the host can read it; it also keeps the certificate of the authentication proxy that
// the host trusts. Two objects hold them, both in component "orb" and group "identity":
//
//     key "active_directory"        domain_name           the name that was joined
//                                   auth_proxy_address    empty after a direct join
//                                   organizational_unit   absent when the join named none
//     key "auth_proxy_certificate"  thumbprint            SHA-1, "0A:1B:...:FF"
//                                   certificate           PEM text as imported
//
// A component that shows the joined domain:
//
//     try {
//         std::cout << ActiveDirectoryConfigStore().GetDomainName() << '\n';
//     } catch (const ConfigurationError&) {
//         std::cout << "not joined\n";
//     }
//
// Threads: make one object per operation; it holds nothing but a handle to the store.
//
// Errors: each reading throws `ConfigurationError` "Failed to get the requested object" if the object does not exist; a
// value that the object lacks reads as the empty text. Failures of the store itself leave as
// `OrbConfigStore::ConfigStoreException`.

#ifndef NIMBREL_AUTHENTICATION_DIRECTORY_CONFIG_STORE_H_
#define NIMBREL_AUTHENTICATION_DIRECTORY_CONFIG_STORE_H_

#include <memory>
#include <string>

#include "authentication/export.h"
#include "orbconfigstore/config_store.h"

namespace nimbrel::authentication {

class NIMAUTH_EXPORT ActiveDirectoryConfigStore {
 public:
    static const char* const AD_CONFIG_COMPONENT;
    static const char* const AD_CONFIG_GROUP;
    static const char* const AD_CONFIG_KEY;
    static const char* const AUTH_PROXY_CONFIG_KEY;
    static const char* const DOMAIN_NAME_KEY;
    static const char* const ORG_UNIT_KEY;
    static const char* const AUTH_PROXY_ADDR_KEY;
    static const char* const AUTH_PROXY_THUMBPRINT_KEY;
    static const char* const AUTH_PROXY_CERT_KEY;
    static const OrbConfigStore::ConfigStoreObjectId AD_CSO_ID;
    static const OrbConfigStore::ConfigStoreObjectId AUTH_PROXY_CERT_CSO_ID;

    // Opens the host's configuration store, global namespace.
    ActiveDirectoryConfigStore();

    std::string GetStringValue(const OrbConfigStore::ConfigStoreObjectId& id, const std::string& name);
    std::string GetThumbprint();
    std::string GetCertificate();
    std::string GetDomainName();
    std::string GetOrganizationalUnit();
    std::string GetAuthProxyAddr();

    // Replaces the domain settings; an empty organizational unit is not stored, an empty proxy address is.
    void StoreDomainInfo(const std::string& domainName, const std::string& organizationalUnit,
                         const std::string& authProxyAddress);

    // Replaces the trusted proxy certificate.
    void StoreAuthProxyCertInfo(const std::string& thumbprint, const std::string& certificate);

    // Removes the domain settings if there are any. The trusted proxy certificate stays, for the next join.
    void RemoveDomainInfo();

 private:
    std::shared_ptr<OrbConfigStore::ConfigStore> _store;
};

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_DIRECTORY_CONFIG_STORE_H_
