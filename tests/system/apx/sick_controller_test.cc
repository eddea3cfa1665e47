// A domain with two controllers, the first of which takes log-ons and nothing after them: what becomes of those who ask the
// service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "apx_host.h"
#include "hung_domain.h"
#include "keytab.h"
#include "plugins/ad/domain/domain.h"
#include "service.h"
#include "support/files.h"

namespace nimbrel::testing {
namespace {

using ad::test::Behaviour;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr int kUnavailable = 52;

class ApxAtASickController : public Apx {
 protected:
    ApxAtASickController() {
        corp.names->AddService("_ldap._tcp.dc._msdcs.corp.test", "dc2.corp.test", {.priority = 10});
        corp.keys.SetPassword("APX01$", "service", ad::MachineSalt("APX01", "corp.test"));
        corp.entries.Put(
            "CN=NODE07,CN=Computers,DC=corp,DC=test",
            {{"objectClass", {"top", "computer"}}, {"sAMAccountName", {"NODE07$"}}, {"userAccountControl", {"4096"}}});
        std::ofstream("/etc/nimbrel/nimauth/ad.conf")
            << "name_servers = 127.0.0.1\nname_server_port = " << corp.names->Port()
            << "\nldap_port = " << corp.controller.LdapPort() << "\nkerberos_port = " << corp.controller.KerberosPort()
            << "\ncontroller_seconds = 20\n";
        WriteServiceKeytab();
        Configure(certificate, HungDomain::BackEnd() + "pre-staged = NODE07\n");
    }
    ~ApxAtASickController() override { std::filesystem::remove("/etc/nimbrel/nimauth/ad.conf"); }

    std::uint32_t Ask(const char* server, const char* name) { return AskAccount(server, Pinned(), name).status; }

    ad::test::TestDomain corp;
    const std::unique_ptr<ad::test::TestController> second = corp.MakeController("dc2.corp.test", "127.0.0.2");
};

TEST_F(ApxAtASickController, NextRequestIsServedByAnother) {
    corp.controller.SetBehave([](const std::string& operation, const std::string& name) {
        return operation == "search" && !name.empty() ? Behaviour::HangsUp : Behaviour::Answers;
    });
    Service service;
    EXPECT_EQ(Ask(kNear, "node01"), 1355U);
    EXPECT_EQ(Ask(kNear, "node01"), 0U);
    EXPECT_EQ(service.Stop(), 0);
}

TEST_F(ApxAtASickController, PreStagedAccountStaysForItsOwner) {
    corp.controller.SetRefuse([](const std::string& operation, const std::string&) {
        return operation == "modify" ? std::optional(ad::test::Result{kUnavailable, ""}) : std::nullopt;
    });
    Service service;
    EXPECT_EQ(Ask(kHere, "node07"), 1355U);
    EXPECT_THAT(ReadFile(kLedgerFile), EndsWith("F NODE07 192.0.2.10\n"));
    EXPECT_EQ(Ask(kNear, "node07"), 0U);
    EXPECT_THAT(ReadFile(kLedgerFile), HasSubstr("T NODE07 127.0.0.1 "));
    EXPECT_EQ(service.Stop(), 0);
}

}  // namespace
}  // namespace nimbrel::testing
