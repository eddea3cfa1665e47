#include "dns.h"

#include <arpa/nameser.h>
#include <gmock/gmock.h>

#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

std::string Number(unsigned value, std::size_t size) {
    std::string bytes;
    for (std::size_t i = size; i-- > 0;) {
        bytes += static_cast<char>(value >> (8 * i) & 0xff);
    }
    return bytes;
}

std::string Name(const std::string& dotted) {
    std::string bytes;
    for (std::size_t at = 0; at < dotted.size();) {
        const std::size_t end = std::min(dotted.find('.', at), dotted.size());
        bytes += static_cast<char>(end - at);
        bytes += dotted.substr(at, end - at);
        at = end + 1;
    }
    return bytes + '\0';
}

std::string Record(const std::string& name, ns_type type, const std::string& data) {
    return Name(name) + Number(type, 2) + Number(ns_c_in, 2) + Number(60, 4) +
           Number(static_cast<unsigned>(data.size()), 2) + data;
}

std::string Service(unsigned priority, unsigned weight, const std::string& host) {
    return Record("_ldap._tcp.dc._msdcs.corp.test", ns_t_srv,
                  Number(priority, 2) + Number(weight, 2) + Number(389, 2) + Name(host));
}

std::string Reply(const std::vector<std::string>& answers, const std::vector<std::string>& additional = {}) {
    std::string bytes = Number(7, 2) + Number(0x8180, 2) + Number(1, 2) +
                        Number(static_cast<unsigned>(answers.size()), 2) + Number(0, 2) +
                        Number(static_cast<unsigned>(additional.size()), 2) + Name("_ldap._tcp.dc._msdcs.corp.test") +
                        Number(ns_t_srv, 2) + Number(ns_c_in, 2);
    for (const auto& records : {answers, additional}) {
        for (const auto& record : records) {
            bytes += record;
        }
    }
    return bytes;
}

TEST(DnsReply, ServicesAndTheirAddresses) {
    const DnsAnswer answer =
        ParseDnsReply(Reply({Service(0, 100, "DC1.corp.test"), Service(10, 5, "dc2.corp.test")},
                            {Record("dc1.CORP.test", ns_t_a, std::string("\x0a\x63\x00\x02", 4))}));
    ASSERT_THAT(answer.services, SizeIs(2));
    EXPECT_EQ(answer.services[0].host, "dc1.corp.test");
    EXPECT_EQ(answer.services[0].weight, 100);
    EXPECT_EQ(answer.services[1].priority, 10);
    ASSERT_EQ(answer.addresses.count("dc1.corp.test"), 1U);
    EXPECT_EQ(answer.addresses.find("dc1.corp.test")->second.Text(), "10.99.0.2");
}

TEST(DnsReply, RecordsOfOtherKindsAndSizesAreLeftOut) {
    const DnsAnswer answer = ParseDnsReply(Reply({Record("a", ns_t_txt, "x"), Record("a", ns_t_srv, "short"),
                                                  Record("dc1", ns_t_a, "toolong"), Service(0, 0, "")}));
    EXPECT_THAT(answer.services, SizeIs(0));
    EXPECT_THAT(answer.addresses, SizeIs(0));
}

TEST(DnsReply, NoSuchNameIsAnEmptyAnswer) {
    std::string reply = Reply({});
    reply[3] = static_cast<char>(0x83);
    EXPECT_THAT(ParseDnsReply(reply).services, SizeIs(0));
}

TEST(DnsReply, CutAndChangedRepliesEnd) {
    const std::string reply = Reply({Service(0, 100, "dc1.corp.test")}, {Record("dc1", ns_t_a, "abcd")});
    for (std::size_t size = 0; size < reply.size(); ++size) {
        StatusOf([&] { EXPECT_LE(ParseDnsReply(reply.substr(0, size)).services.size(), 1U); });
        for (const char value : {'\x00', '\x3f', '\xc0', '\xff'}) {
            std::string changed = reply;
            changed[size] = value;
            StatusOf([&] { EXPECT_LE(ParseDnsReply(changed).services.size(), 2U); });
        }
    }
    EXPECT_EQ(StatusOf([] { ParseDnsReply("x"); }), kStatusNoSuchDomain);
}

std::vector<std::string> Hosts(const std::vector<ServiceRecord>& services) {
    std::vector<std::string> hosts;
    for (const auto& service : services) {
        hosts.push_back(service.host);
    }
    return hosts;
}

TEST(ServiceOrder, LowerPriorityFirst) {
    std::minstd_rand random(1);
    std::vector<ServiceRecord> services = {{20, 0, 389, "c"}, {10, 0, 389, "b"}, {0, 0, 389, "a"}};
    OrderServices(services, random);
    EXPECT_THAT(Hosts(services), ElementsAre("a", "b", "c"));
}

TEST(ServiceOrder, WeightDecidesHowOften) {
    std::minstd_rand random(1);
    int heavyFirst = 0;
    for (int i = 0; i < 1000; ++i) {
        std::vector<ServiceRecord> services = {{0, 10, 389, "light"}, {0, 90, 389, "heavy"}};
        OrderServices(services, random);
        heavyFirst += services.front().host == "heavy" ? 1 : 0;
    }
    EXPECT_NEAR(heavyFirst, 900, 60);
}

TEST(ServiceOrder, NothingIsLost) {
    std::minstd_rand random(2);
    for (int i = 0; i < 100; ++i) {
        std::vector<ServiceRecord> services = {{0, 0, 1, "a"}, {0, 0, 1, "b"}, {0, 65535, 1, "c"}, {1, 65535, 1, "d"}};
        OrderServices(services, random);
        EXPECT_EQ(services.back().host, "d");
        EXPECT_THAT(Hosts(services), ::testing::UnorderedElementsAre("a", "b", "c", "d"));
    }
}

}  // namespace
}  // namespace nimbrel::ad::test
