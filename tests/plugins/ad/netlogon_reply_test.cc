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
    EXPECT_TRUE(reply->ServesLdapAndKerberos());
    EXPECT_TRUE(reply->IsWritable());
    EXPECT_FALSE(reply->isPaused);
}

std::string Labels(const std::vector<std::string>& labels) {
    std::string bytes;
    for (const auto& label : labels) {
        bytes += static_cast<char>(label.size());
        bytes += label;
    }
    return bytes + '\0';
}

// A reply with these eight names, none of them compressed.
std::string ReplyWith(const std::vector<std::string>& names) {
    std::string bytes = RealReply().substr(0, 24);
    for (const auto& name : names) {
        bytes += name;
    }
    return bytes;
}

// Forest, domain, controller, the domain's short name, the controller's, a user, and the two sites.
std::vector<std::string> SomeNames() {
    return {Labels({"forest", "test"}), Labels({"corp", "test"}), Labels({"dc1", "corp", "test"}),
            Labels({"CORP"}),           Labels({"DC1"}),          Labels({"alice"}),
            Labels({"site-a"}),         Labels({"site-b"})};
}

TEST(NetlogonReply, NamesStandInTheirPlaces) {
    auto names = SomeNames();
    names[1] = Labels({"Corp", "TEST"});
    names[2] = Labels({"DC1", "Corp", "Test"});
    const auto reply = ParseNetlogonReply(ReplyWith(names));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->forest, "forest.test");
    EXPECT_EQ(reply->domain, "corp.test");
    EXPECT_EQ(reply->controller, "dc1.corp.test");
    EXPECT_EQ(reply->netbiosDomain, "CORP");
    EXPECT_EQ(reply->serverSite, "site-a");
    EXPECT_EQ(reply->clientSite, "site-b");
}

TEST(NetlogonReply, FlagsAreFourBytesAndTheOperationTwo) {
    std::string bytes = ReplyWith(SomeNames());
    bytes.replace(4, 4, "\x12\x34\x56\xf8");
    ASSERT_TRUE(ParseNetlogonReply(bytes));
    EXPECT_EQ(ParseNetlogonReply(bytes)->flags, 0xf8563412U);
    bytes[0] = 24;
    ASSERT_TRUE(ParseNetlogonReply(bytes));
    EXPECT_TRUE(ParseNetlogonReply(bytes)->isPaused);
    bytes[1] = 1;
    EXPECT_FALSE(ParseNetlogonReply(bytes));
}

TEST(NetlogonReply, DomainControllerAndShortNameMustBeTold) {
    for (std::size_t at = 0; at < 8; ++at) {
        auto names = SomeNames();
        names[at] = Labels({});
        EXPECT_EQ(ParseNetlogonReply(ReplyWith(names)).has_value(), at == 0 || at > 3) << at;
    }
}

// A Kerberos name is made of them: "ldap/dc1.corp.test/corp.test@CORP.TEST".
TEST(NetlogonReply, DomainAndControllerAreDnsNames) {
    for (const char* label : {"d@1", "dc1/x", "dc\\1", "dc 1", "-dc1", "d\xc3\xbc"}) {
        for (const std::size_t at : {1U, 2U}) {
            auto names = SomeNames();
            names[at] = Labels({label, "corp", "test"});
            EXPECT_FALSE(ParseNetlogonReply(ReplyWith(names))) << label;
        }
    }
}

TEST(NetlogonReply, LabelsHave63AndNames255CharactersAtMost) {
    const std::string label(63, 'a');
    const auto isGood = [](const std::string& forest) {
        auto names = SomeNames();
        names[0] = forest;
        return ParseNetlogonReply(ReplyWith(names)).has_value();
    };
    EXPECT_TRUE(isGood(Labels({label})));
    EXPECT_FALSE(isGood(Labels({label + "a"})));
    EXPECT_TRUE(isGood(Labels({label, label, label, label})));
    EXPECT_TRUE(isGood(Labels({label, label, label, std::string(61, 'a'), "a"})));
    EXPECT_FALSE(isGood(Labels({label, label, label, std::string(62, 'a'), "a"})));
}

TEST(NetlogonReply, PointersReachBehindTheFirst256Bytes) {
    auto names = SomeNames();
    names[5] = Labels({std::string(60, 'a'), std::string(60, 'b'), std::string(60, 'c'), std::string(60, 'd')});
    std::string bytes = ReplyWith({names[0], names[1], names[2], names[3], names[4], names[5]});
    const std::size_t at = bytes.size();
    ASSERT_GT(at, 256U);
    bytes += names[6] + '\xc1' + static_cast<char>(at - 256);
    const auto reply = ParseNetlogonReply(bytes);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->clientSite, "site-a");
    EXPECT_FALSE(ParseNetlogonReply(bytes.substr(0, bytes.size() - 1)));
}

// Each in memory of its own size, so that a look behind the end is seen.
TEST(NetlogonReply, CutAnywhereWithoutPointersIsNoReply) {
    const std::string whole = ReplyWith(SomeNames());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::vector<char> bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(ParseNetlogonReply(std::string_view(bytes.data(), size))) << size;
    }
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

TEST(NetlogonReply, PointerForwardBehindGoodNamesIsRefused) {
    auto names = SomeNames();
    names[7] = "\xc0\xf0";
    EXPECT_FALSE(ParseNetlogonReply(ReplyWith(names)));
    names[7] = "\xc0\x18";
    EXPECT_TRUE(ParseNetlogonReply(ReplyWith(names)));
}

TEST(NetlogonReply, ControlCharactersAndWhatIsNotUtf8AreRefused) {
    std::string bytes = RealReply();
    bytes[25] = '\n';
    EXPECT_FALSE(ParseNetlogonReply(bytes));
    bytes[25] = '\xff';
    EXPECT_FALSE(ParseNetlogonReply(bytes));
}

}  // namespace
}  // namespace nimbrel::ad::test
