#include "addirectory/settings.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class SettingsFile : public Sandbox {};

TEST_F(SettingsFile, MissingFileMeansDefaults) {
    const Settings settings = Settings::Load(Path("ad.conf"));
    EXPECT_EQ(settings.keytab, "/etc/krb5.keytab");
    EXPECT_EQ(settings.membership, "/var/lib/nimbrel/ad/membership");
    EXPECT_EQ(settings.ldapPort, 389);
    EXPECT_EQ(settings.kerberosPort, 88);
    EXPECT_TRUE(settings.certificateAuthority.empty());
    EXPECT_LE(settings.queryBudget, std::chrono::seconds(60)) << "a question ends before the store stops waiting";
}

TEST(Settings, EveryKeyIsTaken) {
    const Settings settings = Settings::Parse(
        "# comment\n"
        "\n"
        "join_seconds = 30\n"
        "leave_seconds=20\n"
        "  query_seconds = \"5\"\t\r\n"
        "roll_back_seconds = 7\ncontroller_seconds = 1\nname_seconds = 3\navoid_seconds = 0\n"
        "name_servers = \"10.99.0.1  fd00::1\"\nname_server_port = 5353\nkerberos_port = 1088\nldap_port = 1389\n"
        "ldaps_port = 1636\nsite = Office-2\ncertificate_authority = /etc/ca.pem\nkeytab = \"/k\"\nmembership = /m\n"
        "log_in_shell = /bin/sh\nlog_in_home = /h/%u\nlog_in_full_names = false\nlog_in_access = simple");
    EXPECT_EQ(settings.joinBudget, std::chrono::seconds(30));
    EXPECT_EQ(settings.leaveBudget, std::chrono::seconds(20));
    EXPECT_EQ(settings.queryBudget, std::chrono::seconds(5));
    EXPECT_EQ(settings.rollBackBudget, std::chrono::seconds(7));
    EXPECT_EQ(settings.controllerBudget, std::chrono::seconds(1));
    EXPECT_EQ(settings.nameBudget, std::chrono::seconds(3));
    EXPECT_EQ(settings.avoidance, std::chrono::seconds(0));
    EXPECT_THAT(settings.nameServers, ElementsAre("10.99.0.1", "fd00::1"));
    EXPECT_EQ(settings.nameServerPort, 5353);
    EXPECT_EQ(settings.kerberosPort, 1088);
    EXPECT_EQ(settings.ldapPort, 1389);
    EXPECT_EQ(settings.ldapsPort, 1636);
    EXPECT_EQ(settings.site, "Office-2");
    EXPECT_EQ(settings.certificateAuthority, "/etc/ca.pem");
    EXPECT_EQ(settings.keytab, "/k");
    EXPECT_EQ(settings.membership, "/m");
    EXPECT_EQ(settings.logInShell, "/bin/sh");
    EXPECT_EQ(settings.logInHome, "/h/%u");
    EXPECT_FALSE(settings.logInFullNames);
    EXPECT_EQ(settings.logInAccess, "simple");
}

TEST(Settings, WhatCannotBeMeantIsRefused) {
    for (const char* line : {
             "query_second = 5",     // unknown
             "query_seconds",        // no value
             "query_seconds =",      // empty
             "query_seconds = 0",    // too little
             "query_seconds = 601",  // too much
             "query_seconds = 5s",   //
             "query_seconds = -5",   //
             "query_seconds = 5\nquery_seconds = 6",
             "ldap_port = 65536",        //
             "name_servers = dc1",       // a name
             "keytab = krb5.keytab",     // relative
             "keytab = /etc/",           // a folder
             "site = a.b",               // would become another DNS name
             "log_in_full_names = yes",  //
             "log_in_access = all",      //
             "= 5",
         }) {
        EXPECT_EQ(StatusOf([&] { Settings::Parse(line); }), kStatusBadConfiguration) << line;
    }
}

TEST(Settings, BoundsAreTakenAndWhatLiesBehindThemIsNot) {
    const std::string label(63, 'a');
    const struct {
        std::string line;
        bool good;
    } rows[] = {
        {"join_seconds = 1", true},
        {"join_seconds = 600", true},
        {"join_seconds = 0", false},
        {"join_seconds = 601", false},
        {"leave_seconds = 600", true},
        {"leave_seconds = 1", true},
        {"leave_seconds = 0", false},
        {"leave_seconds = 601", false},
        {"query_seconds = 600", true},
        {"query_seconds = 1", true},
        {"roll_back_seconds = 600", true},
        {"roll_back_seconds = 1", true},
        {"roll_back_seconds = 0", false},
        {"roll_back_seconds = 601", false},
        {"controller_seconds = 60", true},
        {"controller_seconds = 0", false},
        {"controller_seconds = 61", false},
        {"name_seconds = 60", true},
        {"name_seconds = 1", true},
        {"name_seconds = 0", false},
        {"name_seconds = 61", false},
        {"avoid_seconds = 3600", true},
        {"avoid_seconds = 3601", false},
        {"ldap_port = 0", false},
        {"ldap_port = 1", true},
        {"ldap_port = 65535", true},
        {"name_servers = 10.0.0.1 dc1", false},
        {"name_servers = \"\"", true},
        {"keytab = /", false},
        {"keytab = /a", true},
        {"site = " + label, true},
        {"site = " + label + "a", false},
        {"site = a/b", false},
        {"site = a\\b", false},
        {"site = a b", false},
        {"site = \"\"", false},
        {"log_in_access = ad", true},
        {"log_in_access = deny", true},
        {"log_in_access = simple", true},
        {"log_in_full_names = true", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(StatusOf([&] { Settings::Parse(row.line); }), row.good ? 0U : kStatusBadConfiguration) << row.line;
    }
    EXPECT_TRUE(Settings::Parse("log_in_full_names = true").logInFullNames);
    EXPECT_EQ(Settings::Parse("avoid_seconds = 3600").avoidance, std::chrono::hours(1));
    EXPECT_EQ(Settings::Parse("ldap_port = 65535").ldapPort, 65535);
}

TEST(Settings, QuotesCountInPairsOnly) {
    EXPECT_EQ(Settings::Parse("log_in_home = \"/h\"").logInHome, "/h");
    EXPECT_EQ(Settings::Parse("log_in_home = /h\"").logInHome, "/h\"");
    EXPECT_EQ(Settings::Parse("log_in_home = /h=%u").logInHome, "/h=%u");
    EXPECT_EQ(Settings::Parse("site = \"").site, "\"");
    EXPECT_EQ(Settings::Parse("site = \"a").site, "\"a");
    EXPECT_EQ(Settings::Parse("\r\tsite\t = \ta \r\n\r\n# x").site, "a");
}

TEST(Settings, ControlCharactersAreRefused) {
    using namespace std::string_literals;
    for (const std::string& line : {"name_servers = \"10.0.0.1\0x\""s, "keytab = /a\x01"s, "site = a\x1b[2J"s,
                                    "log_in_home = /h\t/%u"s, "certificate_authority = /\x7f"s}) {
        EXPECT_EQ(StatusOf([&] { Settings::Parse(line); }), kStatusBadConfiguration) << line;
    }
}

TEST(Settings, TheLineIsNamed) {
    try {
        Settings::Parse("# one\n\nquery_seconds = x\n");
        FAIL();
    } catch (const AdError& error) {
        EXPECT_THAT(error.what(), HasSubstr("Line 3"));
        EXPECT_THAT(error.what(), HasSubstr("query_seconds"));
    }
}

TEST(Settings, EveryReasonIsTold) {
    const struct {
        const char* text;
        const char* reason;
    } rows[] = {{"site", "Line 1 of ad.conf: no '='"},
                {"site = a\n\nsites = b", "Line 3 of ad.conf: unknown key 'sites'"},
                {"site = a\nsite = b", "Line 2 of ad.conf: 'site' is set twice"},
                {"\nkeytab = a", "Line 2 of ad.conf: the value of 'keytab' is not valid"}};
    for (const auto& row : rows) {
        try {
            Settings::Parse(row.text);
            ADD_FAILURE() << row.text;
        } catch (const AdError& error) {
            EXPECT_STREQ(error.what(), row.reason);
        }
    }
}

TEST_F(SettingsFile, FileThatOthersMayWriteIsRefused) {
    WriteFile(Path("ad.conf"), "query_seconds = 5\n");
    EXPECT_EQ(Settings::Load(Path("ad.conf")).queryBudget, std::chrono::seconds(5));
    std::filesystem::permissions(Path("ad.conf"), std::filesystem::perms(0666));
    EXPECT_EQ(StatusOf([&] { Settings::Load(Path("ad.conf")); }), kStatusAccessDenied);
    std::filesystem::permissions(Path("ad.conf"), std::filesystem::perms(0664));
    EXPECT_EQ(StatusOf([&] { Settings::Load(Path("ad.conf")); }), getegid() == 0 ? 0U : kStatusAccessDenied)
        << "root's own group has root alone";
    const bool given = chown(Path("ad.conf").c_str(), 0, 65534) == 0;
    EXPECT_EQ(StatusOf([&] { Settings::Load(Path("ad.conf")); }), given || getegid() != 0 ? kStatusAccessDenied : 0U);
    std::filesystem::create_directory(Path("folder"));
    EXPECT_EQ(StatusOf([&] { Settings::Load(Path("folder")); }), kStatusAccessDenied);
}

}  // namespace
}  // namespace nimbrel::ad::test
