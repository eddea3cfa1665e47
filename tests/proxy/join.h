// What the tests of joining through a proxy share: a directory store over the scripted provider, the scripted proxy
// installed and named in apxprovider.conf, an empty configuration store, a host called node01 in corp.test.
//
//     TEST_F(ProxyJoin, AsksTheProxyFirst) {
//         Join();
//         EXPECT_THAT(Settings(), Contains(Pair("domain_name", "corp.test")));
//     }

#ifndef TESTS_PROXY_JOIN_H_
#define TESTS_PROXY_JOIN_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "hostmgmt/advanced_options.h"
#include "orbconfigstore/memory.h"
#include "proxy/calls.h"
#include "proxy/journal.h"
#include "proxy/root.h"
#include "sysnet/memory.h"

namespace nimbrel::authentication::test {

inline constexpr const char* kAddress = "192.0.2.7";
inline constexpr const char* kOption = "UserVars.ActiveDirectoryVerifyAPXCertificate";
inline constexpr const char* kProxyPath = "/usr/libexec/nimauth/libscripted_proxy.so";

// The provider's line for the join of a host called node01 in corp.test.
inline constexpr const char* kJoinCall =
    "join({, CORP, corp.test, S-1-5-21-1-2-3}, {node01, corp.test, , FIELD2, FIELD3})";

using ObjectValues = OrbConfigStore::StoreObject::ValueMap;

class ProxyJoinTest : public ::testing::Test {
 protected:
    explicit ProxyJoinTest(const std::string& provider = "scripted_provider") : store(MakeStore(provider)) {
        RemovePlugins();
        Install("scripted_proxy", "scripted_proxy");
        NameProxy("scripted_proxy");
        OrbConfigStore::Memory::Reset();
        SysNet::Memory::Reset();
        HostCalls::Reset();
        Script::Reset();
        Journal::Clear();
    }
    ~ProxyJoinTest() override {
        Journal::WhenAdded(nullptr);  // it may refer to what the test's body has left
        EXPECT_FALSE(IsLoaded(kProxyPath)) << "the proxy plug-in was not closed";
        EXPECT_THAT(Journal::Lines("results were not null"), ::testing::IsEmpty());
        HostCalls::Reset();
        Journal::Clear();
    }

    static void NameProxy(const std::string& name) { WriteSystemFile(kProxyFile, "provider = \"" + name + "\"\n"); }

    // The administrator's choice; a host has 1 until then.
    static void SetVerifyOption(std::int64_t value) {
        HostMgmt::HostFactory::GetHost()->GetAdvancedOptions()->DeclareInteger(kOption, value, "");
        Journal::Clear();
    }

    static void Trust(const std::string& thumbprint, const std::string& certificate) {
        ActiveDirectoryConfigStore().StoreAuthProxyCertInfo(thumbprint, certificate);
        Journal::Clear();
    }

    // The values of a stored object; none if there is no such object.
    static ObjectValues Stored(const OrbConfigStore::ConfigStoreObjectId& id) {
        const auto objects = OrbConfigStore::Memory::Snapshot();
        const auto found = objects.find(id);
        return found == objects.end() ? ObjectValues() : found->second;
    }
    static ObjectValues Settings() { return Stored(ActiveDirectoryConfigStore::AD_CSO_ID); }

    void Join(const std::string& organizationalUnit = "", bool skipHostnameCheck = true) {
        store.JoinDomainWithAPX(kAddress, organizationalUnit, skipHostnameCheck);
    }
    std::string JoinOutcome(bool skipHostnameCheck = true) {
        return Outcome([&] { Join("", skipHostnameCheck); });
    }

    ActiveDirectoryStore store;

 private:
    static ActiveDirectoryStore MakeStore(const std::string& provider) {
        Install(provider, provider);
        WriteSystemFile(kProviderFile, "provider = \"" + provider + "\"\n");
        return ActiveDirectoryStore(60);
    }
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PROXY_JOIN_H_
