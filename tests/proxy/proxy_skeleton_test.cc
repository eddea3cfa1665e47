// The skeleton of docs/abi/proxy, built on its own and used as a proxy.

#include <dlfcn.h>

#include "authentication/proxy.h"
#include "proxy/join.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* kThumbprint = "0A:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D";
constexpr const char* kPath = "/usr/libexec/nimauth/libproxyskeleton.so";

class ProxySkeleton : public ProxyJoinTest {
 protected:
    ProxySkeleton() {
        CopySystemFile(NIMAUTH_TEST_SKELETON, kPath);
        NameProxy("proxyskeleton");
    }
    ~ProxySkeleton() override { EXPECT_FALSE(IsLoaded(kPath)); }

    static APXProxy Proxy(bool verify, const std::string& thumbprint) {
        return {"proxyskeleton", kAddress, verify, thumbprint, ""};
    }
};

TEST_F(ProxySkeleton, TellsItsDomain) {
    APXProxy proxy = Proxy(false, "");
    EXPECT_EQ(proxy.GetNetBIOSDomainName(), "CORP");
    EXPECT_EQ(proxy.GetDNSDomainName(), "corp.test");
    EXPECT_EQ(proxy.GetDomainSID(), "S-1-5-21-1004336348-1177238915-682003330");
}

TEST_F(ProxySkeleton, CreatesAccountsWhereItIsTold) {
    const auto told = Proxy(false, "").CreateMachineAccount("node01.corp.test", "OU=Hosts");
    EXPECT_EQ(told.principalField2, "node01.corp.test@OU=Hosts");
    EXPECT_EQ(told.principalField3, "one-time secret of the new account");
    const auto left = Proxy(false, "").CreateMachineAccount("node01.corp.test", "");
    EXPECT_EQ(left.principalField2, "node01.corp.test@CN=Computers");
}

TEST_F(ProxySkeleton, VerifiesWhatItIsToldTo) {
    EXPECT_EQ(Proxy(true, kThumbprint).GetDNSDomainName(), "corp.test");
    for (const char* thumbprint : {"", "0A", "FF:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D"}) {
        EXPECT_THROW(Proxy(true, thumbprint).GetDNSDomainName(), InvalidAPXCertificateException) << thumbprint;
        EXPECT_THROW(Proxy(true, thumbprint).CreateMachineAccount("node01", ""), InvalidAPXCertificateException);
    }
}

TEST_F(ProxySkeleton, RefusesAServiceWithoutAnAddress) {
    EXPECT_THROW(APXProxy("proxyskeleton", "", false, "", "").GetDNSDomainName(), ConnectionInvalidException);
}

TEST_F(ProxySkeleton, JoinsAHost) {
    Trust(kThumbprint, "PEM");
    Join("OU=Hosts", false);
    EXPECT_THAT(Journal::Lines("join"),
                ElementsAre("join({, CORP, corp.test, S-1-5-21-1004336348-1177238915-682003330}, {node01, corp.test, , "
                            "node01.corp.test@OU=Hosts, one-time secret of the new account})"));
    EXPECT_THAT(Settings(), ElementsAre(Pair("auth_proxy_address", kAddress), Pair("domain_name", "corp.test"),
                                        Pair("organizational_unit", "OU=Hosts")));
}

TEST_F(ProxySkeleton, RefusesAHostThatTrustsAnotherService) {
    Trust("FF:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D", "PEM");
    EXPECT_THROW(Join(), InvalidAPXCertificateException);
    EXPECT_THAT(Settings(), IsEmpty());
}

TEST_F(ProxySkeleton, ExportsItsTableAndNothingElse) {
    void* const library = dlopen(kPath, RTLD_LAZY | RTLD_LOCAL);
    ASSERT_NE(library, nullptr);
    EXPECT_NE(dlsym(library, "APXProxyClientOperations"), nullptr);
    for (const char* name : {"GetDomainInfo", "CreateMachineAccount", "Release", "Connect"}) {
        EXPECT_EQ(dlsym(library, name), nullptr) << name;
    }
    dlclose(library);
}

}  // namespace
}  // namespace nimbrel::authentication::test
