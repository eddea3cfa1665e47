// What tests of joining and leaving share: a directory store over the provider "scripted", an empty configuration store,
// untouched network files, and a password that must not appear where it does not belong.
//
//     TEST_F(DomainJoin, StoresTheDomain) {
//         store.JoinDomain("corp.test", administrator, true);
//         EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", ""), Pair("domain_name", "corp.test")));
//     }

#ifndef TESTS_STORE_MEMBERSHIP_H_
#define TESTS_STORE_MEMBERSHIP_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "orbconfigstore/memory.h"
#include "store/journal.h"
#include "store/root.h"
#include "store/scripted_control.h"
#include "store/thrown.h"
#include "sysnet/memory.h"

namespace nimbrel::authentication::test {

inline constexpr const char* kPassword = "Pa55-w0rd%s";

// The provider's line for a join as `administrator`.
inline std::string JoinCall(const std::string& domain, const std::string& organizationalUnit) {
    return "join(" + domain + ", " + organizationalUnit + ", administrator, " + kPassword + ")";
}

class MembershipTest : public ::testing::Test {
 protected:
    MembershipTest() {
        OrbConfigStore::Memory::Reset();
        SysNet::Memory::Reset();
        Journal::Clear();
    }
    ~MembershipTest() override {
        for (const std::string& line : Journal::Logged()) EXPECT_THAT(line, Not(::testing::HasSubstr("w0rd")));
        Journal::Clear();
    }

    // The stored domain settings; empty when there are none.
    static OrbConfigStore::StoreObject::ValueMap Settings() {
        const auto objects = OrbConfigStore::Memory::Snapshot();
        const auto found = objects.find(ActiveDirectoryConfigStore::AD_CSO_ID);
        return found == objects.end() ? OrbConfigStore::StoreObject::ValueMap() : found->second;
    }

    // Whether neither the hosts file nor the DNS configuration was as much as opened.
    static bool NetworkIsUntouched() {
        using SysNet::Memory::CallCount;
        using SysNet::Memory::Operation;
        return CallCount(Operation::kMakeHostsFile) == 0 && CallCount(Operation::kMakeNetworkInfo) == 0 &&
               CallCount(Operation::kMakeDnsConfig) == 0;
    }

    ScriptedControl provider;
    ActiveDirectoryStore store{60};
    const Credentials administrator = {"administrator", kPassword};
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_MEMBERSHIP_H_
