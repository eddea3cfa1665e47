// Peers that do not take part: what is written to them, and how long a call waits.

#include "sockets.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "plugins/ad/domain/loopback.h"
#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kMoreThanAnyBuffer = 64U << 20;

Endpoint At(const std::string& address, std::uint16_t port) { return Endpoint::FromText(address, port).value(); }

// Why the exchange fails.
std::string ExchangeText(const Endpoint& endpoint, std::string_view request, const Deadline& deadline) {
    try {
        ExchangeFrames(endpoint, request, 4, 1000, deadline);
    } catch (const AdError& error) {
        EXPECT_EQ(error.Status(), kStatusNoSuchDomain);
        return error.what();
    }
    return "answered";
}

TEST(Sockets, PeerThatDoesNotReadIsGivenUp) {
    const StreamService peer("127.0.0.1", 0, [](int socket) {
        pollfd one = {socket, POLLRDHUP, 0};
        poll(&one, 1, -1);
    });
    EXPECT_EQ(ExchangeText(At("127.0.0.1", peer.Port()), std::string(kMoreThanAnyBuffer, 'x'),
                           Deadline::After(milliseconds(300))),
              "The other side did not answer in time");
}

TEST(Sockets, PeerThatHangsUpWhileItIsWrittenToIsTold) {
    const StreamService peer("127.0.0.1", 0, [](int) {});
    EXPECT_EQ(
        ExchangeText(At("127.0.0.1", peer.Port()), std::string(kMoreThanAnyBuffer, 'x'), Deadline::After(seconds(20))),
        "The other side closed the connection");
}

TEST(Sockets, AnswerLongerThanAllowedIsRefused) {
    const StreamService peer("127.0.0.1", 0, [](int socket) {
        WriteAll(socket, std::string_view("\0\0\x10\0", 4));
        char byte = 0;
        while (ReadExactly(socket, &byte, 1)) continue;
    });
    EXPECT_EQ(ExchangeText(At("127.0.0.1", peer.Port()), "request", Deadline::After(seconds(20))),
              "The other side's answer is too long");
}

// A listener whose queue is full does not even take the connection.
TEST(Sockets, PeerThatTakesNoConnectionIsGivenUp) {
    const kit::Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(listener.Number(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(listener.Number(), 0), 0);
    ASSERT_EQ(getsockname(listener.Number(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    const Endpoint endpoint = At("127.0.0.1", ntohs(address.sin_port));
    std::vector<kit::Descriptor> waiting;
    const auto connect = [&] { waiting.push_back(ConnectTcp(endpoint, Deadline::After(milliseconds(200)))); };
    for (int i = 0; i < 4; ++i) {
        if (StatusOf(connect) != 0) break;
    }
    EXPECT_EQ(StatusOf(connect), kStatusNoSuchDomain);
}

TEST(Sockets, AddressThatNobodyCanConnectToIsTold) {
    const Deadline deadline = Deadline::After(seconds(20));
    EXPECT_EQ(StatusOf([&] { ConnectTcp(At("255.255.255.255", 1), deadline); }), kStatusNoSuchDomain);
    EXPECT_EQ(StatusOf([&] { ConnectUdp(At("255.255.255.255", 1)); }), kStatusNoSuchDomain);
}

TEST(Sockets, AddressesAreWrittenAsTheyAreRead) {
    for (const char* address : {"127.0.0.1", "192.0.2.10", "::1", "2001:db8::10"}) {
        EXPECT_EQ(At(address, 389).Text(), address);
        EXPECT_EQ(At(address, 389).WithPort(88).Text(), address);
    }
    for (const char* text : {"", "dc1.corp.test", "256.0.0.1", "::g"})
        EXPECT_FALSE(Endpoint::FromText(text, 1)) << text;
}

}  // namespace
}  // namespace nimbrel::ad::test
