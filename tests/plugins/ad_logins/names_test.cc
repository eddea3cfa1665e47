// What must not get into a configuration made of lines.

#include "names.h"

#include <functional>
#include <string>
#include <vector>

#include "log_ins_root.h"

namespace nimbrel::ad::test {
namespace {

using namespace logins;

const std::vector<std::string> kHostile = {
    "",      " ",     "a b",      "a\nb",     "a\rb",       "a\tb", std::string("a\0b", 3),
    "a]",    "[a",    "a=b",      "a,b",      "a;b",        "a#b",  "a/b",
    "-a",    "a\\b",  "a%b",      "a\"b",     "a'b",        "+a",   "a:b",
    "a$(b)", "a\x7f", "a\x1b[2J", "\xc3\xa4", "a*",         "a?b",  "a|b",
    "a<b",   "a@b",   "a`b",      "_srv_,a",  "a\n[sssd]x", "a{b}", "a~b",
};

TEST(NamesTest, ControllersAreNamesOrAddresses) {
    const auto isGood = [](const std::string& controller) {
        try {
            CheckControllers({controller});
            return true;
        } catch (const kit::StatusError&) {
            return false;
        }
    };
    for (const char* good : {"dc1", "dc1.corp.test", "10.99.0.2", "fd00::2", "::ffff:10.99.0.2"}) {
        EXPECT_TRUE(isGood(good)) << good;
    }
    for (const auto& bad : {std::string("[fd00::2]"), std::string("fd00::2%eth0"), std::string("fd00:::2"),
                            std::string("fd00::2,a"), std::string("fd00::2\0\n", 9)}) {
        EXPECT_FALSE(isGood(bad)) << bad;
    }
}

TEST(NamesTest, HostileTextIsNoName) {
    for (const auto& text : kHostile) {
        EXPECT_FALSE(IsDnsName(text)) << text;
        EXPECT_FALSE(IsServiceName(text)) << text;
        EXPECT_FALSE(IsMachineAccount(text)) << text;
        EXPECT_FALSE(IsPath(text)) << text;
    }
}

TEST(NamesTest, DnsNames) {
    const std::string label63(63, 'a');
    for (const std::string name : {"a", "corp.test", "DC-1.corp.test", "1.2.3.4", "a_b.c", "xn--4ca.test"}) {
        EXPECT_TRUE(IsDnsName(name)) << name;
    }
    for (const std::string name : {"a..b", ".a", "a.", "_srv_", "-a.b", "a.-b"}) {
        EXPECT_FALSE(IsDnsName(name)) << name;
    }
    EXPECT_TRUE(IsDnsName(label63 + '.' + label63 + '.' + label63 + '.' + std::string(61, 'b')));
    EXPECT_FALSE(IsDnsName(label63 + '.' + label63 + '.' + label63 + '.' + std::string(62, 'b')));
    EXPECT_FALSE(IsDnsName(std::string(64, 'a')));
}

TEST(NamesTest, NetbiosNames) {
    for (const std::string name : {"CORP", "A&B-1_2.3", "CO'RP!", "BJ\xc3\x96RN", "(X)"}) {
        EXPECT_TRUE(IsNetbiosName(name)) << name;
    }
    for (const std::string name : {"", "A B", "A\nB", "A\x7f", "A]", "A=B", "A\"B", "A\\B"}) {
        EXPECT_FALSE(IsNetbiosName(name)) << name;
    }
    EXPECT_TRUE(IsNetbiosName(std::string(14, 'a') + "\xc3\xa4"));
    EXPECT_FALSE(IsNetbiosName(std::string(16, 'a')));
    EXPECT_FALSE(IsNetbiosName("a" + std::string(60, '\x80')));
}

TEST(NamesTest, ServiceNames) {
    for (const std::string name : {"sshd", "su-l", "gdm-password", "systemd-user", "my.service_2"}) {
        EXPECT_TRUE(IsServiceName(name)) << name;
    }
    for (const std::string name : {"..", ".", "-x", "+x", "../sshd"}) EXPECT_FALSE(IsServiceName(name)) << name;
    EXPECT_TRUE(IsServiceName(std::string(64, 'a')));
    EXPECT_FALSE(IsServiceName(std::string(65, 'a')));
}

TEST(NamesTest, MachineAccounts) {
    EXPECT_TRUE(IsMachineAccount("NODE01$"));
    for (const std::string name : {"NODE01", "$", "NODE$01$", "NODE01$ ", "NODE01$\n"}) {
        EXPECT_FALSE(IsMachineAccount(name)) << name;
    }
}

// One field of the membership or of the options.
struct Field {
    const char* name;
    std::function<void(DomainLogIns&, LogInOptions&, const std::string&)> set;
};

const std::vector<Field> kFields = {
    {"dnsName", [](DomainLogIns& domain, LogInOptions&, const std::string& text) { domain.dnsName = text; }},
    {"realm", [](DomainLogIns& domain, LogInOptions&, const std::string& text) { domain.realm = text; }},
    {"netbiosName", [](DomainLogIns& domain, LogInOptions&, const std::string& text) { domain.netbiosName = text; }},
    {"hostName", [](DomainLogIns& domain, LogInOptions&, const std::string& text) { domain.hostName = text; }},
    {"account", [](DomainLogIns& domain, LogInOptions&, const std::string& text) { domain.machineAccount = text; }},
    {"keytab", [](DomainLogIns& domain, LogInOptions&, const std::string& text) { domain.keytab = text; }},
    {"shell", [](DomainLogIns&, LogInOptions& options, const std::string& text) { options.shell = text; }},
    {"home", [](DomainLogIns&, LogInOptions& options, const std::string& text) { options.home = text; }},
    {"access", [](DomainLogIns&, LogInOptions& options, const std::string& text) { options.access = text; }},
};

using HostileNamesTest = LogInsRoot;

TEST_F(HostileNamesTest, AreRefusedInEveryFieldAndChangeNothing) {
    const auto before = Everything();
    for (const auto& field : kFields) {
        for (const std::string text : {"", "a\n[domain/evil]", "x]", "/a\nb", "a\rb", "/a\x7f"}) {
            DomainLogIns domain = Corp();
            LogInOptions options;
            field.set(domain, options, text);
            LogIns other(RootPath(), options);
            EXPECT_EQ(StatusOf([&] { other.Enable(domain); }), 87U) << field.name << ": " << text;
        }
    }
    EXPECT_EQ(Everything(), before);
}

TEST_F(HostileNamesTest, AreRefusedInLists) {
    const auto before = Everything();
    for (const auto& text : kHostile) {
        EXPECT_EQ(StatusOf([&] { logIns.SetPreferredControllers({"dc1.corp.test", text}); }), 87U) << text;
        EXPECT_EQ(StatusOf([&] { logIns.SetSmartCardServices({"sshd", text}); }), 87U) << text;
    }
    const std::vector<std::string> tooMany(257, "a");
    EXPECT_EQ(StatusOf([&] { logIns.SetPreferredControllers(tooMany); }), 87U);
    EXPECT_EQ(StatusOf([&] { logIns.SetSmartCardServices(tooMany); }), 87U);
    EXPECT_EQ(Everything(), before);
}

TEST_F(HostileNamesTest, AreShownWithoutTheirControlCharacters) {
    try {
        logIns.SetSmartCardServices({"a\n\x1b[2J"});
        FAIL() << "not refused";
    } catch (const kit::StatusError& error) {
        EXPECT_STREQ(error.what(), "The service name 'a??[2J' is malformed");
    }
}

}  // namespace
}  // namespace nimbrel::ad::test
