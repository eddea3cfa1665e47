// The domain settings in the configuration store, against the in-memory store.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>

#include "authentication/directory_config_store.h"
#include "authentication/exceptions.h"
#include "orbconfigstore/memory.h"
#include "store/thrown.h"

namespace nimbrel::authentication::test {
namespace {

using OrbConfigStore::ConfigStoreException;
using OrbConfigStore::ConfigStoreObjectId;
using OrbConfigStore::StoreObject;
using OrbConfigStore::Memory::Operation;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Store = ActiveDirectoryConfigStore;

const ConfigStoreObjectId kDomain("active_directory", "identity", "orb");
const ConfigStoreObjectId kCertificate("auth_proxy_certificate", "identity", "orb");

class DomainSettings : public ::testing::Test {
 protected:
    DomainSettings() { OrbConfigStore::Memory::Reset(); }

    // The stored values of an object, as the store itself has them.
    static StoreObject::ValueMap Stored(const ConfigStoreObjectId& id) {
        return OrbConfigStore::Memory::Snapshot().at(id);
    }

    // Puts an object past the class under test.
    static void Put(const ConfigStoreObjectId& id, const std::map<std::string, std::string>& values) {
        const auto object = std::make_shared<OrbConfigStore::ConfigStoreObject>(id);
        for (const auto& [name, value] : values) object->SetValue(name.c_str(), value);
        std::uint32_t word = 0;
        OrbConfigStore::ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace)->SetObject(object, word);
    }

    static std::map<std::string, std::function<std::string()>> Readings() {
        return {{"thumbprint", [] { return Store().GetThumbprint(); }},
                {"certificate", [] { return Store().GetCertificate(); }},
                {"domain_name", [] { return Store().GetDomainName(); }},
                {"organizational_unit", [] { return Store().GetOrganizationalUnit(); }},
                {"auth_proxy_address", [] { return Store().GetAuthProxyAddr(); }}};
    }
};

TEST_F(DomainSettings, ArePublishedUnderTheseNames) {
    EXPECT_STREQ(Store::AD_CONFIG_COMPONENT, "orb");
    EXPECT_STREQ(Store::AD_CONFIG_GROUP, "identity");
    EXPECT_STREQ(Store::AD_CONFIG_KEY, "active_directory");
    EXPECT_STREQ(Store::AUTH_PROXY_CONFIG_KEY, "auth_proxy_certificate");
    EXPECT_STREQ(Store::DOMAIN_NAME_KEY, "domain_name");
    EXPECT_STREQ(Store::ORG_UNIT_KEY, "organizational_unit");
    EXPECT_STREQ(Store::AUTH_PROXY_ADDR_KEY, "auth_proxy_address");
    EXPECT_STREQ(Store::AUTH_PROXY_THUMBPRINT_KEY, "thumbprint");
    EXPECT_STREQ(Store::AUTH_PROXY_CERT_KEY, "certificate");
}

TEST_F(DomainSettings, ArePublishedUnderTheseIds) {
    EXPECT_EQ(Store::AD_CSO_ID, kDomain);
    EXPECT_EQ(Store::AD_CSO_ID.Key(), "active_directory");
    EXPECT_EQ(Store::AD_CSO_ID.Group(), "identity");
    EXPECT_EQ(Store::AD_CSO_ID.Component(), "orb");
    EXPECT_EQ(Store::AUTH_PROXY_CERT_CSO_ID, kCertificate);
}

TEST_F(DomainSettings, CannotBeReadBeforeTheyAreStored) {
    for (const auto& [name, read] : Readings()) {
        EXPECT_EQ(TextOf<ConfigurationError>([&read = read] { read(); }), "Failed to get the requested object") << name;
    }
}

TEST_F(DomainSettings, HoldAllThreeTexts) {
    Store().StoreDomainInfo("corp.test", "OU=Hosts/Sub", "proxy.corp.test");
    EXPECT_THAT(Stored(kDomain),
                ElementsAre(Pair("auth_proxy_address", "proxy.corp.test"), Pair("domain_name", "corp.test"),
                            Pair("organizational_unit", "OU=Hosts/Sub")));
    EXPECT_EQ(Store().GetDomainName(), "corp.test");
    EXPECT_EQ(Store().GetOrganizationalUnit(), "OU=Hosts/Sub");
    EXPECT_EQ(Store().GetAuthProxyAddr(), "proxy.corp.test");
}

TEST_F(DomainSettings, HoldAnEmptyProxyAddressButNoEmptyOrganizationalUnit) {
    Store().StoreDomainInfo("corp.test", "", "");
    EXPECT_THAT(Stored(kDomain), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "corp.test")));
    EXPECT_EQ(Store().GetOrganizationalUnit(), "");
    EXPECT_EQ(Store().GetAuthProxyAddr(), "");
}

TEST_F(DomainSettings, HoldAnEmptyDomainNameAsGiven) {
    Store().StoreDomainInfo("", "", "");
    EXPECT_THAT(Stored(kDomain), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "")));
}

TEST_F(DomainSettings, AreReplacedWhole) {
    Store().StoreDomainInfo("corp.test", "OU=Hosts", "proxy.corp.test");
    Store().StoreDomainInfo("lab.test", "", "");
    EXPECT_THAT(Stored(kDomain), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "lab.test")));
}

TEST_F(DomainSettings, KeepAllBytes) {
    const std::string bytes("\0\n\"\xFF\xC3\xA4 '", 9);
    Store().StoreDomainInfo(bytes, bytes, bytes);
    Store().StoreAuthProxyCertInfo(bytes, bytes);
    for (const auto& [name, read] : Readings()) EXPECT_EQ(read(), bytes) << name;
}

TEST_F(DomainSettings, KeepTheCertificateInAnObjectOfItsOwn) {
    Store().StoreAuthProxyCertInfo("0A:1B", "-----BEGIN CERTIFICATE-----\n");
    EXPECT_THAT(Stored(kCertificate),
                ElementsAre(Pair("certificate", "-----BEGIN CERTIFICATE-----\n"), Pair("thumbprint", "0A:1B")));
    EXPECT_EQ(OrbConfigStore::Memory::Snapshot().size(), 1u);
    EXPECT_EQ(Store().GetThumbprint(), "0A:1B");
    EXPECT_EQ(Store().GetCertificate(), "-----BEGIN CERTIFICATE-----\n");
}

TEST_F(DomainSettings, AreWrittenInOneCallEach) {
    Store().StoreDomainInfo("corp.test", "OU=Hosts", "");
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kSetObject), 1);
    Store().StoreAuthProxyCertInfo("0A", "PEM");
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kSetObject), 2);
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kGetObject), 0);
}

TEST_F(DomainSettings, AreKeptInTheGlobalNamespaceAlone) {
    Store().StoreDomainInfo("corp.test", "", "");
    EXPECT_EQ(OrbConfigStore::Memory::Snapshot(OrbConfigStore::sGlobalNamespace).size(), 1u);
    EXPECT_THAT(OrbConfigStore::Memory::Snapshot("other"), IsEmpty());
}

TEST_F(DomainSettings, ReadAMissingValueOfAnExistingObjectAsEmpty) {
    Put(kDomain, {{"something_else", "1"}});
    EXPECT_EQ(Store().GetDomainName(), "");
    EXPECT_EQ(Store().GetStringValue(kDomain, "something_else"), "1");
    EXPECT_EQ(Store().GetStringValue(kDomain, ""), "");
}

TEST_F(DomainSettings, ReadAnyObjectByItsId) {
    const ConfigStoreObjectId id("key", "group", "component");
    EXPECT_EQ(TextOf<ConfigurationError>([&] { Store().GetStringValue(id, "x"); }),
              "Failed to get the requested object");
    Put(id, {{"x", "y"}});
    EXPECT_EQ(Store().GetStringValue(id, "x"), "y");
}

TEST_F(DomainSettings, AreRemovedWithoutTheCertificate) {
    Store().StoreDomainInfo("corp.test", "OU=Hosts", "proxy");
    Store().StoreAuthProxyCertInfo("0A", "PEM");
    Store().RemoveDomainInfo();
    EXPECT_EQ(TextOf<ConfigurationError>([] { Store().GetDomainName(); }), "Failed to get the requested object");
    EXPECT_EQ(Store().GetThumbprint(), "0A");
    EXPECT_EQ(Store().GetCertificate(), "PEM");
}

TEST_F(DomainSettings, RemovingWhatIsNotThereDoesNothing) {
    Store().RemoveDomainInfo();
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kRemoveObject), 0);
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kGetObject), 1);
}

TEST_F(DomainSettings, PassOnThatTheStoreCannotBeOpened) {
    OrbConfigStore::Memory::FailNext(Operation::kGetStore, "no store");
    EXPECT_EQ(TextOf<ConfigStoreException>([] { Store(); }), "no store");
}

TEST_F(DomainSettings, PassOnThatAnObjectCannotBeRead) {
    Store().StoreDomainInfo("corp.test", "", "");
    OrbConfigStore::Memory::FailAlways(Operation::kGetObject, "disk gone");
    for (const auto& [name, read] : Readings()) {
        EXPECT_EQ(TextOf<ConfigStoreException>([&read = read] { read(); }), "disk gone") << name;
    }
    EXPECT_EQ(TextOf<ConfigStoreException>([] { Store().RemoveDomainInfo(); }), "disk gone");
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kRemoveObject), 0);
}

TEST_F(DomainSettings, StayAsTheyWereWhenTheyCannotBeWritten) {
    Store().StoreDomainInfo("corp.test", "OU=Hosts", "proxy");
    Store().StoreAuthProxyCertInfo("0A", "PEM");
    const auto before = OrbConfigStore::Memory::Snapshot();
    OrbConfigStore::Memory::FailAlways(Operation::kSetObject, "disk full");
    EXPECT_EQ(TextOf<ConfigStoreException>([] { Store().StoreDomainInfo("lab.test", "", ""); }), "disk full");
    EXPECT_EQ(TextOf<ConfigStoreException>([] { Store().StoreAuthProxyCertInfo("1B", "other"); }), "disk full");
    EXPECT_EQ(OrbConfigStore::Memory::Snapshot(), before);
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kSetObject), 4);
}

TEST_F(DomainSettings, StayAsTheyWereWhenTheyCannotBeRemoved) {
    Store().StoreDomainInfo("corp.test", "", "");
    OrbConfigStore::Memory::FailNext(Operation::kRemoveObject, "read-only");
    EXPECT_EQ(TextOf<ConfigStoreException>([] { Store().RemoveDomainInfo(); }), "read-only");
    EXPECT_EQ(Store().GetDomainName(), "corp.test");
    EXPECT_EQ(OrbConfigStore::Memory::CallCount(Operation::kRemoveObject), 1);
}

}  // namespace
}  // namespace nimbrel::authentication::test
