// What name servers and controllers may do to a call: it ends within its budget with 1355.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>

#include "controller_locator.h"
#include "ldap_connection.h"
#include "sandbox.h"
#include "session.h"

namespace nimbrel::ad::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// A socket on loopback that takes connections or datagrams and never says a word.
class SilentPeer {
 public:
    explicit SilentPeer(int type) : _socket(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(_socket.Number(), reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_TRUE(type == SOCK_DGRAM || listen(_socket.Number(), 8) == 0);
        EXPECT_EQ(getsockname(_socket.Number(), reinterpret_cast<sockaddr*>(&address), &size), 0);
        _port = ntohs(address.sin_port);
    }

    std::uint16_t Port() const { return _port; }
    int Socket() const { return _socket.Number(); }

 private:
    kit::Descriptor _socket;
    std::uint16_t _port = 0;
};

Settings QuickSettings() {
    Settings settings;
    settings.controllerBudget = milliseconds(200);
    settings.nameBudget = milliseconds(300);
    settings.avoidance = seconds(0);
    settings.nameServers = {"127.0.0.1"};
    settings.nameServerPort = 1;  // refuses
    return settings;
}

// Runs `call`, which must fail with 1355, and returns how long it took.
template <class Call>
milliseconds TimeToFail(const Call& call) {
    const auto start = Deadline::Clock::now();
    EXPECT_EQ(StatusOf(call), kStatusNoSuchDomain);
    return std::chrono::duration_cast<milliseconds>(Deadline::Clock::now() - start);
}

// A slow machine may need longer than the budget says, but never this long; the wrong answer would take ten seconds.
constexpr milliseconds kFarTooLong{8000};

TEST(Deadlines, SilentNameServer) {
    const SilentPeer nameServer(SOCK_DGRAM);
    Settings settings = QuickSettings();
    settings.nameServerPort = nameServer.Port();
    const auto time = TimeToFail([&] { LocateController(settings, "silent.test", {}, Deadline::After(seconds(10))); });
    EXPECT_GE(time, settings.nameBudget);
    EXPECT_LT(time, kFarTooLong);
}

TEST(Deadlines, RefusingNameServerIsNotWaitedFor) {
    Settings settings = QuickSettings();
    settings.nameBudget = seconds(10);
    EXPECT_LT(TimeToFail([&] { LocateController(settings, "refused.test", {}, Deadline::After(seconds(20))); }),
              kFarTooLong);
}

TEST(Deadlines, StoppedController) {
    const SilentPeer controller(SOCK_STREAM);
    Settings settings = QuickSettings();
    settings.ldapPort = controller.Port();
    const auto time =
        TimeToFail([&] { LocateController(settings, "stopped.test", {"127.0.0.1"}, Deadline::After(seconds(10))); });
    EXPECT_GE(time, settings.controllerBudget);
    EXPECT_LT(time, kFarTooLong);
}

TEST(Deadlines, WholeCallEndsFirst) {
    const SilentPeer controller(SOCK_STREAM);
    Settings settings = QuickSettings();
    settings.controllerBudget = seconds(30);
    settings.ldapPort = controller.Port();
    EXPECT_LT(
        TimeToFail([&] { LocateController(settings, "late.test", {"127.0.0.1"}, Deadline::After(milliseconds(200))); }),
        kFarTooLong);
}

TEST(Deadlines, RefusingController) {
    Settings settings = QuickSettings();
    settings.ldapPort = 1;
    EXPECT_LT(
        TimeToFail([&] { LocateController(settings, "refusing.test", {"127.0.0.1"}, Deadline::After(seconds(20))); }),
        kFarTooLong);
}

// Closes each connection as soon as there is a question, and counts them.
class ClosingPeer {
 public:
    ClosingPeer() : _peer(SOCK_STREAM), _thread([this] { Run(); }) {}
    ClosingPeer(const ClosingPeer&) = delete;
    ClosingPeer& operator=(const ClosingPeer&) = delete;
    ~ClosingPeer() {
        shutdown(_peer.Socket(), SHUT_RDWR);
        _thread.join();
    }

    std::uint16_t Port() const { return _peer.Port(); }
    int Connections() const { return _connections; }

 private:
    void Run() {
        while (true) {
            const kit::Descriptor connection(accept4(_peer.Socket(), nullptr, nullptr, SOCK_CLOEXEC));
            char byte = 0;
            if (connection.Number() < 0) {
                return;
            }
            ++_connections;
            recv(connection.Number(), &byte, 1, 0);  // the rest is never read, so that the kernel resets the connection
        }
    }

    SilentPeer _peer;
    std::atomic<int> _connections = 0;
    std::thread _thread;
};

// As a controller does that more hosts ask at once than it takes connections of.
TEST(Deadlines, ControllerThatHangsUpIsAskedAgain) {
    const ClosingPeer controller;
    Settings settings = QuickSettings();
    settings.controllerBudget = seconds(1);
    settings.ldapPort = controller.Port();
    EXPECT_LT(TimeToFail([&] { LocateController(settings, "busy.test", {"127.0.0.1"}, Deadline::After(seconds(10))); }),
              kFarTooLong);
    EXPECT_GE(controller.Connections(), 2);
}

TEST(Deadlines, StoppedControllerIsAskedAgainForAJoin) {
    const SilentPeer controller(SOCK_STREAM);
    Settings settings = QuickSettings();
    settings.ldapPort = controller.Port();
    const auto time = TimeToFail([&] {
        LocateController(settings, "slow.test", {"127.0.0.1"}, Deadline::After(seconds(10)), Patience::Change);
    });
    EXPECT_GE(time, 3 * settings.controllerBudget);
    EXPECT_LT(time, kFarTooLong);
}

TEST(Deadlines, KeyDistributionCentreThatHangsUpIsAskedAgain) {
    const ClosingPeer centre;
    Settings settings = QuickSettings();
    settings.kerberosPort = centre.Port();
    KdcCarrier carrier(settings, "BUSY.TEST", *Endpoint::FromText("127.0.0.1", 0), Deadline::After(seconds(10)));
    EXPECT_LT(TimeToFail([&] { carrier.Exchange("BUSY.TEST", "request"); }), kFarTooLong);
    EXPECT_GE(centre.Connections(), 2);
}

TEST(Deadlines, StoppedKeyDistributionCentre) {
    const SilentPeer centre(SOCK_STREAM);
    Settings settings = QuickSettings();
    settings.kerberosPort = centre.Port();
    KdcCarrier carrier(settings, "STOPPED.TEST", *Endpoint::FromText("127.0.0.1", 0), Deadline::After(seconds(10)));
    EXPECT_LT(TimeToFail([&] { carrier.Exchange("STOPPED.TEST", "request"); }), kFarTooLong);
}

// Answers each connection with some bytes and keeps it open.
class TalkativePeer {
 public:
    explicit TalkativePeer(std::string bytes)
        : _peer(SOCK_STREAM), _bytes(std::move(bytes)), _thread([this] { Run(); }) {}
    TalkativePeer(const TalkativePeer&) = delete;
    TalkativePeer& operator=(const TalkativePeer&) = delete;
    ~TalkativePeer() {
        shutdown(_peer.Socket(), SHUT_RDWR);
        _thread.join();
    }

    std::uint16_t Port() const { return _peer.Port(); }

 private:
    void Run() {
        std::vector<kit::Descriptor> connections;
        while (true) {
            kit::Descriptor connection(accept4(_peer.Socket(), nullptr, nullptr, SOCK_CLOEXEC));
            if (connection.Number() < 0) {
                return;
            }
            EXPECT_EQ(send(connection.Number(), _bytes.data(), _bytes.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(_bytes.size()));
            connections.push_back(std::move(connection));
        }
    }

    SilentPeer _peer;
    std::string _bytes;
    std::thread _thread;
};

// The beginnings of answers, and answers that are none.
TEST(Deadlines, NonsenseFromAController) {
    for (const std::string& bytes :
         {std::string("HTTP/1.1 400 Bad Request\r\n\r\n"), std::string("0\x84\x7f\xff\xff\xff\x02\x01"),
          std::string("0\x0c\x02\x01\x01\x65\x07\x0a\x01\x00\x04\x00\x04\x00", 14), std::string("0"),
          std::string(4096, '\0'), std::string(4096, '\xff')}) {
        const TalkativePeer controller(bytes);
        Settings settings = QuickSettings();
        settings.ldapPort = controller.Port();
        EXPECT_LT(TimeToFail([&] {
                      LocateController(settings, "nonsense.test", {"127.0.0.1"}, Deadline::After(seconds(10)));
                  }),
                  kFarTooLong);
    }
}

// Answers a connection with the same bytes again and again, until it is closed.
class EndlessPeer {
 public:
    explicit EndlessPeer(std::string bytes)
        : _peer(SOCK_STREAM), _bytes(std::move(bytes)), _thread([this] { Run(); }) {}
    EndlessPeer(const EndlessPeer&) = delete;
    EndlessPeer& operator=(const EndlessPeer&) = delete;
    ~EndlessPeer() {
        shutdown(_peer.Socket(), SHUT_RDWR);
        _thread.join();
    }

    std::uint16_t Port() const { return _peer.Port(); }

 private:
    void Run() {
        const kit::Descriptor connection(accept4(_peer.Socket(), nullptr, nullptr, SOCK_CLOEXEC));
        while (connection.Number() >= 0 && send(connection.Number(), _bytes.data(), _bytes.size(), MSG_NOSIGNAL) > 0) {
            continue;
        }
    }

    SilentPeer _peer;
    std::string _bytes;
    std::thread _thread;
};

std::string Repeated(const std::string& text, int times) {
    std::string repeated;
    for (int i = 0; i < times; ++i) {
        repeated += text;
    }
    return repeated;
}

// Its socket is always ready to be read, so no wait for it ever takes time.
TEST(Deadlines, ControllerThatNeverStopsTalking) {
    const std::string answerToAnother("0\x0c\x02\x01\x77\x65\x07\x0a\x01\x00\x04\x00\x04\x00", 14);
    const EndlessPeer controller(Repeated(answerToAnother, 1000));
    LdapConnection connection(*Endpoint::FromText("127.0.0.1", controller.Port()), "",
                              Deadline::After(milliseconds(300)));
    EXPECT_LT(TimeToFail([&] { connection.Search({}); }), kFarTooLong);
}

TEST(Deadlines, AnswerThatNeverEndsIsNotKept) {
    const std::string value = "\x04\x82\x10\x01" + std::string(4096, 'x') + 'y';
    const std::string entry =
        std::string("\x30\x82\x10\x10\x02\x01\x01\x64\x82\x10\x09", 11) + value + std::string("\x30\x02\x30\x00", 4);
    const EndlessPeer controller(Repeated(entry, 16));
    LdapConnection connection(*Endpoint::FromText("127.0.0.1", controller.Port()), "", Deadline::After(seconds(60)));
    try {
        connection.Search({});
        ADD_FAILURE() << "an answer without an end";
    } catch (const LdapError& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("the answer is too long"));
    }
}

TEST(Deadlines, EndlessReplyFromAKeyDistributionCentre) {
    const TalkativePeer centre("\x7f\xff\xff\xff" + std::string(1000, 'x'));
    Settings settings = QuickSettings();
    settings.kerberosPort = centre.Port();
    KdcCarrier carrier(settings, "ENDLESS.TEST", *Endpoint::FromText("127.0.0.1", 0), Deadline::After(seconds(10)));
    EXPECT_LT(TimeToFail([&] { carrier.Exchange("ENDLESS.TEST", "request"); }), kFarTooLong);
}

TEST(Deadlines, FailedControllerIsAskedLastForAWhile) {
    const SilentPeer controller(SOCK_STREAM);
    Settings settings = QuickSettings();
    settings.avoidance = seconds(60);
    settings.ldapPort = controller.Port();
    const auto ask = [&] {
        LocateController(settings, "avoided.test", {"127.0.0.2", "127.0.0.1"}, Deadline::After(seconds(10)));
    };
    TimeToFail(ask);
    EXPECT_LT(TimeToFail(ask), kFarTooLong) << "still asked, as there is nobody else";
}

// What a question to a controller that keeps quiet fails with.
std::string AskInVain() {
    const SilentPeer controller(SOCK_STREAM);
    try {
        LdapConnection(*Endpoint::FromText("127.0.0.1", controller.Port()), "", Deadline::After(milliseconds(1)))
            .Search({});
        return "";
    } catch (const LdapError& error) {
        return error.what();
    }
}

[[noreturn]] void ExitWithAQuestion() {
    std::atexit([] { _exit(AskInVain() == "Unable to read the controller's answer: Timed out" ? 0 : 1); });
    AskInVain();  // what it makes for the life of the process goes before that handler runs
    std::exit(2);
}

// A question on a detached thread may end at any moment of the process's own end.
TEST(DeadlinesDeathTest, QuestionFailsWithTheSameWordsWhileTheProcessExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // begins anew, without what other tests have made
    EXPECT_EXIT(ExitWithAQuestion(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace nimbrel::ad::test
