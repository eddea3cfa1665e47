// The last known answer to every directory query.

#include "authentication/directory_cache.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using nimbrel::authentication::ActiveDirectoryStoreConfiguration;
using nimbrel::authentication::ADCache;
using nimbrel::authentication::Domain;
using nimbrel::authentication::StoreConfiguration;

using Texts = std::vector<std::string>;

constexpr auto kUnknown = static_cast<TrustRelationship>(6);

class Cache : public ::testing::Test {
 protected:
    // The host is a member of this domain.
    void Join(const std::string& dnsName, const std::string& netbiosName) {
        _cache.SetConfiguration(ActiveDirectoryStoreConfiguration(dnsName, netbiosName, {}, ""));
    }
    void Trust(const Texts& names) {
        std::deque<Domain> domains;
        for (const std::string& name : names) domains.emplace_back(name, name + "-short");
        _cache.SetTrustedDomains(std::move(domains));
    }

    // One pass that reaches these domains; each gets the given relationship.
    void Pass(const Texts& names, int relationship = 1) {
        _cache.IncreaseTrustRelationshipsGenNo();
        for (const std::string& name : names) Relate(name, relationship);
        _cache.CleanupOldTrustRelationships();
    }
    void Relate(const std::string& name, int relationship) {
        _cache.SetDomainTrustRelationship(name, static_cast<TrustRelationship>(relationship));
    }
    int RelationshipTo(const std::string& name) const { return _cache.GetDomainTrustRelationship(name); }

    bool Allows(const std::vector<const char*>& services) const {
        return _cache.IsSmartCardAuthenticationEnabled(services.data(), services.size());
    }
    static Texts NamesOf(const auto& domains) {
        Texts names;
        for (const Domain& domain : domains) names.push_back(domain.DNSName() + "/" + domain.NetBIOSName());
        return names;
    }

    ADCache _cache;
};

TEST_F(Cache, FreshCacheKnowsNothing) {
    const ActiveDirectoryStoreConfiguration configuration = _cache.GetConfiguration();
    EXPECT_EQ(configuration.DomainDNSName() + configuration.DomainNetBIOSName() + configuration.MachineAccountDN(), "");
    EXPECT_TRUE(configuration.PreferredDomainControllers().empty());
    EXPECT_FALSE(_cache.IsDomainMember());
    EXPECT_EQ(_cache.GetDomainTrustState(), 7);
    EXPECT_TRUE(_cache.GetTrustedDomains().empty());
    EXPECT_EQ(NamesOf(_cache.GetAllDomains()), Texts{"/"});
    EXPECT_EQ(RelationshipTo("corp.test"), 6);
    EXPECT_EQ(RelationshipTo(""), 6);
    EXPECT_FALSE(Allows({}));
}

TEST_F(Cache, ConfigurationIsKeptFieldByField) {
    _cache.SetConfiguration({"corp.test", "CORP", {"dc1", "dc2"}, "CN=node01"});
    const ActiveDirectoryStoreConfiguration configuration = _cache.GetConfiguration();
    EXPECT_EQ(configuration.DomainDNSName(), "corp.test");
    EXPECT_EQ(configuration.DomainNetBIOSName(), "CORP");
    EXPECT_EQ(configuration.PreferredDomainControllers(), (std::deque<std::string>{"dc1", "dc2"}));
    EXPECT_EQ(configuration.MachineAccountDN(), "CN=node01");
}

TEST_F(Cache, ArgumentLeavesWithTheOldConfiguration) {
    _cache.SetConfiguration({"old.test", "OLD", {"dc0"}, "CN=old"});
    ActiveDirectoryStoreConfiguration argument("new.test", "NEW", {"dc1", "dc2"}, "CN=new");
    _cache.SetConfiguration(std::move(argument));
    EXPECT_EQ(argument.DomainDNSName(), "old.test");  // NOLINT(bugprone-use-after-move): it holds the old values
    EXPECT_EQ(argument.DomainNetBIOSName(), "OLD");
    EXPECT_EQ(argument.PreferredDomainControllers(), std::deque<std::string>{"dc0"});
    EXPECT_EQ(argument.MachineAccountDN(), "CN=old");
    EXPECT_EQ(_cache.GetConfiguration().DomainDNSName(), "new.test");
}

TEST_F(Cache, HostIsAMemberWhileItsDomainHasADnsName) {
    Join("corp.test", "");
    EXPECT_TRUE(_cache.IsDomainMember());
    Join("", "CORP");
    EXPECT_FALSE(_cache.IsDomainMember());
}

TEST_F(Cache, AnyTrustStateIsPassedThrough) {
    for (const int state : {0, 2, 7, -1, 2147483647}) {
        _cache.SetDomainTrustState(static_cast<TrustState>(state));
        EXPECT_EQ(_cache.GetDomainTrustState(), state);
    }
}

TEST_F(Cache, TrustedDomainsAreReplacedWholeAndKeepTheirOrder) {
    Trust({"b", "a", "b"});
    EXPECT_EQ(NamesOf(_cache.GetTrustedDomains()), (Texts{"b/b-short", "a/a-short", "b/b-short"}));
    Trust({"c"});
    EXPECT_EQ(NamesOf(_cache.GetTrustedDomains()), Texts{"c/c-short"});
    Trust({});
    EXPECT_TRUE(_cache.GetTrustedDomains().empty());
}

TEST_F(Cache, AllDomainsBeginWithTheHostsOwnAndKeepDuplicates) {
    Join("corp.test", "CORP");
    Trust({"z.test", "corp.test", "a.test"});
    EXPECT_EQ(NamesOf(_cache.GetAllDomains()),
              (Texts{"corp.test/CORP", "z.test/z.test-short", "corp.test/corp.test-short", "a.test/a.test-short"}));
    EXPECT_EQ(_cache.GetAllDomains().capacity(), 4U) << "room for all of them is made at once";
}

TEST_F(Cache, OwnDomainIsListedEvenWithoutNames) {
    Trust({"a.test"});
    EXPECT_EQ(NamesOf(_cache.GetAllDomains()), (Texts{"/", "a.test/a.test-short"}));
}

TEST_F(Cache, CopiesDoNotFollowTheCache) {
    Join("corp.test", "CORP");
    Trust({"a.test"});
    const auto configuration = _cache.GetConfiguration();
    const auto trusted = _cache.GetTrustedDomains();
    const auto all = _cache.GetAllDomains();
    Join("lab.test", "LAB");
    Trust({});
    EXPECT_EQ(configuration.DomainDNSName(), "corp.test");
    EXPECT_EQ(trusted.size(), 1U);
    EXPECT_EQ(NamesOf(all).at(0), "corp.test/CORP");
}

TEST_F(Cache, RelationshipBelongsToExactlyItsName) {
    Relate("corp.test", 3);
    Relate("", 4);
    EXPECT_EQ(RelationshipTo("corp.test"), 3);
    EXPECT_EQ(RelationshipTo(""), 4);
    for (const std::string name : {"CORP.TEST", "corp.tes", "corp.test ", "corp"}) {
        EXPECT_EQ(RelationshipTo(name), kUnknown) << name;
    }
}

TEST_F(Cache, LaterRelationshipReplacesTheEarlier) {
    Relate("corp.test", 3);
    Relate("corp.test", -5);
    EXPECT_EQ(RelationshipTo("corp.test"), -5);
}

TEST_F(Cache, DomainLeftOutOfAPassReadsUnknownAfterIt) {
    Pass({"a", "b"}, 1);
    Pass({"b"}, 2);
    EXPECT_EQ(RelationshipTo("a"), kUnknown);
    EXPECT_EQ(RelationshipTo("b"), 2);
}

TEST_F(Cache, OldRelationshipIsKnownUntilThePassIsCleanedUp) {
    Pass({"a"}, 1);
    _cache.IncreaseTrustRelationshipsGenNo();
    EXPECT_EQ(RelationshipTo("a"), 1);
    _cache.CleanupOldTrustRelationships();
    EXPECT_EQ(RelationshipTo("a"), kUnknown);
}

TEST_F(Cache, CleanupWithoutANewPassKeepsEverything) {
    Pass({"a", "b", "c"});
    _cache.CleanupOldTrustRelationships();
    for (const std::string name : {"a", "b", "c"}) EXPECT_EQ(RelationshipTo(name), 1) << name;
}

TEST_F(Cache, EveryDomainButOneCanDisappear) {
    Texts names;
    for (int i = 0; i < 1000; ++i) names.push_back("d" + std::to_string(i) + ".test");
    Pass(names, 1);
    Pass({"d500.test"}, 2);
    for (const std::string& name : names) EXPECT_EQ(RelationshipTo(name), name == "d500.test" ? 2 : 6) << name;
}

// The pass number has eight bits: after 256 passes without a cleanup an old entry looks current.
TEST_F(Cache, PassNumberComesRoundAfter256) {
    for (const int passes : {255, 256, 257, 512}) {
        ADCache cache;
        cache.SetDomainTrustRelationship("a", static_cast<TrustRelationship>(1));
        for (int i = 0; i < passes; ++i) cache.IncreaseTrustRelationshipsGenNo();
        cache.CleanupOldTrustRelationships();
        EXPECT_EQ(cache.GetDomainTrustRelationship("a"), passes % 256 == 0 ? 1 : 6) << passes;
    }
}

TEST_F(Cache, ManyPassesWithCleanupNeverBringAnEntryBack) {
    Pass({"gone", "kept"});
    for (int i = 0; i < 600; ++i) {
        Pass({"kept"});
        ASSERT_EQ(RelationshipTo("gone"), kUnknown) << i;
        ASSERT_EQ(RelationshipTo("kept"), 1) << i;
    }
}

TEST_F(Cache, SmartCardLoginNeedsThePolicyAndEveryService) {
    const struct {
        bool policy;
        Texts enabled;
        std::vector<const char*> asked;
        bool answer;
    } kRows[] = {
        {false, {"s1", "s2"}, {}, false},
        {false, {"s1", "s2"}, {"s1"}, false},
        {true, {}, {}, true},
        {true, {"s1", "s2"}, {}, true},
        {true, {}, {"s1"}, false},
        {true, {"s1", "s2"}, {"s2"}, true},
        {true, {"s1", "s2"}, {"s2", "s1", "s2"}, true},
        {true, {"s1", "s2"}, {"s2", "s3"}, false},
        {true, {"s1", "s2"}, {"s3", "s1"}, false},
        {true, {"s1"}, {"S1"}, false},
        {true, {"s1"}, {""}, false},
        {true, {""}, {""}, true},
        {true, {"s1"}, {"s"}, false},
    };
    for (const auto& row : kRows) {
        _cache.SetPcscdSvcPolicyOn(row.policy);
        _cache.SetSmartCardEnabledServices(row.enabled);
        EXPECT_EQ(Allows(row.asked), row.answer) << &row - kRows;
    }
}

TEST_F(Cache, NoServicesMayBeGivenAsNull) {
    _cache.SetPcscdSvcPolicyOn(true);
    EXPECT_TRUE(_cache.IsSmartCardAuthenticationEnabled(nullptr, 0));
    _cache.SetPcscdSvcPolicyOn(false);
    EXPECT_FALSE(_cache.IsSmartCardAuthenticationEnabled(nullptr, 5)) << "while the policy is off nothing is looked at";
}

TEST_F(Cache, OnlyTheGivenNumberOfServicesIsAsked) {
    _cache.SetPcscdSvcPolicyOn(true);
    _cache.SetSmartCardEnabledServices({"s1"});
    const char* const services[] = {"s1", "s2"};
    EXPECT_TRUE(_cache.IsSmartCardAuthenticationEnabled(services, 1));
    EXPECT_FALSE(_cache.IsSmartCardAuthenticationEnabled(services, 2));
}

TEST(CacheShape, ConfigurationIsACopyableSnapshotOfAStore) {
    static_assert(std::is_base_of_v<StoreConfiguration, ActiveDirectoryStoreConfiguration>);
    static_assert(!std::is_copy_constructible_v<ADCache>);
    const ActiveDirectoryStoreConfiguration original("corp.test", "CORP", {"dc1"}, "CN=node01");
    ActiveDirectoryStoreConfiguration copy(original);
    copy = ActiveDirectoryStoreConfiguration("lab.test", "LAB", {}, "");
    EXPECT_EQ(original.DomainDNSName(), "corp.test");
    EXPECT_EQ(copy.DomainDNSName(), "lab.test");
    const std::unique_ptr<StoreConfiguration> base(new ActiveDirectoryStoreConfiguration(original));
    EXPECT_NE(dynamic_cast<ActiveDirectoryStoreConfiguration*>(base.get()), nullptr);
}

}  // namespace
