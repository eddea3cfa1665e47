// Where the fields of the public classes lie. A pointer to a data member holds its offset (Itanium C++ ABI); this file is
// compiled without access control.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "authentication/background_work.h"
#include "authentication/configuration.h"
#include "authentication/directory_cache.h"
#include "authentication/directory_store.h"
#include "authentication/directory_types.h"
#include "authentication/exceptions.h"
#include "authentication/provider.h"
#include "authentication/proxy.h"
#include "authentication/store_factory.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/pam_policy.h"

namespace nimbrel::authentication {
namespace {

template <typename Class, typename Field>
long At(Field Class::*field) {
    long offset = -1;
    std::memcpy(&offset, &field, sizeof offset);
    return offset;
}

using Offsets = std::vector<long>;

TEST(FieldOrder, OfExceptions) {
    EXPECT_EQ((Offsets{At(&Exception::_code), At(&Exception::_message)}), (Offsets{8, 16}));
    EXPECT_EQ(sizeof(Exception), 48u);
    EXPECT_EQ(sizeof(AccessDeniedException), 48u);
    EXPECT_EQ(sizeof(UnknownException), 48u);
    EXPECT_EQ(sizeof(InvalidActiveDirectoryProviderException), 48u);
    EXPECT_EQ(sizeof(IOError), 48u);
    EXPECT_EQ(sizeof(InvalidCertificateException), 48u);
}

TEST(FieldOrder, OfPlugInValues) {
    EXPECT_EQ((Offsets{At(&Credentials::userName), At(&Credentials::password)}), (Offsets{0, 8}));
    EXPECT_EQ((Offsets{At(&Domain::_dnsName), At(&Domain::_netbiosName)}), (Offsets{0, 32}));
    EXPECT_EQ(sizeof(Domain), 64u);
    EXPECT_EQ((Offsets{At(&APX::DirectoryDomainInfo::reserved), At(&APX::DirectoryDomainInfo::netbiosName),
                       At(&APX::DirectoryDomainInfo::dnsName), At(&APX::DirectoryDomainInfo::sid)}),
              (Offsets{0, 32, 64, 96}));
    EXPECT_EQ((Offsets{At(&APX::MachineAccountInfo::hostName), At(&APX::MachineAccountInfo::dnsDomainName),
                       At(&APX::MachineAccountInfo::reserved), At(&APX::MachineAccountInfo::principalField2),
                       At(&APX::MachineAccountInfo::principalField3)}),
              (Offsets{0, 32, 64, 96, 128}));
    EXPECT_EQ((Offsets{At(&ComputerPrincipalInfo::reserved), At(&ComputerPrincipalInfo::principalField2),
                       At(&ComputerPrincipalInfo::principalField3)}),
              (Offsets{0, 32, 64}));
    EXPECT_EQ(sizeof(TrustState), 4u);
    EXPECT_EQ(sizeof(TrustRelationship), 4u);
}

TEST(FieldOrder, OfTheProvider) {
    using P = ActiveDirectoryProvider;
    EXPECT_EQ((Offsets{At(&P::_library), At(&P::_metadata), At(&P::_operations), At(&P::_pamModule),
                       At(&P::_pamModuleParameters), At(&P::_nssModule), At(&P::_nssModuleParameters)}),
              (Offsets{0, 8, 16, 24, 56, 80, 112}));
    EXPECT_EQ(sizeof(P), 136u);
}

TEST(FieldOrder, OfTheProxy) {
    using P = APXProxy;
    EXPECT_EQ((Offsets{At(&P::_library), At(&P::_operations), At(&P::_verifyCertificate), At(&P::_server),
                       At(&P::_thumbprint), At(&P::_certificate)}),
              (Offsets{0, 8, 16, 24, 56, 88}));
    EXPECT_EQ(sizeof(P), 120u);
    EXPECT_EQ(sizeof(APXThumbprintStore), sizeof(Configuration));
}

TEST(FieldOrder, OfARequest) {
    EXPECT_EQ((Offsets{At(&RequestState::_done), At(&RequestState::_error), At(&RequestState::_mutex),
                       At(&RequestState::_condition)}),
              (Offsets{0, 8, 16, 56}));
    EXPECT_EQ(sizeof(RequestState::_done), 4u);
    EXPECT_EQ(sizeof(RequestState), 104u);
}

TEST(FieldOrder, OfTheStoreConfiguration) {
    using C = ActiveDirectoryStoreConfiguration;
    EXPECT_EQ((Offsets{At(&C::_domainDNSName), At(&C::_domainNetBIOSName), At(&C::_preferredDomainControllers),
                       At(&C::_machineAccountDN)}),
              (Offsets{8, 40, 72, 152}));
    EXPECT_EQ(sizeof(StoreConfiguration), 8u);
    EXPECT_EQ(sizeof(NoRemoteAuthenticationStoreConfiguration), 8u);
    EXPECT_EQ(sizeof(C), 184u);
}

TEST(FieldOrder, OfTheCache) {
    EXPECT_EQ((Offsets{At(&ADCache::_mutex), At(&ADCache::_configuration), At(&ADCache::_trustState),
                       At(&ADCache::_pcscdServicePolicyOn), At(&ADCache::_smartCardEnabledServices),
                       At(&ADCache::_trustedDomains), At(&ADCache::_trustRelationshipsGeneration),
                       At(&ADCache::_trustRelationships)}),
              (Offsets{0, 40, 224, 228, 232, 256, 336, 344}));
    EXPECT_EQ(sizeof(ADCache::_trustRelationshipsGeneration), 1u);
    EXPECT_EQ((Offsets{At(&ADCache::Relationship::value), At(&ADCache::Relationship::generation)}), (Offsets{0, 4}));
}

TEST(FieldOrder, OfStores) {
    EXPECT_EQ(sizeof(AuthenticationStore), 8u);
    EXPECT_EQ(sizeof(RemoteAuthenticationStore), 8u);
    EXPECT_EQ(sizeof(DirectoryStore), 8u);
    EXPECT_EQ(At(&NoRemoteAuthenticationStore::_configuration), 8);
    EXPECT_EQ(sizeof(NoRemoteAuthenticationStore), 16u);
    EXPECT_EQ((Offsets{At(&ActiveDirectoryStore::_timeout), At(&ActiveDirectoryStore::_provider)}), (Offsets{8, 16}));
    EXPECT_EQ(sizeof(ActiveDirectoryStore), 32u);
    EXPECT_EQ(At(&AuthenticationStoreFactory::_registry), 0);
    EXPECT_EQ(sizeof(AuthenticationStoreFactory), 48u);
}

TEST(FieldOrder, OfConfigurations) {
    EXPECT_EQ(At(&Configuration::_path), 56) << "after the table and the map";
    EXPECT_EQ(sizeof(Configuration), 88u);
    EXPECT_EQ(sizeof(ProviderConfiguration), sizeof(Configuration));
    EXPECT_EQ(sizeof(AuthenticationConfiguration), sizeof(Configuration));
    EXPECT_EQ(sizeof(APXProviderConfiguration), sizeof(Configuration));
}

TEST(FieldOrder, OfThePolicyModel) {
    using namespace SystemConfiguration;
    EXPECT_EQ(sizeof(PAMFacility), 4u);
    EXPECT_EQ((Offsets{At(&PAMControl::_value), At(&PAMControl::_text)}), (Offsets{0, 8}));
    EXPECT_EQ(sizeof(PAMControl::_value), 4u);
    EXPECT_EQ((Offsets{At(&PAMEntry::_control), At(&PAMEntry::_module), At(&PAMEntry::_parameters)}),
              (Offsets{0, 40, 72}));
    EXPECT_EQ(At(&PAMStack::_facility), 80) << "after the queue of entries";
    EXPECT_EQ((Offsets{At(&PAMPolicy::_name), At(&PAMPolicy::_stacks)}), (Offsets{0, 32}));
    EXPECT_EQ((Offsets{At(&InvalidFacilityException::_message), At(&InvalidControlException::_message)}),
              (Offsets{8, 8}));
}

TEST(FieldOrder, OfTheNameServiceModel) {
    using namespace SystemConfiguration;
    EXPECT_EQ(sizeof(NSSDatabase), 4u);
    EXPECT_EQ((Offsets{At(&NSSService::_module), At(&NSSService::_parameters)}), (Offsets{0, 32}));
    EXPECT_EQ(sizeof(NSSConfiguration), 48u);
    EXPECT_EQ(At(&InvalidDatabaseException::_message), 8);
}

}  // namespace
}  // namespace nimbrel::authentication
