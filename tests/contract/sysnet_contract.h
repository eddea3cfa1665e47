// What every network library must do, as suites that the real one and its in-memory twin pass and that a host's own
// library can be put through:
//
//     struct OwnNetwork {
//         static void Reset() { ... }                                                    before each test
//         static std::map<std::string, std::vector<std::string>> HostsEntries() { ... }  names by address
//         static std::vector<std::string> SearchDomains() { ... }                        those in force after SaveConfig
//         static constexpr char kInterface[] = "eth0";                                   the management interface
//         static constexpr char kAddress[] = "192.0.2.10";
//     };
//     INSTANTIATE_TYPED_TEST_SUITE_P(Own, NetworkContract, OwnNetwork);

#ifndef TESTS_CONTRACT_SYSNET_CONTRACT_H_
#define TESTS_CONTRACT_SYSNET_CONTRACT_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "sysnet/dns_config.h"
#include "sysnet/hosts_file.h"
#include "sysnet/network_info.h"

using HostMgmt::Lib::HostMgmtException;
using SysNet::Network::DnsConfigImpl;
using SysNet::Network::HostsFile;
using SysNet::Network::NetworkInfoImpl;
using Names = std::vector<std::string>;

template <class Backend>
class NetworkContract : public ::testing::Test {
 protected:
    NetworkContract() { Backend::Reset(); }

    static Names NamesOf(const std::string& address) {
        const auto entries = Backend::HostsEntries();
        const auto found = entries.find(address);
        return found == entries.end() ? Names() : found->second;
    }
    static void SaveDomains(const Names& domains) {
        DnsConfigImpl dns("defaultTcpipStack");
        for (const std::string& domain : domains) dns.AddUserSearchDomain(domain);
        dns.SaveConfig();
    }
};

TYPED_TEST_SUITE_P(NetworkContract);

TYPED_TEST_P(NetworkContract, HostsEntryIsAdded) {
    HostsFile().AddOrReplaceEntry("192.0.2.77", "node77.corp.test", {"node77", "alias"});
    EXPECT_EQ(this->NamesOf("192.0.2.77"), (Names{"node77.corp.test", "node77", "alias"}));
}

TYPED_TEST_P(NetworkContract, HostsEntryOfAnAddressIsReplaced) {
    HostsFile hosts;
    hosts.AddOrReplaceEntry("192.0.2.77", "node77.old.test", {"node77", "alias"});
    hosts.AddOrReplaceEntry("192.0.2.77", "node77.corp.test", {"node77"});
    EXPECT_EQ(this->NamesOf("192.0.2.77"), (Names{"node77.corp.test", "node77"}));
}

TYPED_TEST_P(NetworkContract, HostsEntriesOfOtherAddressesStay) {
    HostsFile hosts;
    hosts.AddOrReplaceEntry("192.0.2.77", "node77.corp.test", {});
    hosts.AddOrReplaceEntry("192.0.2.7", "node7.corp.test", {});
    hosts.AddOrReplaceEntry("2001:db8::7", "node7.corp.test", {"node7"});
    EXPECT_EQ(this->NamesOf("192.0.2.77"), (Names{"node77.corp.test"}));
    EXPECT_EQ(this->NamesOf("192.0.2.7"), (Names{"node7.corp.test"}));
    EXPECT_EQ(this->NamesOf("2001:db8::7"), (Names{"node7.corp.test", "node7"}));
}

TYPED_TEST_P(NetworkContract, OtherSpellingOfAnAddressIsTheSameEntry) {
    HostsFile hosts;
    hosts.AddOrReplaceEntry("2001:db8:0:0::7", "node7.old.test", {});
    hosts.AddOrReplaceEntry("2001:DB8::7", "node7.corp.test", {});
    EXPECT_EQ(this->NamesOf("2001:db8:0:0::7"), Names());
    EXPECT_EQ(this->NamesOf("2001:DB8::7"), (Names{"node7.corp.test"}));
}

TYPED_TEST_P(NetworkContract, HostileAddressesAreRefused) {
    const auto before = TypeParam::HostsEntries();
    for (const std::string& address :
         Names{"", " ", "192.0.2", "192.0.2.010", "192.0.2.10 evil", "192.0.2.10\n203.0.113.1", "#", "node01", "::g",
               std::string("192.0.2.10\0x", 12)}) {
        EXPECT_THROW(HostsFile().AddOrReplaceEntry(address, "node01.corp.test", {}), HostMgmtException) << address;
    }
    EXPECT_EQ(TypeParam::HostsEntries(), before);
}

TYPED_TEST_P(NetworkContract, HostileHostNamesAreRefused) {
    const auto before = TypeParam::HostsEntries();
    for (const std::string& name : Names{"", " ", "a b", "a\tb", "a\n203.0.113.1 evil", "a\r", "a#b", "#",
                                         std::string("a\0b", 3), "\x7f", "\xc3\xbc"}) {
        EXPECT_THROW(HostsFile().AddOrReplaceEntry("192.0.2.77", name, {}), HostMgmtException) << name;
        EXPECT_THROW(HostsFile().AddOrReplaceEntry("192.0.2.77", "node77", {"ok", name}), HostMgmtException) << name;
    }
    EXPECT_EQ(TypeParam::HostsEntries(), before);
}

TYPED_TEST_P(NetworkContract, EveryByteIsFitForAHostNameOrNot) {
    for (int value = 0; value < 0x100; ++value) {
        const std::string name(1, static_cast<char>(value));
        const bool isFit = value > ' ' && value < 0x7f && value != '#';
        bool isTaken = true;
        try {
            HostsFile().AddOrReplaceEntry("192.0.2.77", name, {});
        } catch (const HostMgmtException& error) {
            isTaken = false;
            EXPECT_EQ(error.what(), "'" + name.substr(0, name.find('\0')) + (value == 0 ? "" : "' is not a host name"));
        }
        EXPECT_EQ(isTaken, isFit) << value;
    }
}

TYPED_TEST_P(NetworkContract, EveryByteIsFitForASearchDomainOrNot) {
    DnsConfigImpl dns("defaultTcpipStack");
    for (int value = 0; value < 0x100; ++value) {
        const bool isFit = (value >= 'a' && value <= 'z') || (value >= 'A' && value <= 'Z') ||
                           (value >= '0' && value <= '9') || value == '-' || value == '_';
        const std::string domain(1, static_cast<char>(value));
        if (isFit) {
            EXPECT_NO_THROW(dns.AddUserSearchDomain(domain)) << value;
        } else {
            EXPECT_THROW(dns.AddUserSearchDomain(domain), HostMgmtException) << value;
        }
    }
}

TYPED_TEST_P(NetworkContract, SearchDomainsHaveLabelsOf63And253CharactersAtMost) {
    DnsConfigImpl dns("defaultTcpipStack");
    const std::string label(63, 'a');
    const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'a');
    EXPECT_NO_THROW(dns.AddUserSearchDomain(label));
    EXPECT_NO_THROW(dns.AddUserSearchDomain(longest));
    EXPECT_NO_THROW(dns.AddUserSearchDomain(longest + "."));
    EXPECT_THROW(dns.AddUserSearchDomain(longest + "a"), HostMgmtException);
    EXPECT_THROW(dns.AddUserSearchDomain(longest + "a."), HostMgmtException);
    EXPECT_THROW(dns.AddUserSearchDomain("corp.test.."), HostMgmtException);
}

TYPED_TEST_P(NetworkContract, RefusalsTellTheTextAndWhatItIsNot) {
    const auto textOf = [](const auto& call) -> std::string {
        try {
            call();
        } catch (const HostMgmtException& error) {
            return error.what();
        }
        return "no refusal";
    };
    DnsConfigImpl dns("defaultTcpipStack");
    EXPECT_EQ(textOf([] { HostsFile().AddOrReplaceEntry("x", "node77", {}); }), "'x' is not an IP address");
    EXPECT_EQ(textOf([&] { dns.AddUserSearchDomain("a b"); }), "'a b' is not a domain name");
    EXPECT_EQ(textOf([] { DnsConfigImpl{"x"}; }),
              "'x' is not a network stack of this host; the only one is 'defaultTcpipStack'");
}

TYPED_TEST_P(NetworkContract, CaseOfASearchDomainDoesNotMatter) {
    this->SaveDomains({"azby.test"});
    this->SaveDomains({"AZBY.TEST"});
    this->SaveDomains({"azby"});
    EXPECT_EQ(TypeParam::SearchDomains(), (Names{"azby.test", "azby"}));
}

TYPED_TEST_P(NetworkContract, SearchDomainsAreSavedInOrder) {
    this->SaveDomains({"corp.test", "lab.corp.test"});
    EXPECT_EQ(TypeParam::SearchDomains(), (Names{"corp.test", "lab.corp.test"}));
    this->SaveDomains({"branch.test"});
    EXPECT_EQ(TypeParam::SearchDomains(), (Names{"corp.test", "lab.corp.test", "branch.test"}));
}

TYPED_TEST_P(NetworkContract, SearchDomainIsNeverSavedTwice) {
    this->SaveDomains({"corp.test", "CORP.test", "corp.test."});
    this->SaveDomains({"Corp.Test"});
    EXPECT_EQ(TypeParam::SearchDomains(), (Names{"corp.test"}));
}

TYPED_TEST_P(NetworkContract, NothingIsSavedBeforeSaveConfig) {
    DnsConfigImpl dns("defaultTcpipStack");
    dns.AddUserSearchDomain("corp.test");
    EXPECT_EQ(TypeParam::SearchDomains(), Names());
    dns.SaveConfig();
    dns.SaveConfig();
    EXPECT_EQ(TypeParam::SearchDomains(), (Names{"corp.test"}));
}

TYPED_TEST_P(NetworkContract, OnlyTheDefaultStackExists) {
    for (const std::string& name : Names{"", "vmotion", "DefaultTcpipStack", "defaultTcpipStack "}) {
        EXPECT_THROW(DnsConfigImpl{name}, HostMgmtException) << name;
    }
}

TYPED_TEST_P(NetworkContract, HostileSearchDomainsAreRefused) {
    DnsConfigImpl dns("defaultTcpipStack");
    for (const std::string& domain : Names{"",
                                           ".",
                                           "..",
                                           "a..b",
                                           ".a",
                                           "corp.test\nnameserver 203.0.113.1",
                                           "a b",
                                           "a\tb",
                                           "a#b",
                                           "a;b",
                                           "~a",
                                           "a/b",
                                           "a:b",
                                           "a@b",
                                           "a[b",
                                           "a`b",
                                           "a{b",
                                           "a=b",
                                           std::string("a\0b", 3),
                                           std::string(64, 'a'),
                                           std::string(64, 'a') + ".test",
                                           "\xc3\xbc.test"}) {
        EXPECT_THROW(dns.AddUserSearchDomain(domain), HostMgmtException) << domain;
    }
    dns.SaveConfig();
    EXPECT_EQ(TypeParam::SearchDomains(), Names());
}

TYPED_TEST_P(NetworkContract, ManagementInterfaceHasNameAndAddress) {
    const auto interface = NetworkInfoImpl().GetManagementInterface();
    ASSERT_NE(interface, nullptr);
    EXPECT_EQ(interface->GetName(), TypeParam::kInterface);
    EXPECT_EQ(interface->GetIpConfig().GetIpv4Address().GetStringAddress(), TypeParam::kAddress);
}

REGISTER_TYPED_TEST_SUITE_P(NetworkContract, HostsEntryIsAdded, HostsEntryOfAnAddressIsReplaced,
                            HostsEntriesOfOtherAddressesStay, OtherSpellingOfAnAddressIsTheSameEntry,
                            HostileAddressesAreRefused, HostileHostNamesAreRefused, EveryByteIsFitForAHostNameOrNot,
                            EveryByteIsFitForASearchDomainOrNot, SearchDomainsHaveLabelsOf63And253CharactersAtMost,
                            RefusalsTellTheTextAndWhatItIsNot, CaseOfASearchDomainDoesNotMatter,
                            SearchDomainsAreSavedInOrder, SearchDomainIsNeverSavedTwice, NothingIsSavedBeforeSaveConfig,
                            OnlyTheDefaultStackExists, HostileSearchDomainsAreRefused,
                            ManagementInterfaceHasNameAndAddress);

#endif  // TESTS_CONTRACT_SYSNET_CONTRACT_H_
