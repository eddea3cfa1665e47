// Log-ins at controllers: who is taken for one, what is believed of it, and who is asked instead.

#include "session.h"

#include <gmock/gmock.h>

#include "joining_host.h"
#include "log_on.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

class Sessions : public JoiningHost {
 protected:
    Sessions() { settings.avoidance = std::chrono::seconds(60); }
    // What other tests have left.
    ~Sessions() override { Forget(); }

    void Forget() {
        settings.avoidance = std::chrono::seconds(0);
        for (const char* name : {"dc1.corp.test", "dc2.corp.test", "127.0.0.1", "127.0.0.2"}) {
            AvoidController(settings, name);
        }
    }

    Session Open(const std::vector<std::string>& preferred = {}) {
        return {settings, "corp.test", preferred, UserLogOn(settings, kAdministrator, InTime()), InTime()};
    }
    static Deadline InTime() { return Deadline::After(std::chrono::seconds(20)); }
    // One that the DNS names after dc1.
    std::unique_ptr<TestController> MakeSecond() {
        auto second = corp.MakeController("dc2.corp.test", "127.0.0.2");
        corp.names->AddService("_ldap._tcp.dc._msdcs.corp.test", "dc2.corp.test", {.priority = 10});
        return second;
    }
    // Replaces a part of the pings from the `first` on that is answered, counted from 0, to the `last`.
    static void ChangePings(TestController& controller, const std::string& from, const std::string& to, int first,
                            int last = 1'000'000) {
        controller.SetChangePing([=, count = 0](const std::string& reply) mutable {
            const bool isMeant = count >= first && count <= last;
            ++count;
            return isMeant ? std::string(reply).replace(reply.find(from), from.size(), to) : reply;
        });
    }

    static constexpr UserCredentials kAdministrator = {"admin1", "Secret-1"};
};

TEST_F(Sessions, MemberOfTheDomainIsNoController) {
    TestController member(corp.entries, corp.keys, {.host = "web.corp.test", .isMember = true},
                          {"127.0.0.6", corp.controller.LdapPort(), corp.controller.KerberosPort()});
    corp.names->Forget("dc1.corp.test");
    corp.names->AddAddress("dc1.corp.test", "127.0.0.6");
    EXPECT_EQ(StatusOf([&] { Open({"dc1.corp.test"}); }), kStatusNoSuchDomain);
    EXPECT_THAT(member.Requests(), Not(IsEmpty()));
    EXPECT_THAT(member.Requests(), Not(Contains("bind ")));
}

TEST_F(Sessions, WhatWasSaidInClearIsAskedForAgain) {
    ChangePings(corp.controller, "\4CORP", "\4EVIL", 0, 0);
    EXPECT_EQ(Open().At().facts.netbiosDomain, "CORP");
}

TEST_F(Sessions, ControllerHasOneName) {
    ChangePings(corp.controller, "\3dc1", "\3dc9", 1);
    EXPECT_EQ(StatusOf([&] { Open(); }), kStatusNoSuchDomain);
}

}  // namespace
}  // namespace nimbrel::ad::test
