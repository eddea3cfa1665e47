#include "authentication/directory_config_store.h"

#include <cstdint>

#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

using OrbConfigStore::ConfigStoreObject;
using OrbConfigStore::ConfigStoreObjectId;

// The ids that the operations use. Not the public constants: these are destroyed when the process exits, and a join may
// still be in its provider then.
ConfigStoreObjectId DomainSettingsId() {
    return {ActiveDirectoryConfigStore::AD_CONFIG_KEY, ActiveDirectoryConfigStore::AD_CONFIG_GROUP,
            ActiveDirectoryConfigStore::AD_CONFIG_COMPONENT};
}

ConfigStoreObjectId ProxyCertificateId() {
    return {ActiveDirectoryConfigStore::AUTH_PROXY_CONFIG_KEY, ActiveDirectoryConfigStore::AD_CONFIG_GROUP,
            ActiveDirectoryConfigStore::AD_CONFIG_COMPONENT};
}

void Write(OrbConfigStore::ConfigStore& store, const std::shared_ptr<ConfigStoreObject>& object) {
    std::uint32_t word = 0;  // the platform's own; not looked at afterwards
    store.SetObject(object, word);
}

}  // namespace

const char* const ActiveDirectoryConfigStore::AD_CONFIG_COMPONENT = "orb";
const char* const ActiveDirectoryConfigStore::AD_CONFIG_GROUP = "identity";
const char* const ActiveDirectoryConfigStore::AD_CONFIG_KEY = "active_directory";
const char* const ActiveDirectoryConfigStore::AUTH_PROXY_CONFIG_KEY = "auth_proxy_certificate";
const char* const ActiveDirectoryConfigStore::DOMAIN_NAME_KEY = "domain_name";
const char* const ActiveDirectoryConfigStore::ORG_UNIT_KEY = "organizational_unit";
const char* const ActiveDirectoryConfigStore::AUTH_PROXY_ADDR_KEY = "auth_proxy_address";
const char* const ActiveDirectoryConfigStore::AUTH_PROXY_THUMBPRINT_KEY = "thumbprint";
const char* const ActiveDirectoryConfigStore::AUTH_PROXY_CERT_KEY = "certificate";
const ConfigStoreObjectId ActiveDirectoryConfigStore::AD_CSO_ID(AD_CONFIG_KEY, AD_CONFIG_GROUP, AD_CONFIG_COMPONENT);
const ConfigStoreObjectId ActiveDirectoryConfigStore::AUTH_PROXY_CERT_CSO_ID(AUTH_PROXY_CONFIG_KEY, AD_CONFIG_GROUP,
                                                                             AD_CONFIG_COMPONENT);

ActiveDirectoryConfigStore::ActiveDirectoryConfigStore()
    : _store(OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace)) {}

std::string ActiveDirectoryConfigStore::GetStringValue(const ConfigStoreObjectId& id, const std::string& name) {
    std::string result;
    const std::shared_ptr<ConfigStoreObject> object = _store->GetObject(id);
    if (object == nullptr) throw ConfigurationError("Failed to get the requested object");
    object->GetValue(name.c_str(), &result);
    return result;
}

std::string ActiveDirectoryConfigStore::GetThumbprint() {
    return GetStringValue(ProxyCertificateId(), AUTH_PROXY_THUMBPRINT_KEY);
}

std::string ActiveDirectoryConfigStore::GetCertificate() {
    return GetStringValue(ProxyCertificateId(), AUTH_PROXY_CERT_KEY);
}

std::string ActiveDirectoryConfigStore::GetDomainName() { return GetStringValue(DomainSettingsId(), DOMAIN_NAME_KEY); }

std::string ActiveDirectoryConfigStore::GetOrganizationalUnit() {
    return GetStringValue(DomainSettingsId(), ORG_UNIT_KEY);
}

std::string ActiveDirectoryConfigStore::GetAuthProxyAddr() {
    return GetStringValue(DomainSettingsId(), AUTH_PROXY_ADDR_KEY);
}

void ActiveDirectoryConfigStore::StoreDomainInfo(const std::string& domainName, const std::string& organizationalUnit,
                                                 const std::string& authProxyAddress) {
    const auto object = std::make_shared<ConfigStoreObject>(DomainSettingsId());
    object->SetValue(DOMAIN_NAME_KEY, domainName);
    object->SetValue(AUTH_PROXY_ADDR_KEY, authProxyAddress);
    if (!organizationalUnit.empty()) object->SetValue(ORG_UNIT_KEY, organizationalUnit);
    Write(*_store, object);
}

void ActiveDirectoryConfigStore::StoreAuthProxyCertInfo(const std::string& thumbprint, const std::string& certificate) {
    const auto object = std::make_shared<ConfigStoreObject>(ProxyCertificateId());
    object->SetValue(AUTH_PROXY_THUMBPRINT_KEY, thumbprint);
    object->SetValue(AUTH_PROXY_CERT_KEY, certificate);
    Write(*_store, object);
}

void ActiveDirectoryConfigStore::RemoveDomainInfo() {
    const ConfigStoreObjectId id = DomainSettingsId();
    if (_store->GetObject(id) != nullptr) _store->RemoveObject(id);
}

}  // namespace nimbrel::authentication
