#include "names.h"

#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

TEST(Names, ComputerNames) {
    EXPECT_EQ(ComputerName("node01.corp.test"), "NODE01");
    EXPECT_EQ(ComputerName("node01$"), "NODE01");
    EXPECT_EQ(ComputerName("abcdefghijklmno"), "ABCDEFGHIJKLMNO");
    for (const char* name : {"abcdefghijklmnop", "", "$", "node_01", "12345", "-a", "a-",
                             "n\xc3\xb6"
                             "de",
                             ".corp.test"}) {
        EXPECT_EQ(StatusOf([&] { ComputerName(name); }), kStatusInvalidComputerName) << name;
    }
}

TEST(Names, DomainNames) {
    EXPECT_EQ(DnsName("Corp.Test."), "corp.test");
    for (const char* name : {"", ".", "a..b", "no good", "\xff", "-a.test", "a*b"}) {
        EXPECT_EQ(StatusOf([&] { DnsName(name); }), kStatusInvalidDomainName) << name;
    }
    EXPECT_EQ(StatusOf([] { DnsName(std::string(64, 'a')); }), kStatusInvalidDomainName);
    EXPECT_EQ(ControllerName("DC1.Corp.Test."), "dc1.corp.test");
    EXPECT_EQ(ControllerName("10.99.0.2"), "10.99.0.2");
    EXPECT_EQ(ControllerName("FD00::2"), "fd00::2");
    EXPECT_EQ(StatusOf([] { ControllerName(std::string_view("fd00::2\0x", 9)); }), kStatusInvalidComputerName);
    for (const char* name : {"dc 1", "[fd00::2]", "fd00::2%eth0", "fd00:::2", "dc1:389"}) {
        EXPECT_EQ(StatusOf([&] { ControllerName(name); }), kStatusInvalidComputerName) << name;
    }
}

TEST(Names, UserNamesInTheirParts) {
    const struct {
        const char* text;
        const char* name;
        const char* domain;
    } rows[] = {{"alice", "alice", ""},
                {"alice@corp.test", "alice", "corp.test"},
                {"alice@corp.test.", "alice", "corp.test"},
                {"CORP\\alice", "alice", "CORP"},
                {"Alice B", "Alice B", ""},
                {"alice@", "alice", ""},
                {"CORP\\a", "a", "CORP"},
                {"\xc3\xa4nne", "\xc3\xa4nne", ""}};
    for (const auto& row : rows) {
        const UserName user = SplitUserName(row.text);
        EXPECT_EQ(user.name, row.name) << row.text;
        EXPECT_EQ(user.domain, row.domain) << row.text;
    }
    for (const char* text :
         {"", "@", "@corp.test", "CORP\\", "\\a", "a*", "a/b", "a@b@c", "CORP\\a@b", "a\nb", "\xff\xfe", "a@no good"}) {
        EXPECT_EQ(StatusOf([&] { SplitUserName(text); }), kStatusInvalidAccountName) << text;
    }
    EXPECT_EQ(StatusOf([] { SplitUserName(std::string(100000, 'x')); }), kStatusInvalidAccountName);
    EXPECT_EQ(SplitUserName(std::string(256, 'x')).name.size(), 256U);
    EXPECT_EQ(StatusOf([] { SplitUserName(std::string(257, 'x')); }), kStatusInvalidAccountName);
    EXPECT_EQ(StatusOf([] { SplitUserName("no good\\alice"); }), kStatusInvalidAccountName);
}

TEST(Names, CharactersThatUserNamesCannotHold) {
    for (const char c : std::string("\"/\\[]:;|=,+*?<>@")) {
        EXPECT_EQ(StatusOf([&] { SplitUserName(std::string("CORP\\a") + c + "b"); }), kStatusInvalidAccountName) << c;
    }
    for (const char c : std::string("!#$%&'()-._^`{}~ ")) {
        EXPECT_EQ(SplitUserName(std::string("CORP\\a") + c + "b").name, std::string("a") + c + "b");
    }
}

TEST(Names, RefusalsTellWhatIsMalformed) {
    const auto textOf = [](const auto& call) -> std::string {
        try {
            call();
        } catch (const AdError& error) {
            return error.what();
        }
        return "no refusal";
    };
    EXPECT_EQ(textOf([] { DnsName("."); }), "The domain name is malformed");
    EXPECT_EQ(textOf([] { ControllerName("."); }), "The domain controller's name is malformed");
    EXPECT_EQ(textOf([] { ComputerName("-a"); }),
              "The host name is malformed: a computer account takes 1 to 15 letters, digits and hyphens");
    for (const char* user : {"a\nb", "\\a", "CORP\\"}) {
        EXPECT_EQ(textOf([&] { SplitUserName(user); }), "The user name is malformed");
    }
}

TEST(Names, Principals) {
    EXPECT_EQ(HostPrincipalName("NODE01", "corp.test"), "host/node01.corp.test@CORP.TEST");
    EXPECT_EQ(DomainDN("corp.test"), "DC=corp,DC=test");
}

TEST(Names, UnitsAsPathsAndDistinguishedNames) {
    const struct {
        const char* unit;
        const char* distinguishedName;
    } rows[] = {
        {"Hosts", "OU=Hosts,DC=corp,DC=test"},
        {"Hosts/Sub", "OU=Sub,OU=Hosts,DC=corp,DC=test"},
        {"A\\/B", "OU=A/B,DC=corp,DC=test"},
        {"A,B", "OU=A\\,B,DC=corp,DC=test"},
        {"#A ", "OU=\\#A\\ ,DC=corp,DC=test"},
        {"a=b", "OU=a\\=b,DC=corp,DC=test"},
        {"OU=Sub,OU=Hosts,DC=corp,DC=test", "OU=Sub,OU=Hosts,DC=corp,DC=test"},
        {"ou=Hosts,dc=CORP,dc=test", "ou=Hosts,dc=CORP,dc=test"},
        {"OU=Hosts", "OU=Hosts,DC=corp,DC=test"},
        {"CN=Computers,DC=corp,DC=test", "CN=Computers,DC=corp,DC=test"},
        {"OU=a,domainComponent=corp,0.9.2342.19200300.100.1.25=test",
         "OU=a,domainComponent=corp,0.9.2342.19200300.100.1.25=test"},
        {"OU=a+CN=b,DC=corp,DC=test", "OU=a+CN=b,DC=corp,DC=test"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(UnitDN(row.unit, "corp.test"), row.distinguishedName);
    }
}

TEST(Names, UnitsThatCannotBe) {
    for (const char* unit :
         {"/", "a//b", "a/", "OU=", "OU=a,,DC=corp", "OU=a\\", "\xff", "OU=a,DC=corp,OU=b", "a\nb"}) {
        EXPECT_EQ(StatusOf([&] { UnitDN(unit, "corp.test"); }), kStatusInvalidUnitName) << unit;
    }
    EXPECT_EQ(StatusOf([] { UnitDN(std::string(100000, 'x'), "corp.test"); }), kStatusInvalidUnitName);
    for (const char* unit : {"OU=a+DC=child,DC=corp,DC=test", "DC=child+OU=a,DC=corp,DC=test", "OU=a+CN=,DC=corp",
                             "OU=a,OID.0.9.2342.19200300.100.1.25=child,DC=corp,DC=test"}) {
        EXPECT_EQ(StatusOf([&] { UnitDN(unit, "corp.test"); }), kStatusInvalidUnitName) << unit;
    }
}

TEST(Names, UnitsAreAsLongAndAsDeepAsADirectoryTakesThem) {
    const auto statusOf = [](const std::string& unit) { return StatusOf([&] { UnitDN(unit, "corp.test"); }); };
    const auto path = [](std::size_t depth, std::size_t length) {
        std::string unit = std::string(length, 'x');
        for (std::size_t i = 1; i < depth; ++i) unit += '/' + std::string(length, 'x');
        return unit;
    };
    EXPECT_EQ(statusOf(path(1, 64)), 0U);
    EXPECT_EQ(statusOf(path(1, 65)), kStatusInvalidUnitName);
    EXPECT_EQ(statusOf(path(32, 63)), 0U) << "2047 bytes";
    EXPECT_EQ(statusOf(path(33, 2)), kStatusInvalidUnitName);
    EXPECT_EQ(statusOf(path(31, 63) + '/' + std::string(64, 'x')), 0U) << "2048 bytes";
    EXPECT_EQ(statusOf(path(30, 63) + '/' + path(2, 64)), kStatusInvalidUnitName) << "2049 bytes";
}

TEST(Names, UnitsOfOtherDomainsHoweverTheyAreSpelt) {
    for (const char* unit :
         {"OU=a,DC=other,DC=test", "OU=a,DC=child,DC=corp,DC=test", "OU=a,domaincomponent=child,DC=corp,DC=test",
          "OU=a,0.9.2342.19200300.100.1.25=child,DC=corp,DC=test", "OU=a,DC=#04056368696c64,DC=corp,DC=test"}) {
        EXPECT_EQ(StatusOf([&] { UnitDN(unit, "corp.test"); }), kStatusFileNotFound) << unit;
    }
}

TEST(Names, FiltersAreSafe) {
    EXPECT_EQ(EscapeFilter("a*(b)\\"), "a\\2a\\28b\\29\\5c");
    EXPECT_EQ(EscapeFilter(std::string("\0", 1)), "\\00");
}

TEST(Names, SecurityIdentifiers) {
    const std::string sid("\x01\x02\x00\x00\x00\x00\x00\x05\x15\x00\x00\x00\x01\x02\x03\x04", 16);
    EXPECT_EQ(SidText(sid), "S-1-5-21-67305985");
    EXPECT_EQ(SidText(sid.substr(0, 15)), "");
    EXPECT_EQ(SidText(sid + "x"), "");
    EXPECT_EQ(SidText(""), "");
    EXPECT_EQ(SidText(std::string("\x01\x00\x01\x02\x03\x04\x05\x06", 8)), "S-1-1108152157446");
    EXPECT_EQ(SidText(std::string("\x01\x00\x00\x00\x00\x00\x00", 7)), "");
    EXPECT_EQ(SidText(std::string("\x01\x01\x00\x00\x00\x00\x00\x05\xff\xfe\xfd\xfc", 12)), "S-1-5-4244504319");
    EXPECT_EQ(SidText("\x02" + sid.substr(1)), "");
}

}  // namespace
}  // namespace nimbrel::ad::test
