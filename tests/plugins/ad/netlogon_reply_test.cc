#include "netlogon_reply.h"

#include <gtest/gtest.h>

namespace nimbrel::ad::test {
namespace {

// As a controller sent it: names compressed, both sites the same.
const std::string& RealReply() {
    static const std::string reply(
        "\x17\x00\x00\x00\xfd\x13\x00\x00\x1a\xd0\x2b\x24\x0e\x73\xf9\x44\x97\x2c\x55\x02\xc2\xa8\x47\xca"
        "\x04"
        "corp"
        "\x04"
        "test"
        "\x00"
        "\xc0\x18"
        "\x03"
        "dc1"
        "\xc0\x18"
        "\x04"
        "CORP"
        "\x00"
        "\x03"
        "DC1"
        "\x00"
        "\x00"
        "\x17"
        "Default-First-Site-Name"
        "\x00"
        "\xc0\x37"
        "\x05\x00\x00\x00\xff\xff\xff\xff",
        90);
    return reply;
}

TEST(NetlogonReply, TellsWhoAnswers) {
    const auto reply = ParseNetlogonReply(RealReply());
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->forest, "corp.test");
    EXPECT_EQ(reply->domain, "corp.test");
    EXPECT_EQ(reply->controller, "dc1.corp.test");
    EXPECT_EQ(reply->netbiosDomain, "CORP");
    EXPECT_EQ(reply->serverSite, "Default-First-Site-Name");
    EXPECT_EQ(reply->clientSite, "Default-First-Site-Name");
    EXPECT_EQ(reply->flags, 0x13fdU);
    EXPECT_TRUE(reply->IsClosest());
}

TEST(NetlogonReply, CutAnywhereIsNoReply) {
    for (std::size_t size = 0; size < 82; ++size) {
        EXPECT_FALSE(ParseNetlogonReply(std::string_view(RealReply()).substr(0, size))) << size;
    }
}

TEST(NetlogonReply, OtherOperationsAreNoReply) {
    for (const char operation : {'\x00', '\x13', '\x15', '\x19'}) {
        std::string reply = RealReply();
        reply[0] = operation;
        EXPECT_FALSE(ParseNetlogonReply(reply));
    }
}

// Every byte with every value: nothing is read outside, nothing loops, and no name outgrows its limit.
TEST(NetlogonReply, HostileBytesEnd) {
    for (std::size_t at = 0; at < RealReply().size(); ++at) {
        for (int value = 0; value < 256; ++value) {
            std::string bytes = RealReply();
            bytes[at] = static_cast<char>(value);
            const auto reply = ParseNetlogonReply(bytes);
            if (reply) {
                EXPECT_LE(reply->controller.size(), 256U);
            }
        }
    }
}

TEST(NetlogonReply, PointersToThemselvesAndForwardAreRefused) {
    for (const char target : {'\x18', '\x19', '\x30'}) {
        std::string bytes = RealReply().substr(0, 24);
        bytes += '\xc0';
        bytes += target;
        bytes.append(60, '\0');
        EXPECT_FALSE(ParseNetlogonReply(bytes));
    }
}

TEST(NetlogonReply, ControlCharactersAreRefused) {
    std::string bytes = RealReply();
    bytes[25] = '\n';
    EXPECT_FALSE(ParseNetlogonReply(bytes));
}

}  // namespace
}  // namespace nimbrel::ad::test
