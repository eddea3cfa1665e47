// How a controller is found: what the name servers say, in which order hosts are tried, and who is passed over.

#include "controller_locator.h"

#include <gmock/gmock.h>

#include "dns.h"
#include "joining_host.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Locator : public JoiningHost {
 protected:
    // The name of the controller found, or why there is none.
    std::string Locate(const std::vector<std::string>& preferred = {}, const std::string& domain = "corp.test") {
        try {
            const auto deadline = Deadline::After(std::chrono::seconds(5));
            return LocateController(settings, domain, preferred, deadline).controller.name;
        } catch (const AdError& error) {
            return error.what();
        }
    }

    DnsAnswer Services(const std::string& name) {
        return Resolver(settings).Services(name, Deadline::After(std::chrono::seconds(60)));
    }
    std::vector<Endpoint> Addresses(const std::string& host) {
        return Resolver(settings).Addresses(host, Deadline::After(std::chrono::seconds(5)));
    }
    std::uint32_t ServicesStatus(const std::string& name) {
        return StatusOf([&] { Services(name); });
    }

    static constexpr char kServices[] = "_ldap._tcp.dc._msdcs.corp.test";
};

TEST_F(Locator, ServicesComeWithTheirAddresses) {
    const DnsAnswer answer = Services(kServices);
    ASSERT_THAT(answer.services, SizeIs(1));
    EXPECT_EQ(answer.services.front().host, "dc1.corp.test");
    ASSERT_THAT(answer.addresses, SizeIs(1));
    EXPECT_EQ(answer.addresses.begin()->second.Text(), "127.0.0.1");
    EXPECT_THAT(Services("_ldap._tcp.nowhere.test").services, IsEmpty()) << "an answer, too";
}

TEST_F(Locator, ServiceThatIsNotOfferedNamesNobody) {
    corp.names->AddService("_ldap._tcp.closed.test", "");
    EXPECT_THAT(Services("_ldap._tcp.closed.test").services, IsEmpty());
}

TEST_F(Locator, LongAnswersAreFetchedByConnection) {
    corp.names->truncates = true;
    EXPECT_THAT(Services(kServices).services, SizeIs(1));
    EXPECT_GE(corp.names->connections, 1);
    corp.names->confusesConnections = true;
    EXPECT_EQ(ServicesStatus(kServices), kStatusNoSuchDomain) << "an answer to another question";
}

TEST_F(Locator, CutAnswerIsGoodWhereTheWholeOneDoesNotCome) {
    corp.names->AddService(kServices, "dc2.corp.test");
    corp.names->truncates = true;
    corp.names->keepsOfCut = 1;
    auto found = Services(kServices).services;
    for (int tries = 0; found.size() < 2 && tries < 10; ++tries) found = Services(kServices).services;  // busy machines
    EXPECT_THAT(found, SizeIs(2));
    corp.names->confusesConnections = true;
    EXPECT_THAT(Services(kServices).services, SizeIs(1));
    corp.names->keepsConnectionsWaiting = true;
    settings.nameBudget = std::chrono::seconds(60);
    const auto start = Deadline::Clock::now();
    EXPECT_THAT(Services(kServices).services, SizeIs(1));
    EXPECT_LT(Deadline::Clock::now() - start, std::chrono::seconds(30));
}

// The first one is reached by datagrams alone, and cuts its answers.
TEST_F(Locator, NextNameServerIsAskedWhereTheFirstOnesAnswerDoesNotCome) {
    const DatagramService cutting("127.0.0.78", corp.names->Port(), [](std::string_view question) {
        std::string reply(question);
        reply[2] = static_cast<char>(reply[2] | 0x82);  // an answer, cut
        return reply;
    });
    const StreamService silent("127.0.0.78", corp.names->Port(), [](int socket) {
        char byte = 0;
        while (ReadExactly(socket, &byte, 1)) continue;
    });
    settings.nameServers = {"127.0.0.78", "127.0.0.1"};
    settings.nameBudget = std::chrono::seconds(4);
    EXPECT_THAT(Services(kServices).services, SizeIs(1));
}

// It announces the records that it has cut off, and takes no connections.
TEST_F(Locator, NextNameServerIsAskedWhereTheFirstOnesAnswerCannotBeRead) {
    const DatagramService cutting("127.0.0.78", corp.names->Port(), [](std::string_view question) {
        std::string reply(question);
        reply[2] = static_cast<char>(reply[2] | 0x82);
        reply[7] = 9;
        return reply;
    });
    settings.nameServers = {"127.0.0.78", "127.0.0.1"};
    EXPECT_THAT(Services(kServices).services, SizeIs(1));
}

TEST_F(Locator, FailingNameServerIsNoAnswer) {
    corp.names->refusal = 2;
    EXPECT_EQ(ServicesStatus(kServices), kStatusNoSuchDomain);
    EXPECT_EQ(StatusOf([&] { Services(std::string(300, 'x')); }), kStatusInvalidDomainName);
}

TEST_F(Locator, NextNameServerIsAsked) {
    settings.nameServers = {"127.0.0.77", "255.255.255.255", "127.0.0.1"};
    EXPECT_THAT(Services(kServices).services, SizeIs(1));
}

TEST_F(Locator, AddressesAreAskedForWhereTheyDoNotComeAlong) {
    corp.names->omitsAddresses = true;
    EXPECT_EQ(Locate(), "dc1.corp.test");
    EXPECT_THAT(Addresses("127.0.0.8"), SizeIs(1)) << "an address itself";
    EXPECT_THAT(Addresses("nowhere.test"), IsEmpty());
}

TEST_F(Locator, AddressThatDoesNotAnswerIsPassedOver) {
    corp.names->Forget("dc1.corp.test");
    corp.names->AddAddress("dc1.corp.test", "127.0.0.66");
    corp.names->AddAddress("dc1.corp.test", "127.0.0.1");
    EXPECT_EQ(Locate({"dc1.corp.test"}), "dc1.corp.test");
}

TEST_F(Locator, AddressesOfVersionSixAreTriedToo) {
    corp.names->AddAddress("six.corp.test", "::1");
    const auto addresses = Addresses("six.corp.test");
    ASSERT_THAT(addresses, SizeIs(1));
    EXPECT_EQ(addresses.front().Text(), "::1");
    EXPECT_THAT(Addresses("fe80::1"), SizeIs(1));
    EXPECT_EQ(Locate({"six.corp.test"}), "dc1.corp.test") << "nobody listens there";
    settings.nameServers = {"::1", "127.0.0.1"};
    EXPECT_THAT(Services(kServices).services, SizeIs(1)) << "nor there";
}

TEST_F(Locator, ThreeAddressesOfAHostAreTried) {
    corp.names->Forget("dc1.corp.test");
    for (const char* address : {"127.0.0.66", "127.0.0.67", "127.0.0.68", "127.0.0.1"}) {
        corp.names->AddAddress("many.corp.test", address);
    }
    corp.names->Forget(kServices);
    corp.names->AddService(kServices, "many.corp.test");
    settings.avoidance = std::chrono::seconds(60);
    AvoidController(settings, "dc1.corp.test");  // which the process may remember
    EXPECT_THAT(Locate(), HasSubstr("'many.corp.test': The connection failed: Connection refused"));
    settings.avoidance = std::chrono::seconds(0);
    AvoidController(settings, "dc1.corp.test");
}

TEST_F(Locator, AddressesThatCannotBeReachedDoNotHideTheOneThatCan) {
    for (const char* address : {"255.255.255.255", "255.255.255.255", "127.0.0.1"}) {
        corp.names->AddAddress("many.corp.test", address);
    }
    corp.names->Forget(kServices);
    corp.names->AddService(kServices, "many.corp.test");
    settings.avoidance = std::chrono::seconds(60);
    AvoidController(settings, "dc1.corp.test");  // which the process may remember
    EXPECT_EQ(Locate(), "dc1.corp.test");
    settings.avoidance = std::chrono::seconds(0);
    AvoidController(settings, "dc1.corp.test");
}

TEST_F(Locator, EmptyAnswerIsNoPing) {
    corp.controller.SetRefuse([](const std::string& operation, const std::string&) {
        return operation == "ping" ? std::optional(Result{0}) : std::nullopt;
    });
    EXPECT_THAT(Locate(), HasSubstr("is no controller of"));
}

TEST_F(Locator, FaultIsTold) {
    EXPECT_THAT(Locate({}, "fault1.test"), HasSubstr("No controller of the domain 'fault1.test' is reachable"));
    corp.names->AddService("_ldap._tcp.dc._msdcs.fault2.test", "dc1.corp.test");
    EXPECT_THAT(Locate({}, "fault2.test"), HasSubstr("'127.0.0.1' is no controller of 'fault2.test'"));
    corp.names->refusal = 2;
    EXPECT_THAT(Locate({}, "fault3.test"), HasSubstr("No name server answers for '_ldap._tcp.dc._msdcs.fault3.test'"));
}

TEST_F(Locator, AnswerThatIsNoPingIsRefused) {
    corp.controller.SetChangePing([](const std::string& reply) { return reply.substr(0, 20); });
    EXPECT_THAT(Locate(), HasSubstr("is no controller of"));
}

TEST_F(Locator, ControllerWithoutARootIsRefused) {
    Refuse("search", {kInsufficientAccess});
    EXPECT_THAT(Locate(), HasSubstr("Unable to read the controller's answer"));
}

TEST_F(Locator, SlowControllerIsAskedOnceMore) {
    Behave("ping", Behaviour::HangsUp, 1);
    EXPECT_EQ(Locate(), "dc1.corp.test");
}

// Two controllers of a domain, in two sites, of which the host belongs to the second one.
class Sites : public Locator {
 protected:
    // The process remembers what it has found, so each test has a domain of its own.
    explicit Sites(const std::string& domain_ = "sites.test")
        : domain(domain_),
          far(corp.entries, corp.keys, {"far." + domain, domain, "SITES", "Far", "Near", 0}, At("127.0.0.4")),
          near(corp.entries, corp.keys, {"near." + domain, domain, "SITES", "Near", "Near"}, At("127.0.0.5")) {
        corp.names->AddAddress("far." + domain, "127.0.0.4");
        corp.names->AddAddress("near." + domain, "127.0.0.5");
        corp.names->AddService("_ldap._tcp.dc._msdcs." + domain, "far." + domain);
    }

    ControllerAddress At(const std::string& address) const {
        return {address, corp.controller.LdapPort(), corp.controller.KerberosPort()};
    }
    void TellOfTheSite() { corp.names->AddService("_ldap._tcp.near._sites.dc._msdcs." + domain, "near." + domain); }

    const std::string domain;
    TestController far;
    TestController near;
};

TEST_F(Sites, ControllerElsewhereIsGoodWhereTheSiteHasNone) {
    EXPECT_EQ(Locate({}, domain), "far.sites.test");
    TellOfTheSite();
    EXPECT_EQ(Locate({"far.sites.test"}, domain), "far.sites.test") << "preferred whatever its site is";
    settings.avoidance = std::chrono::seconds(60);
    AvoidController(settings, "far.sites.test");
    EXPECT_EQ(Locate({}, domain), "near.sites.test");
}

class CloserSites : public Sites {
 protected:
    CloserSites() : Sites("closer.test") {}
};

TEST_F(CloserSites, ControllerOfTheOwnSiteIsTakenInstead) {
    TellOfTheSite();
    EXPECT_EQ(Locate({}, domain), "near.closer.test");
}

TEST_F(Locator, OwnSettingOfTheSiteComesFirst) {
    const auto branch = corp.MakeController("branch.corp.test", "127.0.0.8");
    corp.names->AddService("_ldap._tcp.branch._sites.dc._msdcs.corp.test", "branch.corp.test");
    settings.site = "Branch";
    settings.avoidance = std::chrono::seconds(60);
    AvoidController(settings, "dc1.corp.test");
    EXPECT_EQ(Locate(), "branch.corp.test");
}

TEST_F(Locator, ThoseWhoDidNotAnswerAreAskedLast) {
    settings.avoidance = std::chrono::seconds(60);
    AvoidController(settings, "dc1.corp.test");
    EXPECT_EQ(Locate(), "dc1.corp.test") << "where there is nobody else";
    const auto second = corp.MakeController("dc3.corp.test", "127.0.0.2");
    corp.names->AddService(kServices, "dc3.corp.test", {10});
    AvoidController(settings, "dc1.corp.test");
    EXPECT_EQ(Locate(), "dc3.corp.test");
}

}  // namespace
}  // namespace nimbrel::ad::test
