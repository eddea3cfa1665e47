#include "dns.h"

#include <arpa/nameser.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <map>
#include <thread>

#include "plugins/ad/domain/loopback.h"
#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

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

// At the same place in both families.
unsigned PortOf(const Endpoint& endpoint) {
    return ntohs(reinterpret_cast<const sockaddr_in*>(endpoint.Address())->sin_port);
}

std::vector<std::string> Hosts(const std::vector<ServiceRecord>& services) {
    std::vector<std::string> hosts;
    for (const auto& service : services) {
        hosts.push_back(service.host);
    }
    return hosts;
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

TEST(DnsReply, EveryFieldOfAServiceIsTaken) {
    const std::string data = Number(0x0102, 2) + Number(0x0304, 2) + Number(0x0506, 2) + Name("dc1.corp.test");
    const DnsAnswer answer = ParseDnsReply(Reply({Record("_ldap._tcp.dc._msdcs.corp.test", ns_t_srv, data)}));
    ASSERT_THAT(answer.services, SizeIs(1));
    EXPECT_EQ(answer.services[0].priority, 0x0102);
    EXPECT_EQ(answer.services[0].weight, 0x0304);
    EXPECT_EQ(answer.services[0].port, 0x0506);
}

TEST(DnsReply, AddressesOfBothFamiliesAreTakenFromBothSections) {
    const std::string ipv6 = std::string("\xfd\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2", 16);
    const DnsAnswer answer = ParseDnsReply(
        Reply({Record("Dc1.corp.test", ns_t_aaaa, ipv6)}, {Record("dc1.corp.test", ns_t_a, "\x0a\x63\x01\x02")}));
    std::vector<std::string> addresses;
    for (const auto& [name, endpoint] : answer.addresses) {
        EXPECT_EQ(name, "dc1.corp.test");
        addresses.push_back(endpoint.Text());
    }
    EXPECT_THAT(addresses, ElementsAre("fd00::2", "10.99.1.2"));
}

TEST(DnsReply, AddressesHaveNoPort) {
    const std::string ipv6 = std::string("\xfd\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2", 16);
    const DnsAnswer answer =
        ParseDnsReply(Reply({Record("a", ns_t_a, "\x0a\x63\x01\x02"), Record("b", ns_t_aaaa, ipv6)}));
    ASSERT_THAT(answer.addresses, SizeIs(2));
    for (const auto& [name, endpoint] : answer.addresses) EXPECT_EQ(PortOf(endpoint), 0U) << name;
}

// What follows a record that is too short would pass for its end.
TEST(DnsReply, RecordsOfAnotherSizeAreLeftOut) {
    const std::string address = Record("dc1.corp.test", ns_t_a, "abcd");
    for (const std::string& record :
         {Record("a", ns_t_srv, std::string(6, '\0')), Record("a", ns_t_srv, ""), Record("a", ns_t_a, "abc"),
          Record("a", ns_t_a, "abcde"), Record("a", ns_t_aaaa, std::string(15, 'a')), Record("a", ns_t_txt, "abcd"),
          Record("a", ns_t_aaaa, std::string(17, 'a')), Record("a", ns_t_txt, std::string(16, 'a'))}) {
        const DnsAnswer answer = ParseDnsReply(Reply({record, address}));
        EXPECT_THAT(answer.services, SizeIs(0));
        EXPECT_THAT(answer.addresses, SizeIs(1));
    }
}

TEST(DnsReply, ServiceWhoseHostCannotBeReadIsLeftOut) {
    for (const std::string& host : {std::string("\xff\xff"),
                                    std::string("\x03"
                                                "abc\xff\xff"),
                                    std::string("\xc0\xff", 2)}) {
        const std::string bad = Record("a", ns_t_srv, std::string(6, '\1') + host);
        const DnsAnswer answer = ParseDnsReply(Reply({bad, Service(0, 0, "dc1.corp.test")}));
        EXPECT_THAT(answer.services, SizeIs(1));
    }
}

TEST(DnsReply, RecordsBehindADamagedOneAreNotRead) {
    std::string reply = Reply({Service(0, 100, "dc1.test"), Service(0, 100, "dc2.test"), Service(0, 100, "dc3.test")});
    EXPECT_THAT(Hosts(ParseDnsReply(reply).services), ElementsAre("dc1.test", "dc2.test", "dc3.test"));
    reply[7] = 4;
    EXPECT_EQ(StatusOf([&] { ParseDnsReply(reply); }), kStatusNoSuchDomain);
}

TEST(DnsReply, HoldsNoMoreThanAMessageMay) {
    const std::size_t rest = 65535 - Reply({Record("a", ns_t_txt, "")}).size();
    EXPECT_EQ(StatusOf([&] { ParseDnsReply(Reply({Record("a", ns_t_txt, std::string(rest, 'x'))})); }), 0U);
    EXPECT_EQ(StatusOf([&] { ParseDnsReply(Reply({Record("a", ns_t_txt, std::string(rest + 1, 'x'))})); }),
              kStatusNoSuchDomain);
}

TEST(DnsReply, NoSuchNameIsAnEmptyAnswer) {
    std::string reply = Reply({});
    reply[3] = static_cast<char>(0x83);
    EXPECT_THAT(ParseDnsReply(reply).services, SizeIs(0));

    // Records in it do not count.
    reply = Reply({Service(0, 0, "dc1.corp.test")});
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

TEST(DnsReply, ThatIsNoneIsTold) {
    try {
        ParseDnsReply("x");
        ADD_FAILURE() << "it was taken";
    } catch (const AdError& error) {
        EXPECT_STREQ(error.what(), "A name server's reply is malformed");
    }
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

TEST(ServiceOrder, WeightsDecideAmongAllThatAreLeft) {
    std::minstd_rand random(3);
    std::map<std::string, int> first;
    std::map<std::string, int> second;
    for (int i = 0; i < 6000; ++i) {
        std::vector<ServiceRecord> services = {
            {0, 10, 389, "a"}, {0, 20, 389, "b"}, {0, 30, 389, "c"}, {7, 60, 1, "d"}};
        OrderServices(services, random);
        ++first[services[0].host];
        if (services[0].host == "c") ++second[services[1].host];
        ASSERT_EQ(services[3].host, "d");
    }
    EXPECT_NEAR(first["a"], 1000, 150);
    EXPECT_NEAR(first["b"], 2000, 200);
    EXPECT_NEAR(first["c"], 3000, 200);
    EXPECT_NEAR(second["a"], 1000, 150);
    EXPECT_NEAR(second["b"], 2000, 200);
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

// A name server on loopback that answers questions with the datagrams that `makeReplies` makes of them. A client that has
// not waited for them asks the same again, and is told the same; none are made anew.
class NameServer {
 public:
    using MakeReplies = std::function<std::vector<std::string>(const std::string& question)>;

    // `makeLongReply` is for connections. Without it they are closed.
    explicit NameServer(MakeReplies makeReplies, MakeReplies makeLongReply = nullptr)
        : _makeReplies(std::move(makeReplies)),
          _connections("127.0.0.1", 0,
                       [make = std::move(makeLongReply)](int connection) {
                           if (make) Converse(connection, make);
                       }),
          _socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const Endpoint address = Address();
        EXPECT_EQ(bind(_socket.Number(), address.Address(), address.Size()), 0);
        _settings.nameServers = {"127.0.0.1"};
        _settings.nameServerPort = _connections.Port();
        _settings.nameBudget = std::chrono::seconds(30);
        _thread = std::thread([this] { TakeQuestions(); });
    }
    ~NameServer() {
        _ending = true;
        const Endpoint self = Address();
        sendto(_socket.Number(), "", 0, 0, self.Address(), self.Size());
        _thread.join();
    }

    DnsAnswer Ask() const {
        return Resolver(_settings).Services("_ldap._tcp.corp.test", Deadline::After(std::chrono::seconds(60)));
    }
    std::vector<std::string> Addresses() const {
        std::vector<std::string> texts;
        for (const auto& one : Resolver(_settings).Addresses("dc1.test", Deadline::After(std::chrono::seconds(60)))) {
            texts.push_back(one.Text());
        }
        return texts;
    }

 private:
    Endpoint Address() const { return Endpoint::FromText("127.0.0.1", _connections.Port()).value(); }

    void TakeQuestions() {
        std::map<std::string, std::vector<std::string>> told;
        while (true) {
            char buffer[1024];
            sockaddr_in client = {};
            auto* const from = reinterpret_cast<sockaddr*>(&client);
            socklen_t size = sizeof client;
            const ssize_t got = recvfrom(_socket.Number(), buffer, sizeof buffer, 0, from, &size);
            if (_ending || got < 0) return;
            auto& replies = told[std::string(buffer, static_cast<std::size_t>(got))];
            if (replies.empty()) replies = _makeReplies(std::string(buffer, static_cast<std::size_t>(got)));
            for (const std::string& reply : replies) {
                sendto(_socket.Number(), reply.data(), reply.size(), 0, from, size);
            }
        }
    }

    static void Converse(int connection, const MakeReplies& makeReply) {
        std::string size(2, '\0');
        if (!ReadExactly(connection, size.data(), size.size())) return;
        std::string question(static_cast<unsigned char>(size[1]), '\0');
        if (!ReadExactly(connection, question.data(), question.size())) return;
        const std::string reply = makeReply(question).front();
        WriteAll(connection, Number(static_cast<unsigned>(reply.size()), 2) + reply);
    }

    MakeReplies _makeReplies;
    StreamService _connections;
    kit::Descriptor _socket;
    Settings _settings;
    std::atomic<bool> _ending = false;
    std::thread _thread;
};

// The question's header and name again, with one service.
std::string ReplyTo(const std::string& question, const std::string& host) {
    std::string reply = question.substr(0, question.size() - 11) + Service(0, 0, host);
    reply[2] = static_cast<char>(reply[2] | 0x80);
    reply[7] = 1;
    reply[11] = 0;
    return reply;
}

TEST(Resolver, AsksForServicesAndAnnouncesRoomForLongAnswers) {
    std::string asked;
    {
        const NameServer server([&](const std::string& question) {
            asked = question;
            return std::vector<std::string>{ReplyTo(question, "dc1.corp.test")};
        });
        EXPECT_THAT(Hosts(server.Ask().services), ElementsAre("dc1.corp.test"));
    }
    const std::string expected = Number(0x0100, 2) + Number(1, 2) + Number(0, 4) + Number(1, 2) +
                                 Name("_ldap._tcp.corp.test") + Number(ns_t_srv, 2) + Number(ns_c_in, 2) + '\0' +
                                 Number(41, 2) + Number(4096, 2) + Number(0, 4) + Number(0, 2);
    EXPECT_EQ(asked.substr(2), expected);
}

TEST(Resolver, OnlyTheReplyToItsOwnQuestionIsTaken) {
    const NameServer server([](const std::string& question) {
        const std::string good = ReplyTo(question, "dc1.corp.test");
        const std::string other = ReplyTo(question, "dc2.corp.test");
        std::vector<std::string> replies = {"", "x", other.substr(0, question.size() - 12)};
        for (const std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{13}, question.size() - 12}) {
            replies.push_back(other);  // of another number, name or class
            replies.back()[at] = static_cast<char>(replies.back()[at] ^ 0x11);
        }
        replies.push_back(other);
        replies.back()[2] = static_cast<char>(replies.back()[2] & 0x7f);  // a question
        replies.push_back(good);
        return replies;
    });
    EXPECT_THAT(Hosts(server.Ask().services), ElementsAre("dc1.corp.test"));
}

TEST(Resolver, TruncatedReplyIsFetchedByConnection) {
    const auto hostsWith = [&](char answersLeft, char changed) {
        const auto truncated = [answersLeft](const std::string& question) {
            std::string reply = ReplyTo(question, "dc9.corp.test");
            reply[2] = static_cast<char>(reply[2] | 0x02);
            reply[7] = answersLeft;
            return std::vector<std::string>{reply};
        };
        const NameServer server(truncated, [changed](const std::string& question) {
            std::string reply = ReplyTo(question, "dc1.corp.test");
            reply[0] = static_cast<char>(reply[0] ^ changed);
            return std::vector<std::string>{reply};
        });
        return Hosts(server.Ask().services);
    };
    EXPECT_THAT(hostsWith(0, 0), ElementsAre("dc1.corp.test"));
    EXPECT_THAT(hostsWith(1, 1), ElementsAre("dc9.corp.test")) << "the reply to another question is none";
}

std::vector<std::string> WithAddress(const std::string& question, ns_type type, const std::string& address) {
    std::string reply = question.substr(0, question.size() - 11);
    reply[2] = static_cast<char>(reply[2] | 0x80);
    reply[11] = 0;
    if (question[question.size() - 14] == type) {
        reply[7] = 1;
        reply += Record("dc1.test", type, address);
    }
    return {reply};
}

TEST(Resolver, SecondFamilyIsAskedForWhereNoAddressOfTheFirstCanBeReached) {
    const NameServer first([](const auto& question) { return WithAddress(question, ns_t_a, "\x7f\x63\x01\x02"); });
    EXPECT_THAT(first.Addresses(), ElementsAre("127.99.1.2"));
    const std::string ipv6 = std::string("\xfd\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2", 16);
    const NameServer second([&](const auto& question) { return WithAddress(question, ns_t_aaaa, ipv6); });
    EXPECT_THAT(second.Addresses(), ElementsAre("fd00::2"));
    const NameServer neither([&](const auto& question) { return WithAddress(question, ns_t_txt, ""); });
    EXPECT_THAT(neither.Addresses(), SizeIs(0));
    // As on a host with addresses of version 6 alone: to all at once there is no way from anywhere.
    const NameServer both([&, count = 0](const auto& question) mutable {
        return count++ == 0 ? WithAddress(question, ns_t_a, std::string("\xff\xff\xff\xff", 4))
                            : WithAddress(question, ns_t_aaaa, ipv6);
    });
    EXPECT_THAT(both.Addresses(), UnorderedElementsAre("255.255.255.255", "fd00::2"));
}

TEST(Resolver, AddressThatCanBeReachedIsGoodWithoutTheSecondFamily) {
    const NameServer cut([count = 0](const auto& question) mutable {
        return count++ == 0 ? WithAddress(question, ns_t_a, std::string("\xff\xff\xff\xff", 4))
                            : std::vector<std::string>{std::string(question).replace(2, 2, "\x81\x82")};
    });
    EXPECT_THAT(cut.Addresses(), ElementsAre("255.255.255.255")) << "the name server fails at the second question";
}

TEST(AddressOrder, BeginsWithOneOfEachFamilyAndWithThoseThatCanBeReached) {
    const auto order = [](const std::vector<std::string>& texts) {
        std::vector<Endpoint> endpoints;
        for (const auto& text : texts) endpoints.push_back(Endpoint::FromText(text, 0).value());
        OrderAddresses(endpoints);
        std::vector<std::string> ordered;
        for (const auto& endpoint : endpoints) ordered.push_back(endpoint.Text());
        return ordered;
    };
    EXPECT_THAT(order({}), SizeIs(0));
    EXPECT_THAT(order({"255.255.255.255", "127.0.0.2", "127.0.0.1"}),
                ElementsAre("127.0.0.2", "127.0.0.1", "255.255.255.255"));
    EXPECT_THAT(order({"127.0.0.1", "127.0.0.2", "::1"}), ElementsAre("127.0.0.1", "::1", "127.0.0.2"));
    EXPECT_THAT(order({"127.0.0.1", "127.0.0.2", "fe80::1"}), ElementsAre("127.0.0.1", "127.0.0.2", "fe80::1"))
        << "to the last there is no way";
    EXPECT_THAT(order({"fe80::1", "255.255.255.255"}), ElementsAre("fe80::1", "255.255.255.255"));
}

TEST(Resolver, AddressAsTextIsNotAskedFor) {
    const Settings settings;
    const auto addresses = Resolver(settings).Addresses("192.0.2.1", Deadline::After(std::chrono::seconds(1)));
    ASSERT_THAT(addresses, SizeIs(1));
    EXPECT_EQ(addresses.front().Text(), "192.0.2.1");
    EXPECT_EQ(PortOf(addresses.front()), 0U);
}

TEST(Resolver, ThatNobodyAnswersIsToldWithTheName) {
    Settings settings;
    settings.nameServers = {"127.0.0.1"};
    settings.nameServerPort = 1;  // refuses
    try {
        Resolver(settings).Services("gone.test", Deadline::After(std::chrono::seconds(10)));
        ADD_FAILURE() << "there was an answer";
    } catch (const AdError& error) {
        EXPECT_STREQ(error.what(), "No name server answers for 'gone.test'");
    }
}

// What nobody has read yet tells how often it was asked.
TEST(Resolver, NobodyIsAskedBehindTheDeadline) {
    const kit::Descriptor silent(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(silent.Number(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(getsockname(silent.Number(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    Settings settings;
    settings.nameServers = {"127.0.0.1"};
    settings.nameServerPort = ntohs(address.sin_port);
    const auto ask = [&] { Resolver(settings).Services("a.test", Deadline::After(std::chrono::milliseconds(300))); };
    EXPECT_EQ(StatusOf(ask), kStatusNoSuchDomain);
    char byte = 0;
    EXPECT_GE(recv(silent.Number(), &byte, 1, MSG_DONTWAIT), 0);
    EXPECT_EQ(recv(silent.Number(), &byte, 1, MSG_DONTWAIT), -1) << "asked twice";
}

TEST(Resolver, NameThatCannotBeAskedForIsTold) {
    Settings settings;
    settings.nameServers = {"127.0.0.1"};
    const std::string name(64, 'x');  // a label has 63 letters at most
    try {
        Resolver(settings).Services(name, Deadline::After(std::chrono::seconds(10)));
        ADD_FAILURE() << "it was asked for";
    } catch (const AdError& error) {
        EXPECT_EQ(error.Status(), kStatusInvalidDomainName);
        EXPECT_EQ(error.what(), "The name '" + name + "' cannot be looked up");
    }
}

// At once, after the first wait of 400 ms, and after one of twice that.
TEST(Resolver, SilentServerIsAskedAgainWithMorePatience) {
    const auto start = Deadline::Clock::now();
    int questions = 0;
    const auto answerTheThird = [&](const std::string& question) {
        return ++questions < 3 ? std::vector<std::string>() : std::vector{ReplyTo(question, "dc1.corp.test")};
    };
    {
        const NameServer server(answerTheThird);
        EXPECT_THAT(Hosts(server.Ask().services), ElementsAre("dc1.corp.test"));
    }
    EXPECT_GE(Deadline::Clock::now() - start, std::chrono::milliseconds(400 + 800));
}

TEST(Resolver, NameInOtherLettersIsTheSameQuestion) {
    const NameServer server([](const std::string& question) {
        std::string reply = ReplyTo(question, "dc1.corp.test");
        reply[14] = 'L';
        return std::vector<std::string>{reply};
    });
    EXPECT_THAT(Hosts(server.Ask().services), ElementsAre("dc1.corp.test"));
}

TEST(Resolver, ServerThatFailsGivesNoAnswer) {
    const auto statusWith = [](char code) {
        const NameServer server([code](const std::string& question) {
            std::string reply = ReplyTo(question, "dc1.corp.test");
            reply[3] = static_cast<char>((reply[3] & 0xf0) | code);
            return std::vector<std::string>{reply};
        });
        return StatusOf([&] { server.Ask(); });
    };
    EXPECT_EQ(statusWith(ns_r_noerror), 0U);
    EXPECT_EQ(statusWith(ns_r_nxdomain), 0U);
    EXPECT_EQ(statusWith(ns_r_servfail), kStatusNoSuchDomain);
    EXPECT_EQ(statusWith(ns_r_refused), kStatusNoSuchDomain);
}

}  // namespace
}  // namespace nimbrel::ad::test
