// Which interface stands for the host, with interfaces, addresses and routes of every kind made for real.

#include "sysnet/network_info.h"

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <sstream>

#include "host.h"

namespace {

std::vector<std::string> answers;  // what the next calls receive in place of the kernel's; an empty one is a time-out

}  // namespace

extern "C" {

ssize_t __real_recv(int descriptor, void* buffer, std::size_t size, int flags);
ssize_t __wrap_recv(int descriptor, void* buffer, std::size_t size, int flags);

ssize_t __wrap_recv(int descriptor, void* buffer, std::size_t size, int flags) {
    if (answers.empty()) return __real_recv(descriptor, buffer, size, flags);
    const std::string answer = answers.front();
    answers.erase(answers.begin());
    if (answer.empty()) {
        errno = EAGAIN;
        return -1;
    }
    std::memcpy(buffer, answer.data(), answer.size());
    return static_cast<ssize_t>(answer.size());
}

}  // extern "C"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();

using HostMgmt::Lib::HostMgmtException;
using SysNet::Network::NetworkInfoImpl;

constexpr char kConf[] = "/etc/nimbrel/network.conf";

// Each test starts with eth0 (192.0.2.10/24, default route of metric 100) and eth1 (198.51.100.7/24), both up.
class NetworkInfoTest : public ::testing::Test {
 protected:
    void SetUp() override {
        std::filesystem::create_directories("/etc/nimbrel");
        _etc.emplace(host::Mount::Memory("/etc/nimbrel", "64k"));
        Ip("link add eth1 type veth peer name eth1-peer");
        Ip("address add 198.51.100.7/24 dev eth1");
        Ip("link set eth1 up");
        Ip("link set eth1-peer up");
        Ip("link set eth0 up");
        Ip("route replace default via 192.0.2.1 dev eth0 metric 100");
        Ip("route flush default metric 0");
    }
    void TearDown() override {
        _etc.reset();
        Ip("link delete eth1");
        Ip("route flush default");
        Ip("link set eth0 up");
    }

    // An empty folder, even where the machine's own has contents that belong to somebody else.
    std::optional<host::Mount> _etc;

    // Runs `ip` with these words.
    static void Ip(const std::string& line) {
        std::vector<std::string> words = {"/sbin/ip"};
        std::istringstream stream(line);
        for (std::string word; stream >> word;) words.push_back(word);
        host::Run(words);
    }
    // A message that holds one number.
    static std::string Message(int type, int flags, int number) {
        struct {
            nlmsghdr header;
            int number;
        } message = {};
        message.header.nlmsg_len = sizeof message;
        message.header.nlmsg_type = static_cast<__u16>(type);
        message.header.nlmsg_flags = static_cast<__u16>(flags | NLM_F_MULTI);
        message.number = number;
        return {reinterpret_cast<const char*>(&message), sizeof message};
    }

    static void Conf(const std::string& content) { WriteFile(kConf, content); }

    // "eth0 192.0.2.10", or the text of the failure.
    static std::string Management() {
        try {
            const auto interface = NetworkInfoImpl().GetManagementInterface();
            return interface->GetName() + " " + interface->GetIpConfig().GetIpv4Address().GetStringAddress();
        } catch (const HostMgmtException& error) {
            return error.what();
        }
    }
};

TEST_F(NetworkInfoTest, DefaultRouteDecides) {
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
    Ip("route delete default");
    Ip("route add default via 198.51.100.1");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
}

TEST_F(NetworkInfoTest, LowestMetricWins) {
    Ip("route add default via 198.51.100.1 metric 50");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
    Ip("route add default via 192.0.2.1 metric 49");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
    // No metric is the lowest.
    Ip("route add default via 198.51.100.1");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
}

TEST_F(NetworkInfoTest, HighestMetricThatThereIsStillCounts) {
    Ip("route flush default");
    Ip("route add default via 198.51.100.1 metric 4294967295");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
}

TEST_F(NetworkInfoTest, DefaultRouteOfAnotherTableDoesNotCount) {
    Ip("route add default via 198.51.100.1 table 100");
    Ip("route add default via 198.51.100.1 table 70000");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
}

TEST_F(NetworkInfoTest, OtherRoutesDoNotCount) {
    Ip("route add 203.0.113.0/24 via 198.51.100.1");
    Ip("route add 0.0.0.0/1 via 198.51.100.1");
    Ip("-6 route add default dev eth1");
    Ip("route add blackhole default metric 1");
    Ip("route add unreachable default metric 2");
    Ip("route add local default dev eth1 table main metric 3");
    Ip("route add default via 198.51.100.1 tos 0x10 metric 4");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
    Ip("route flush default");
}

TEST_F(NetworkInfoTest, DefaultRouteToAnInterfaceWithoutAddressIsPassedOver) {
    Ip("address flush dev eth1");
    Ip("route add default dev eth1 metric 1");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
}

TEST_F(NetworkInfoTest, MultipathRouteTakesItsFirstHopWithAnAddress) {
    Ip("route flush default");
    Ip("route add default nexthop via 198.51.100.1 dev eth1 nexthop via 192.0.2.1 dev eth0");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
    Ip("route flush default");
    Ip("address flush dev eth1");
    Ip("route add default nexthop dev eth1 nexthop via 192.0.2.1 dev eth0");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
}

TEST_F(NetworkInfoTest, RouteOverANextHopObjectCounts) {
    Ip("nexthop add id 7 via 198.51.100.1 dev eth1");
    Ip("route add default nhid 7 metric 1");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
    Ip("nexthop delete id 7");
}

TEST_F(NetworkInfoTest, WithoutDefaultRouteTheFirstThatIsUpCounts) {
    Ip("route flush default");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
    Ip("link set eth0 down");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
}

TEST_F(NetworkInfoTest, LoopbackNeverStandsForTheHost) {
    Ip("route flush default");
    Ip("link set eth0 down");
    Ip("link set eth1 down");
    Ip("address add 203.0.113.9/32 dev lo");
    EXPECT_EQ(Management(), "No network interface is up and has an IPv4 address");
    Ip("address delete 203.0.113.9/32 dev lo");
}

TEST_F(NetworkInfoTest, InterfaceWithOnlyIpv6IsPassedOver) {
    Ip("route flush default");
    Ip("link set eth0 down");
    Ip("address flush dev eth1");
    Ip("address add 2001:db8::7/64 dev eth1 nodad");
    EXPECT_EQ(Management(), "No network interface is up and has an IPv4 address");
}

TEST_F(NetworkInfoTest, FirstAddressOfAnInterfaceCounts) {
    Ip("address add 192.0.2.200/24 dev eth0");
    Ip("address add 203.0.113.5/24 dev eth0");
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
    Ip("address delete 203.0.113.5/24 dev eth0");
    Ip("address delete 192.0.2.200/24 dev eth0");
}

TEST_F(NetworkInfoTest, GlobalAddressComesBeforeAnotherScope) {
    Ip("address flush dev eth1");
    Ip("address add 169.254.7.7/16 dev eth1 scope link");
    Ip("address add 198.51.100.8/24 dev eth1");
    Conf("management-interface = eth1\n");
    EXPECT_EQ(Management(), "eth1 198.51.100.8");
    Ip("address delete 198.51.100.8/24 dev eth1");
    EXPECT_EQ(Management(), "eth1 169.254.7.7");
}

TEST_F(NetworkInfoTest, LoopbackAddressComesLastWhateverItsScope) {
    Ip("address flush dev eth1");
    Ip("address add 127.9.0.1/32 dev eth1 scope global");
    Ip("address add 198.51.100.8/24 dev eth1");
    Conf("management-interface = eth1\n");
    EXPECT_EQ(Management(), "eth1 198.51.100.8");
    Ip("address delete 198.51.100.8/24 dev eth1");
    Ip("address add 169.254.7.7/16 dev eth1 scope link");
    EXPECT_EQ(Management(), "eth1 169.254.7.7");
    Ip("address delete 169.254.7.7/16 dev eth1");
    EXPECT_EQ(Management(),
              "Cannot use /etc/nimbrel/network.conf: the interface 'eth1' has no IPv4 address but a loopback one");
}

TEST_F(NetworkInfoTest, PointToPointLinkHasItsOwnEndsAddress) {
    Ip("address flush dev eth1");
    Ip("address add 203.0.113.1 peer 203.0.113.2/32 dev eth1");
    Conf("management-interface = eth1\n");
    EXPECT_EQ(Management(), "eth1 203.0.113.1");
}

TEST_F(NetworkInfoTest, LabelOfAnAddressIsNoName) {
    Ip("address flush dev eth1");
    Ip("address add 198.51.100.9/24 dev eth1 label eth1:mgmt");
    Conf("management-interface = eth1\n");
    EXPECT_EQ(Management(), "eth1 198.51.100.9");
}

TEST_F(NetworkInfoTest, NamedInterfaceGoesBeforeTheDefaultRoute) {
    for (const std::string content :
         {"management-interface = eth1\n", "management-interface=eth1", "\t management-interface \t=  eth1 \r\n",
          "\rmanagement-interface\v=\feth1\r \n", "# a comment\n\n   # another\nmanagement-interface = eth1\n"}) {
        Conf(content);
        EXPECT_EQ(Management(), "eth1 198.51.100.7") << content;
    }
}

TEST_F(NetworkInfoTest, NamedInterfaceMayBeDown) {
    Ip("link set eth1 down");
    Conf("management-interface = eth1\n");
    EXPECT_EQ(Management(), "eth1 198.51.100.7");
}

TEST_F(NetworkInfoTest, FileThatNamesNoneChangesNothing) {
    for (const std::string content : {"", "\n", "# management-interface = eth1\n", " \t\n#\n"}) {
        Conf(content);
        EXPECT_EQ(Management(), "eth0 192.0.2.10") << content;
    }
}

TEST_F(NetworkInfoTest, NamedInterfaceMustExistAndHaveAnAddress) {
    Conf("management-interface = eth7\n");
    EXPECT_EQ(Management(), "Cannot use /etc/nimbrel/network.conf: there is no interface 'eth7'");
    Conf("management-interface = eth1-peer\n");
    EXPECT_EQ(Management(), "Cannot use /etc/nimbrel/network.conf: the interface 'eth1-peer' has no IPv4 address");
}

// It would take the place of localhost in the hosts file.
TEST_F(NetworkInfoTest, NamedLoopbackMustHaveAnAddressOfTheHosts) {
    Conf("management-interface = lo\n");
    EXPECT_EQ(Management(),
              "Cannot use /etc/nimbrel/network.conf: the interface 'lo' has no IPv4 address but a loopback one");
    Ip("address add 203.0.113.9/32 dev lo");
    EXPECT_EQ(Management(), "lo 203.0.113.9");
    Ip("address delete 203.0.113.9/32 dev lo");
    Ip("address add 203.0.113.9/32 dev lo scope host");
    EXPECT_EQ(Management(), "lo 203.0.113.9");
    Ip("address delete 203.0.113.9/32 dev lo");
}

// ---------------------------------------------------------------- what the kernel may answer

constexpr char kAsk[] = "Cannot ask the kernel about the network interfaces: ";

TEST_F(NetworkInfoTest, DumpThatTheKernelBreaksOffIsNoAnswer) {
    answers = {Message(NLMSG_DONE, 0, -EMSGSIZE)};
    EXPECT_EQ(Management(), std::string(kAsk) + "Message too long");
}

TEST_F(NetworkInfoTest, RefusalOfTheKernelIsTold) {
    answers = {Message(NLMSG_ERROR, 0, -EPERM)};
    EXPECT_EQ(Management(), std::string(kAsk) + "Operation not permitted");
}

TEST_F(NetworkInfoTest, TornDumpIsAskedForAgain) {
    answers = {Message(NLMSG_DONE, NLM_F_DUMP_INTR, 0)};
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
}

TEST_F(NetworkInfoTest, DumpThatIsTornEachTimeIsAFailure) {
    answers.assign(5, Message(NLMSG_DONE, NLM_F_DUMP_INTR, 0));
    EXPECT_EQ(Management(), std::string(kAsk) + "Interrupted system call");
    EXPECT_TRUE(answers.empty());
}

TEST_F(NetworkInfoTest, CutMessageIsAFailure) {
    std::string message = Message(NLMSG_DONE, 0, 0);
    message.resize(message.size() - 1);
    answers = {message};
    EXPECT_EQ(Management(), std::string(kAsk) + "Protocol error");
}

TEST_F(NetworkInfoTest, KernelThatDoesNotAnswerIsATimeOut) {
    answers = {""};
    EXPECT_EQ(Management(), std::string(kAsk) + "Connection timed out");
}

TEST_F(NetworkInfoTest, WrongLineIsNamed) {
    const std::string where = "Cannot use /etc/nimbrel/network.conf, line ";
    const std::string expected = ": expected 'management-interface = NAME'";
    const struct {
        std::string content;
        std::string error;
    } rows[] = {
        {"eth1\n", where + "1" + expected},
        {"# x\nmanagement-interface\n", where + "2" + expected},
        {"management-interface =\n", where + "1" + expected},
        {"management-interface = eth0 eth1\n", where + "1" + expected},
        {"management-interface = eth0\reth1\n", where + "1" + expected},
        {"management-interface = eth1 # office\n", where + "1" + expected},
        {"Management-Interface = eth1\n", where + "1" + expected},
        {"management interface = eth1\n", where + "1" + expected},
        {"\n\nmtu = 9000\n", where + "3" + expected},
        {"management-interface = eth0\nmanagement-interface = eth1\n",
         where + "2: 'management-interface' is set twice"},
    };
    for (const auto& row : rows) {
        Conf(row.content);
        EXPECT_EQ(Management(), row.error) << row.content;
    }
}

TEST_F(NetworkInfoTest, UnreadableFileIsAnError) {
    std::filesystem::create_directory(kConf);
    EXPECT_EQ(Management(), "Cannot read /etc/nimbrel/network.conf: it is not a regular file");
}

// More than one datagram of the kernel's for each of the three tables.
TEST_F(NetworkInfoTest, LargeTablesAreReadToTheirEnd) {
    std::string batch;
    for (int i = 0; i < 600; ++i) {
        const std::string address = "10.7." + std::to_string(i / 250) + "." + std::to_string(1 + i % 250);
        batch += "address add " + address + "/32 dev eth1\nroute add " + address + "/32 dev eth1 table 100\n";
    }
    for (int i = 0; i < 40; ++i)
        batch += "link add extra" + std::to_string(i) + " type veth peer name peer" + std::to_string(i) + "\n";
    batch += "address add 203.0.113.40/24 dev extra39\nlink set extra39 up\nlink set peer39 up\n";
    batch += "route add default via 203.0.113.1 dev extra39 metric 1\n";
    WriteFile("/tmp/batch", batch);
    Ip("-batch /tmp/batch");
    EXPECT_EQ(Management(), "extra39 203.0.113.40");
    std::string cleaning;
    for (int i = 0; i < 40; ++i) cleaning += "link delete extra" + std::to_string(i) + "\n";
    WriteFile("/tmp/batch", cleaning);
    Ip("-batch /tmp/batch");
}

TEST_F(NetworkInfoTest, NoPrivilegeIsNeeded) {
    const host::Unprivileged unprivileged;
    EXPECT_EQ(Management(), "eth0 192.0.2.10");
}

}  // namespace
