#include "names.h"

#include <gtest/gtest.h>

#include "embeddeddirectory/directory_error.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

using namespace std::string_literals;

const std::string kLongLabel(64, 'a');

struct Row {
    std::string given;
    std::string expected;  // compared when the status is 0
    std::uint32_t status = 0;
};

template <class Function>
void ExpectRows(const Function& function, const std::vector<Row>& rows) {
    for (const auto& row : rows) {
        SCOPED_TRACE("given '" + row.given + "'");
        std::string got;
        EXPECT_EQ(StatusOf([&] { got = function(row.given); }), row.status);
        EXPECT_EQ(got, row.expected);
    }
}

TEST(Names, DnsNames) {
    ExpectRows([](const std::string& name) { return DnsName(name); }, {
                                                                          {"corp.test", "corp.test"},
                                                                          {"Corp.TEST.", "corp.test"},
                                                                          {"corp", "corp"},
                                                                          {"a-b.c_d", "a-b.c_d"},
                                                                          {"", "", 1212},
                                                                          {".", "", 1212},
                                                                          {"corp..test", "", 1212},
                                                                          {"-corp.test", "", 1212},
                                                                          {"corp-.test", "", 1212},
                                                                          {"corp test", "", 1212},
                                                                          {"corp.t\xc3\xa9st", "", 1212},
                                                                          {"corp.test\n", "", 1212},
                                                                          {kLongLabel + ".test", "", 1212},
                                                                          {std::string(300, 'a'), "", 1212},
                                                                      });
}

TEST(Names, NetbiosNames) {
    ExpectRows([](const std::string& name) { return NetbiosName(name); }, {
                                                                              {"corp", "CORP"},
                                                                              {"ABCDEFGHIJKLMNO", "ABCDEFGHIJKLMNO"},
                                                                              {"ABCDEFGHIJKLMNOP", "", 1212},
                                                                              {"", "", 1212},
                                                                              {"co rp", "", 1212},
                                                                              {"corp.test", "", 1212},
                                                                              {"-corp", "", 1212},
                                                                          });
}

TEST(Names, DefaultNetbiosNameIsTheFirstLabelCutAtFifteen) {
    EXPECT_EQ(DefaultNetbiosName("corp.test"), "CORP");
    EXPECT_EQ(DefaultNetbiosName("single"), "SINGLE");
    EXPECT_EQ(DefaultNetbiosName("laboratory-abcd-x.test"), "LABORATORY-ABCD");
    EXPECT_EQ(DefaultNetbiosName("laboratoryabcd-x.test"), "LABORATORYABCD");
}

TEST(Names, ComputerNames) {
    ExpectRows([](const std::string& name) { return ComputerName(name); }, {
                                                                               {"node01", "NODE01"},
                                                                               {"node01.corp.test", "NODE01"},
                                                                               {"Node-01$", "NODE-01"},
                                                                               {"abcdefghijklmno", "ABCDEFGHIJKLMNO"},
                                                                               {"abcdefghijklmnop", "", 1210},
                                                                               {"12345", "", 1210},
                                                                               {"node_01", "", 1210},
                                                                               {"-node", "", 1210},
                                                                               {"node 01", "", 1210},
                                                                               {"", "", 1210},
                                                                               {"$", "", 1210},
                                                                               {".corp.test", "", 1210},
                                                                               {"n\xff", "", 1210},
                                                                           });
}

TEST(Names, ControllerNames) {
    ExpectRows([](const std::string& name) { return ControllerName(name); },
               {{"DC1.corp.test.", "dc1.corp.test"}, {"dc1 ", "", 1210}, {"", "", 1210}});
}

TEST(Names, UserNames) {
    ExpectRows([](const std::string& name) { return UserName(name); }, {
                                                                           {"Alice", "Alice"},
                                                                           {"J\xc3\xb6rg Meier", "J\xc3\xb6rg Meier"},
                                                                           {std::string(64, 'x'), std::string(64, 'x')},
                                                                           {std::string(65, 'x'), "", 1315},
                                                                           {"", "", 1315},
                                                                           {"a/b", "", 1315},
                                                                           {"a@b", "", 1315},
                                                                           {"a\tb", "", 1315},
                                                                           {"\xc3(", "", 1315},
                                                                       });
}

TEST(Names, QualifiedUserNames) {
    const auto split = [](const std::string& text) {
        const QualifiedName name = SplitUserName(text);
        return name.name + "|" + name.domain;
    };
    ExpectRows(split, {
                          {"alice", "alice|"},
                          {"alice@corp.test", "alice|corp.test"},
                          {"alice@corp.test.", "alice|corp.test"},
                          {"CORP\\alice", "alice|CORP"},
                          {"@corp.test", "", 1315},
                          {"alice@", "", 1315},
                          {"\\alice", "", 1315},
                          {"CORP\\", "", 1315},
                          {"a\\b\\c", "", 1315},
                          {"a@b@c", "", 1315},
                          {std::string(600, 'a'), "", 1315},
                      });
}

TEST(Names, UnitsInEitherFormAreTheSameUnit) {
    const auto path = [](const std::string& unit) { return UnitPath(ParseUnit(unit, "corp.test")); };
    ExpectRows(path, {
                         {"", ""},
                         {"Hosts", "Hosts"},
                         {"Hosts/Sub", "Hosts/Sub"},
                         {"OU=Sub,OU=Hosts,DC=corp,DC=test", "Hosts/Sub"},
                         {" ou = Sub , Ou=Hosts , dc=CORP,dc=Test", "Hosts/Sub"},
                         {"OU=Sub,OU=Hosts", "Hosts/Sub"},
                         {"OU=A\\,B\\2bC\\ ,DC=corp,DC=test", "A,B+C "},
                         {"OU=a/b,DC=corp,DC=test", "a\\/b"},
                         {"a\\/b/c\\\\d", "a\\/b/c\\\\d"},
                         {"CN=Computers,DC=corp,DC=test", ""},
                         {"OU=J\\c3\\b6rg,DC=corp,DC=test", "J\xc3\xb6rg"},
                         {"Hosts//Sub", "", 267},
                         {"/Hosts", "", 267},
                         {"Hosts/", "", 267},
                         {"OU=,DC=corp,DC=test", "", 267},
                         {"OU=a+b,DC=corp,DC=test", "", 267},
                         {"OU=a\"b", "", 267},
                         {"OU=a<b", "", 267},
                         {"OU=a>b", "", 267},
                         {"OU=a;b", "", 267},
                         {"OU=a\\4", "a4"},
                         {"OU=a\\4z", "a4z"},
                         {"OU=a\\z4", "az4"},
                         {"OU=a,x=b", "", 267},
                         {"OU=a,CN=Computers", "", 267},
                         {"CN=Computers,OU=a", "", 267},
                         {"CN=Computers,CN=x", "", 267},
                         {"DC=corp,CN=Computers", "", 267},
                         {"OU=a,DC=corp,OU=b", "", 267},
                         {"OU=a\\", "", 267},
                         {"OU=a,", "", 267},
                         {"DC=corp,OU=a", "", 267},
                         {"Ho\nsts", "", 267},
                         {"\xff\xfe", "", 267},
                         {std::string(65, 'x'), "", 267},
                         {std::string(3000, 'x'), "", 267},
                         {"OU=Hosts,DC=other,DC=test", "", 2},
                         {"CN=Users,DC=corp,DC=test", "", 2},
                     });
}

TEST(Names, UnitsDeeperThanThirtyTwoAreMalformed) {
    std::string path = "u";
    for (int i = 1; i < 32; ++i) {
        path += "/u";
    }
    EXPECT_EQ(ParseUnit(path, "corp.test").size(), 32U);
    EXPECT_EQ(StatusOf([&] { ParseUnit(path + "/u", "corp.test"); }), 267U);
}

TEST(Names, DistinguishedNamesAreEscapedAndReadBack) {
    for (const char* name : {"Hosts", "a,b", "#x", " x", "x ", "a+b", "a\\b", "a\"b", "a=b;<c>", "a/b"}) {
        SCOPED_TRACE(name);
        const std::string distinguishedName = UnitDistinguishedName({"Top", name}, "corp.test");
        EXPECT_EQ(ParseUnit(distinguishedName, "corp.test"), (UnitNames{"Top", name})) << distinguishedName;
        const std::string path = UnitPath({"Top", name});
        EXPECT_EQ(ParseUnit(path, "corp.test"), (UnitNames{"Top", name})) << path;
    }
    EXPECT_EQ(UnitDistinguishedName({"Hosts", "A, B"}, "corp.test"), "OU=A\\, B,OU=Hosts,DC=corp,DC=test");
}

TEST(Names, ComputersHaveADistinguishedNameAndAPrincipal) {
    EXPECT_EQ(ComputerDistinguishedName("NODE01", {}, "corp.test"), "CN=NODE01,CN=Computers,DC=corp,DC=test");
    EXPECT_EQ(ComputerDistinguishedName("NODE01", {"Hosts"}, "corp.test"), "CN=NODE01,OU=Hosts,DC=corp,DC=test");
    EXPECT_EQ(HostPrincipalName("NODE01", "corp.test"), "host/node01.corp.test@CORP.TEST");
}

}  // namespace
}  // namespace nimbrel::embedded::test
