// Sealed messages: understood by another implementation, and refused when anything about them is wrong.

#include "sealed_channel.h"

#include <gmock/gmock.h>

#include "addirectory/ad_error.h"
#include "kerberos.h"
#include "plugins/ad/domain/acceptor.h"
#include "plugins/ad/domain/key_centre.h"

namespace nimbrel::ad::test {
namespace {

constexpr std::size_t kHeaderSize = 16;

class Channel : public ::testing::Test {
 protected:
    explicit Channel(krb5_enctype encryption = ENCTYPE_AES256_CTS_HMAC_SHA1_96) : _keys("CORP.TEST", encryption) {
        _keys.SetPassword("alice", "Secret-1", "salt");
        _keys.AddService("ldap/dc1.corp.test");
        _tickets.LogOnWithPassword({"alice@CORP.TEST", false}, "Secret-1");
        _ours = std::make_unique<SealedChannel>(_tickets.Context(), _tickets.TicketFor("ldap/dc1.corp.test@CORP.TEST"));
        _theirs = std::make_unique<Acceptor>(_keys.Keytab());
        _answer = _theirs->Accept(_ours->Request());
    }

    void Begin() { _ours->Accept(_answer); }

    // What opening the token, or accepting it, ends with; its text where it is good.
    std::string Open(const std::string& token, bool sealed = true) {
        try {
            return std::string(_ours->Open(token, sealed).View());
        } catch (const AdError& error) {
            EXPECT_EQ(error.Status(), kStatusNoSuchDomain);
            return Reason(error);
        }
    }
    std::string Accept(const std::string& token) {
        try {
            _ours->Accept(token);
            return "accepted";
        } catch (const AdError& error) {
            EXPECT_EQ(error.Status(), kStatusNoSuchDomain);
            return Reason(error);
        }
    }
    static std::string Reason(const AdError& error) {
        const std::string text = error.what();
        const std::string start = "The controller's side of the sealed connection is not valid: ";
        EXPECT_EQ(text.substr(0, start.size()), start);
        return text.substr(start.size(), text.find(',') - start.size());
    }

    KeyCentre _keys;
    Tickets _tickets{"CORP.TEST",
                     [this](const std::string&, std::string_view request) { return _keys.Answer(request); }};
    std::unique_ptr<SealedChannel> _ours;
    std::unique_ptr<Acceptor> _theirs;
    std::string _answer;
};

TEST_F(Channel, BothSidesUnderstandEachOther) {
    Begin();
    EXPECT_EQ(_theirs->Unwrap(_ours->Sign("signed")), "signed");
    EXPECT_EQ(Open(_theirs->Wrap("their signed", false), false), "their signed");
    for (const std::size_t size : {1U, 15U, 16U, 17U, 1000U, 70000U}) {
        const std::string text(size, 'x');
        EXPECT_EQ(_theirs->Unwrap(_ours->Seal(text)), text);
        EXPECT_EQ(Open(_theirs->Wrap(text, true)), text);
    }
}

TEST_F(Channel, AnswerThatIsNoneIsRefused) {
    EXPECT_EQ(Accept(""), "not a token");
    EXPECT_EQ(Accept("x"), "not a token");
    EXPECT_EQ(Accept("HTTP/1.1 400 Bad Request"), "not a token");
    EXPECT_EQ(Accept("\x60\x05short"), "another kind of token");
    EXPECT_EQ(Accept("\x60\x82\x01"), "another kind of token");
    std::string otherKind = _answer;
    otherKind[_answer.find(std::string("\x02\x00", 2), 10)] = 3;
    EXPECT_EQ(Accept(otherKind), "another kind of token");
    std::string damaged = _answer;
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    EXPECT_EQ(Accept(damaged), "its proof");
}

TEST_F(Channel, HeaderOfAnotherMessageIsRefused) {
    Begin();
    const std::string token = _theirs->Wrap("message", true);
    const struct {
        std::size_t at;
        const char* reason;
    } kRows[] = {
        {0, "not a sealed message"},
        {1, "not a sealed message"},
        {2, "another kind of message"},
        {3, "not a sealed message"},
        {8, "a message is missing or repeated"},
        {15, "a message is missing or repeated"},
    };
    for (const auto& row : kRows) {
        std::string damaged = token;
        damaged[row.at] = static_cast<char>(damaged[row.at] ^ 0x02);
        EXPECT_EQ(Open(damaged), row.reason) << row.at;
    }
    EXPECT_EQ(Open(token), "message") << "none of them was counted";
}

TEST_F(Channel, DamagedTextIsRefused) {
    Begin();
    std::string token = _theirs->Wrap("message", true);
    token.back() = static_cast<char>(token.back() ^ 1);
    EXPECT_EQ(Open(token), "its seal");
}

TEST_F(Channel, DamagedHeaderIsRefused) {
    Begin();
    std::string token = _theirs->Wrap("message", true);
    token[5] = 1;  // filling that is not there
    EXPECT_EQ(Open(token), "its header");
}

TEST_F(Channel, TurnedTextIsTurnedBack) {
    Begin();
    std::string token = _theirs->Wrap("message", true);
    std::string body = token.substr(kHeaderSize);
    std::rotate(body.begin(), body.end() - 5, body.end());
    token[7] = 5;
    EXPECT_EQ(Open(token.substr(0, kHeaderSize) + body), "message");
}

TEST_F(Channel, MessagesHaveOneOrder) {
    Begin();
    const std::string first = _theirs->Wrap("first", true);
    const std::string second = _theirs->Wrap("second", true);
    EXPECT_EQ(Open(second), "a message is missing or repeated");
    EXPECT_EQ(Open(first), "first");
    EXPECT_EQ(Open(first), "a message is missing or repeated");
    EXPECT_EQ(Open(second), "second");
}

TEST_F(Channel, ShortOrOtherMessagesAreRefused) {
    Begin();
    EXPECT_EQ(Open(""), "not a sealed message");
    const std::string sealed = _theirs->Wrap("message", true);
    EXPECT_EQ(Open(sealed, false), "another kind of message");
    EXPECT_EQ(Open(sealed.substr(0, kHeaderSize)), "its seal");
}

TEST_F(Channel, SignatureIsChecked) {
    Begin();
    std::string token = _theirs->Wrap("message", false);
    token.back() = static_cast<char>(token.back() ^ 1);
    EXPECT_EQ(Open(token, false), "its signature");
}

TEST_F(Channel, MessageShorterThanItsSignatureIsRefused) {
    Begin();
    EXPECT_EQ(Open(_theirs->Wrap("message", false).substr(0, kHeaderSize + 5), false), "its signature");
}

TEST_F(Channel, OwnTokensAreNoneOfTheOtherSides) {
    Begin();
    EXPECT_EQ(Open(_ours->Seal("message")), "another kind of message");
}

class ShortKeyChannel : public Channel {
 protected:
    ShortKeyChannel() : Channel(ENCTYPE_AES128_CTS_HMAC_SHA1_96) {}
};

TEST_F(ShortKeyChannel, BothSidesUnderstandEachOther) {
    Begin();
    EXPECT_EQ(_theirs->Unwrap(_ours->Sign("signed")), "signed");
    EXPECT_EQ(Open(_theirs->Wrap("their signed", false), false), "their signed");
    EXPECT_EQ(_theirs->Unwrap(_ours->Seal("sealed")), "sealed");
    EXPECT_EQ(Open(_theirs->Wrap("their sealed", true)), "their sealed");
}

}  // namespace
}  // namespace nimbrel::ad::test
