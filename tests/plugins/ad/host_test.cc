// What a host does on its own: checks before any network step, and a leave that asks nobody.

#include "addirectory/host.h"

#include <gmock/gmock.h>

#include "host_state.h"
#include "keytab.h"
#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Notes what it is told.
class RecordingLogIns : public LogInSoftware {
 public:
    void Enable(const JoinedDomain& domain) override { calls.push_back("enable " + domain.dnsName); }
    void Disable() override {
        calls.emplace_back("disable");
        if (refuses) {
            throw AdError(kStatusAccessDenied, "refused");
        }
    }
    void DisableDomain() override { calls.emplace_back("disable domain"); }
    void SetPreferredControllers(const std::vector<std::string>& controllers) override {
        if (refuses) {
            throw AdError(kStatusAccessDenied, "refused");
        }
        calls.push_back("controllers " + std::to_string(controllers.size()));
    }
    void SetSmartCardServices(const std::vector<std::string>& names) override { services = names; }
    std::vector<std::string> SmartCardServices() const override { return services; }

    std::vector<std::string> calls;
    std::vector<std::string> services;
    bool refuses = false;
};

class HostAlone : public Sandbox {
 protected:
    HostAlone() {
        _settings.keytab = Path("krb5.keytab");
        _settings.membership = Path("membership");
        _settings.nameServers = {"127.0.0.1"};
        _settings.nameServerPort = 1;
        _settings.avoidance = std::chrono::seconds(0);
    }

    Host TheHost() { return Host(_settings, _logIns); }

    void BeJoined() {
        HostState state;
        state.membership = Membership{"corp.test", "CORP", "S-1-5-21-1-2-3", "NODE01", "CN=NODE01,DC=corp,DC=test"};
        state.preferredControllers = {"dc1.corp.test"};
        state.Save(_settings.membership);
        KeytabChange keys(_settings.keytab);
        keys.SetKeys({"NODE01", "corp.test", 1}, kit::Secret("secret"));
        keys.Commit();
    }

    std::uint32_t Join(const std::string& domain = "corp.test", const std::string& host = "node01",
                       const std::string& unit = "") {
        return StatusOf([&] { TheHost().Join(domain, host, unit, {"admin1", "password"}); });
    }

    Settings _settings;
    RecordingLogIns _logIns;
};

TEST_F(HostAlone, AnswersOfAHostThatIsNotJoined) {
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "");
    EXPECT_EQ(TheHost().MachineAccountDN(), "");
    EXPECT_EQ(TheHost().TrustState(), kTrustStateNotMember);
    EXPECT_EQ(TheHost().TrustRelationship("corp.test"), kRelationshipNotMember);
    EXPECT_EQ(StatusOf([&] { TheHost().TrustedDomains(); }), kStatusFileNotFound);
    EXPECT_EQ(StatusOf([&] { TheHost().CanonicalUserName("user1"); }), kStatusNotJoined);
    EXPECT_EQ(StatusOf([&] { TheHost().HostPrincipal("corp.test"); }), kStatusNoSuchDomain);
    EXPECT_EQ(StatusOf([&] { TheHost().AnyController("", ""); }), kStatusNoSuchDomain);
    EXPECT_EQ(StatusOf([&] { TheHost().AnyController("", "no good"); }), kStatusInvalidDomainName);
    EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), kStatusNotJoined);
}

TEST_F(HostAlone, JoinChecksWhatItCanBeforeItAsksAnybody) {
    EXPECT_EQ(Join("no good"), kStatusInvalidDomainName);
    EXPECT_EQ(Join("corp.test", "abcdefghijklmnop"), kStatusInvalidComputerName);
    EXPECT_EQ(Join("corp.test", "node01", "a//b"), kStatusInvalidUnitName);
    EXPECT_EQ(Join("corp.test", "node01", "OU=a,DC=other"), kStatusFileNotFound);
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
    BeJoined();
    EXPECT_EQ(Join("no good", "abcdefghijklmnop"), kStatusAlreadyJoined) << "looked at first";
}

TEST_F(HostAlone, FailedJoinLeavesNothing) {
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
    EXPECT_THAT(_logIns.calls, IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(_settings.keytab));
    EXPECT_FALSE(std::filesystem::exists(_settings.membership));
    EXPECT_EQ(FileCount(Folder()), 1U) << "the lock";
}

TEST_F(HostAlone, KeytabThatCannotBeWrittenEndsAJoinEarly) {
    std::filesystem::create_directory(_settings.keytab);
    EXPECT_EQ(Join(), kStatusAccessDenied);
}

TEST_F(HostAlone, AnswersFromTheMembershipNeedNobody) {
    BeJoined();
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "corp.test");
    EXPECT_EQ(TheHost().ActiveDomain().netbiosName, "CORP");
    EXPECT_EQ(TheHost().MachineAccountDN(), "CN=NODE01,DC=corp,DC=test");
    EXPECT_EQ(TheHost().TrustRelationship("CORP"), kRelationshipOwnDomain);
    EXPECT_EQ(TheHost().TrustRelationship("Corp.Test."), kRelationshipOwnDomain);
    EXPECT_EQ(TheHost().HostPrincipal("corp.test"), "host/node01.corp.test@CORP.TEST");
}

TEST_F(HostAlone, WithoutAControllerTheStateSaysSo) {
    BeJoined();
    EXPECT_EQ(TheHost().TrustState(), kTrustStateNoController);
    EXPECT_EQ(TheHost().TrustRelationship("trust.test"), kRelationshipNoController);
    EXPECT_EQ(StatusOf([&] { TheHost().TrustedDomains(); }), kStatusNoSuchDomain);
    WriteFile(_settings.membership, "damaged");
    EXPECT_EQ(TheHost().TrustState(), kTrustStateUnreadable);
    EXPECT_EQ(TheHost().TrustRelationship("trust.test"), kRelationshipUnreadable);
}

TEST_F(HostAlone, LeaveWithoutCredentialsAsksNobody) {
    BeJoined();
    TheHost().Part(std::nullopt);
    EXPECT_THAT(_logIns.calls, ElementsAre("disable"));
    EXPECT_FALSE(std::filesystem::exists(_settings.keytab));
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "");
    EXPECT_THAT(TheHost().PreferredControllers(), IsEmpty());
    EXPECT_EQ(FileCount(Folder()), 1U) << "the lock";
}

TEST_F(HostAlone, LeaveWithCredentialsNeedsAController) {
    BeJoined();
    EXPECT_EQ(StatusOf([&] { TheHost().Part(UserCredentials{"admin1", "password"}); }), kStatusNoSuchDomain);
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "corp.test");
    EXPECT_THAT(_logIns.calls, IsEmpty());
}

TEST_F(HostAlone, LeaveThatFailsHalfWayCanBeRepeated) {
    BeJoined();
    _logIns.refuses = true;
    EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), kStatusAccessDenied);
    EXPECT_FALSE(std::filesystem::exists(_settings.keytab)) << "every step is tried";
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "corp.test");
    _logIns.refuses = false;
    EXPECT_EQ(StatusOf([&] { TheHost().Part(std::nullopt); }), 0U);
    EXPECT_EQ(TheHost().ActiveDomain().dnsName, "");
}

TEST_F(HostAlone, PreferredControllersAreKeptInOneSpelling) {
    TheHost().SetPreferredControllers({"DC2.Corp.Test.", "10.99.0.2"});
    EXPECT_THAT(TheHost().PreferredControllers(), ElementsAre("dc2.corp.test", "10.99.0.2"));
    EXPECT_EQ(StatusOf([&] { TheHost().SetPreferredControllers({"no good"}); }), kStatusInvalidComputerName);
    EXPECT_EQ(StatusOf([&] { TheHost().SetPreferredControllers(std::vector<std::string>(257, "dc1")); }),
              kStatusInvalidParameter);
    _logIns.refuses = true;
    EXPECT_EQ(StatusOf([&] { TheHost().SetPreferredControllers({"dc3.corp.test"}); }), kStatusAccessDenied);
    EXPECT_THAT(TheHost().PreferredControllers(), ElementsAre("dc2.corp.test", "10.99.0.2"));
    _logIns.refuses = false;
    TheHost().SetPreferredControllers({});
    EXPECT_THAT(TheHost().PreferredControllers(), IsEmpty());
}

TEST_F(HostAlone, SmartCardServicesAreCheckedAndPassedOn) {
    TheHost().SetSmartCardServices({"login", "sshd"});
    EXPECT_THAT(TheHost().SmartCardServices(), ElementsAre("login", "sshd"));
    for (const std::string& name : {std::string(), std::string(256, 'x'), std::string("a\nb"), std::string("\xff")}) {
        EXPECT_EQ(StatusOf([&] { TheHost().SetSmartCardServices({name}); }), kStatusInvalidParameter);
    }
    const std::vector<std::string> most(256, std::string(255, 'x'));
    TheHost().SetSmartCardServices(most);
    EXPECT_EQ(TheHost().SmartCardServices(), most);
    EXPECT_EQ(StatusOf([&] { TheHost().SetSmartCardServices(std::vector<std::string>(257, "x")); }),
              kStatusInvalidParameter);
}

TEST_F(HostAlone, MachineAccountJoinChecksItsTexts) {
    const auto join = [&](const std::string& account, const std::string& host = "node01") {
        return StatusOf([&] { TheHost().JoinWithMachineAccount({host, "corp.test", "", "", account, "secret"}); });
    };
    EXPECT_EQ(join("NODE01$", "abcdefghijklmnop"), kStatusInvalidComputerName);
    EXPECT_EQ(join("no good"), kStatusLogonFailure);
    EXPECT_EQ(join("NODE01$"), kStatusNoSuchDomain);
    BeJoined();
    EXPECT_EQ(join("NODE01$"), kStatusAlreadyJoined);
}

}  // namespace
}  // namespace nimbrel::ad::test
