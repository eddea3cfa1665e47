// The stream of bytes below the LDAP library: what a controller may send, in which pieces, and how much of it.

#include "ldap_transport.h"

#include <sys/socket.h>

#include <cerrno>

#include <gmock/gmock.h>

#include "joining_host.h"
#include "log_on.h"
#include "plugins/ad/domain/acceptor.h"
#include "plugins/ad/domain/loopback.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

TEST(Messages, AreCountedHoweverTheyAreCut) {
    const std::string three = std::string("0\x03\x02\x01\x01", 5) + "0\x81\x80" + std::string(128, '0') +
                              std::string("0\x84\0\0\0\x01x", 7) + "0";
    for (std::size_t piece = 1; piece <= three.size(); ++piece) {
        MessageCounter counter;
        for (std::size_t at = 0; at < three.size(); at += piece)
            counter.Take(std::string_view(three).substr(at, piece));
        EXPECT_EQ(counter.Count(), 3U) << piece;
    }
}

TEST(Messages, WithoutContentsAreCounted) {
    MessageCounter counter;
    for (int i = 0; i < 1000; ++i) counter.Take(std::string_view("0\0", 2));
    EXPECT_EQ(counter.Count(), 1000U);
    counter.Take(std::string(300, '\xff'));  // a length without an end
    EXPECT_EQ(counter.Count(), 1001U);
}

// One end of a connection that a controller has sealed; the test has the other.
class Transport : public ::testing::Test {
 protected:
    Transport() {
        _keys.SetPassword("alice", "Secret-1", "salt");
        _keys.AddService("ldap/dc1.corp.test");
        _tickets.LogOnWithPassword({"alice@CORP.TEST", false}, "Secret-1");
        auto channel =
            std::make_unique<SealedChannel>(_tickets.Context(), _tickets.TicketFor("ldap/dc1.corp.test@CORP.TEST"));
        _acceptor = std::make_unique<Acceptor>(_keys.Keytab());
        channel->Accept(_acceptor->Accept(channel->Request()));
        int ends[2] = {};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        _theirs = kit::Descriptor(ends[1]);
        _ours = std::make_unique<LdapTransport>(kit::Descriptor(ends[0]), Deadline::After(std::chrono::seconds(5)));
        _ours->Seal(std::move(channel), 65535);
    }

    static std::string Length(std::size_t size) {
        return {0, static_cast<char>(size >> 16), static_cast<char>(size >> 8), static_cast<char>(size)};
    }
    void Send(const std::string& bytes) { WriteAll(_theirs.Number(), bytes); }
    void SendSealed(const std::string& text) {
        const std::string token = _acceptor->Wrap(text, true);
        Send(Length(token.size()) + token);
    }
    // What one call gives: a text, or "again", or "failed".
    std::string Read() {
        std::string bytes(1000, '\0');
        const auto got = _ours->Read(bytes.data(), bytes.size());
        const int error = errno;
        if (got < 0) return error == EAGAIN ? "again" : "failed";
        return bytes.substr(0, static_cast<std::size_t>(got));
    }

    KeyCentre _keys{"CORP.TEST"};
    Tickets _tickets{"CORP.TEST",
                     [this](const std::string&, std::string_view request) { return _keys.Answer(request); }};
    std::unique_ptr<Acceptor> _acceptor;
    kit::Descriptor _theirs;
    std::unique_ptr<LdapTransport> _ours;
};

TEST_F(Transport, EmptyMessagesGiveTheCallerTime) {
    for (int i = 0; i < 3; ++i) SendSealed("");
    SendSealed("text");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(), "again");
    EXPECT_EQ(Read(), "text");
    EXPECT_EQ(_ours->Received(), 4U);
}

TEST_F(Transport, MessageIsNoLongerThanWasAgreed) {
    Send(Length(SealedChannel::kMaximumMessage + 1024));
    EXPECT_EQ(Read(), "again");
    Send(std::string(100, 'x'));
    EXPECT_EQ(Read(), "again") << "waits for the rest";
}

TEST_F(Transport, LongerMessageEndsTheConnection) {
    Send(Length(SealedChannel::kMaximumMessage + 1025));
    EXPECT_EQ(Read(), "failed");
    EXPECT_EQ(_ours->Fault(), "The controller's message has no sensible length");
}

TEST_F(Transport, LongestMessageIsRead) {
    const std::string text(65000, 'x');
    SendSealed(text);
    std::string whole;
    for (std::string part = Read(); part != "again" && part != "failed"; part = Read()) whole += part;
    EXPECT_EQ(whole, text);
}

class Answers : public JoiningHost {
 protected:
    std::size_t Found(int entries) {
        for (int i = 0; i < entries; ++i) {
            corp.entries.Put("CN=" + std::to_string(i) + ",CN=System,DC=corp,DC=test", {{"a", {"b"}}});
        }
        const auto deadline = Deadline::After(std::chrono::seconds(60));
        const UserCredentials user = {"admin1", "Secret-1"};
        Session session(settings, "corp.test", {}, UserLogOn(settings, user, deadline), deadline);
        return session.Ldap().Search({"CN=System,DC=corp,DC=test", LdapScope::OneLevel, "(a=b)", {"a"}}).size();
    }
};

TEST_F(Answers, HaveTenThousandMessagesAtMost) {
    EXPECT_EQ(Found(9'999), 9'999U);
    try {
        Found(10'001);
        ADD_FAILURE() << "a longer answer";
    } catch (const LdapError& error) {
        EXPECT_THAT(error.what(), HasSubstr("the answer is too long"));
    }
}

TEST_F(Answers, OfStrangersAreShort) {
    corp.controller.SetChangePing([](const std::string& reply) { return reply + std::string(60'000, '\0'); });
    EXPECT_EQ(Join(), 0U);
    corp.controller.SetChangePing([](const std::string& reply) { return reply + std::string(66'000, '\0'); });
    settings.controllerBudget = std::chrono::milliseconds(300);
    settings.membership += ".of-another-host";
    EXPECT_EQ(Join(), kStatusNoSuchDomain);
}

}  // namespace
}  // namespace nimbrel::ad::test
