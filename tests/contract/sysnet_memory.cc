// The in-memory twin of the network library, and what tests can make it do.

#include "sysnet/memory.h"

#include "sysnet_contract.h"

namespace Memory = SysNet::Memory;
using Memory::Operation;

namespace {

struct MemoryNetwork {
    static constexpr char kInterface[] = "eth0";
    static constexpr char kAddress[] = "192.0.2.10";

    static void Reset() { Memory::Reset(); }
    static std::map<std::string, Names> HostsEntries() { return Memory::HostsEntries(); }
    static Names SearchDomains() { return Memory::SearchDomains(); }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Memory, NetworkContract, MemoryNetwork);

namespace {

class MemoryNetworkControl : public ::testing::Test {
 protected:
    MemoryNetworkControl() { Memory::Reset(); }
    ~MemoryNetworkControl() override { Memory::Reset(); }
};

TEST_F(MemoryNetworkControl, ManagementInterfaceIsWhatTheTestSays) {
    Memory::SetManagementInterface("bond0", "198.51.100.7");
    const auto interface = NetworkInfoImpl().GetManagementInterface();
    EXPECT_EQ(interface->GetName(), "bond0");
    EXPECT_EQ(interface->GetIpConfig().GetIpv4Address().GetStringAddress(), "198.51.100.7");
    Memory::ClearManagementInterface();
    EXPECT_THROW(NetworkInfoImpl().GetManagementInterface(), HostMgmtException);
}

TEST_F(MemoryNetworkControl, EveryOperationFailsWhenToldAndChangesNothing) {
    HostsFile hosts;
    NetworkInfoImpl network;
    DnsConfigImpl dns("defaultTcpipStack");
    dns.AddUserSearchDomain("corp.test");
    for (const Operation operation :
         {Operation::kMakeHostsFile, Operation::kAddOrReplaceEntry, Operation::kMakeNetworkInfo,
          Operation::kGetManagementInterface, Operation::kMakeDnsConfig, Operation::kAddUserSearchDomain,
          Operation::kSaveConfig}) {
        Memory::FailAlways(operation, "told to fail");
    }
    EXPECT_THROW(HostsFile(), HostMgmtException);
    EXPECT_THROW(NetworkInfoImpl(), HostMgmtException);
    EXPECT_THROW(DnsConfigImpl("defaultTcpipStack"), HostMgmtException);
    EXPECT_THROW(hosts.AddOrReplaceEntry("192.0.2.7", "node7", {}), HostMgmtException);
    EXPECT_THROW(network.GetManagementInterface(), HostMgmtException);
    EXPECT_THROW(dns.AddUserSearchDomain("lab.test"), HostMgmtException);
    EXPECT_THROW(dns.SaveConfig(), HostMgmtException);
    EXPECT_TRUE(Memory::HostsEntries().empty());
    EXPECT_TRUE(Memory::SearchDomains().empty());
    EXPECT_EQ(Memory::CallCount(Operation::kSaveConfig), 1);
    Memory::Reset();
    dns.SaveConfig();
    EXPECT_EQ(Memory::SearchDomains(), (Names{"corp.test"}));
}

TEST_F(MemoryNetworkControl, NextFailureHappensOnce) {
    Memory::FailNext(Operation::kAddOrReplaceEntry, "once");
    EXPECT_THROW(HostsFile().AddOrReplaceEntry("192.0.2.7", "node7", {}), HostMgmtException);
    HostsFile().AddOrReplaceEntry("192.0.2.7", "node7", {});
    EXPECT_EQ(Memory::CallCount(Operation::kAddOrReplaceEntry), 2);
    EXPECT_EQ(Memory::CallCount(Operation::kMakeHostsFile), 2);
}

TEST_F(MemoryNetworkControl, EachPathIsAFileOfItsOwn) {
    HostsFile("/tmp/hosts").AddOrReplaceEntry("192.0.2.7", "node7", {});
    EXPECT_TRUE(Memory::HostsEntries().empty());
    EXPECT_EQ(Memory::HostsEntries("/tmp/hosts").at("192.0.2.7"), (Names{"node7"}));
}

}  // namespace
