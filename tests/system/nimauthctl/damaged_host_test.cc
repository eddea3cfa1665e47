// Settings and files that are missing, malformed or damaged.

#include <filesystem>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kAuthentication[] = "/etc/nimbrel/nimauth/authentication.conf";
constexpr char kProvider[] = "/etc/nimbrel/nimauth/provider.conf";
constexpr char kProxyProvider[] = "/etc/nimbrel/nimauth/apxprovider.conf";

class DamagedHostTest : public ToolHost {};

TEST_F(DamagedHostTest, MissingRecordOfTheStore) {
    std::filesystem::remove(kAuthentication);
    for (const Words& words : {Words{"store", "list"}, Words{"store", "show"}, Words{"store", "set", "None"},
                               Words{"store", "set", "Active Directory"}}) {
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(1));
        EXPECT_THAT(result.errors, StartsWith("error: Unable to open '/etc/nimbrel/nimauth/authentication.conf': "));
    }
    const ProgramResult status = Ctl({"status"});
    EXPECT_THAT(status, ExitsWith(1));
    EXPECT_THAT(status.output, AllOf(HasLine("active store: unavailable"), HasLine("joined: no")));
}

TEST_F(DamagedHostTest, RecordWithoutItsKey) {
    WriteFile(kAuthentication, "other = x\n");
    const ProgramResult result = Ctl({"store", "set", "Active Directory"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(
        result.errors,
        StartsWith("error: The specified key 'remote-authentication-store' was not found in this configuration\n"));
    EXPECT_EQ("other = x\n", ReadFile(kAuthentication));
}

TEST_F(DamagedHostTest, RecordThatNamesAnUnknownStoreIsRepaired) {
    WriteFile(kAuthentication, "remote-authentication-store = LDAP\n");
    EXPECT_THAT(Done({"store", "show"}), AllOf(HasLine("active store: LDAP"), HasSubstr("note: ")));
    const ProgramResult result = Ctl({"store", "set", "None"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.output, HasLine("active store: None"));
    EXPECT_THAT(result.errors, StartsWith("error: The specified store 'LDAP' is unknown\n"));
    EXPECT_EQ("active store: None\n", Done({"store", "show"}));
}

TEST_F(DamagedHostTest, MissingProviderFile) {
    std::filesystem::remove(kProvider);
    for (const Words& words :
         {Words{"join", "corp.test", "-U", "a"}, Words{"leave"}, Words{"store", "set", "Active Directory"}}) {
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(1)) << words.front();
        EXPECT_THAT(result.errors,
                    StartsWith("error: The specified Active Directory provider '(none installed)' is invalid\n"));
    }
    EXPECT_THAT(Done({"store", "show"}), HasLine("active store: None"));
}

TEST_F(DamagedHostTest, LocalUsersAreChosenEvenIfTheDirectoryCannotBeAsked) {
    Done({"store", "set", "Active Directory"});
    std::filesystem::remove(kProvider);
    const ProgramResult result = Ctl({"store", "set", "None"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.output, HasLine("active store: None"));
    EXPECT_THAT(result.errors,
                StartsWith("error: The specified Active Directory provider '(none installed)' is invalid\n"));
    EXPECT_THAT(Done({"store", "show"}), HasLine("active store: None"));
}

struct ProviderCase {
    const char* text;
    const char* error;
};

TEST_F(DamagedHostTest, ProviderFilesThatCannotBeUsed) {
    constexpr ProviderCase kCases[] = {
        {"provider = \"\"\n", "The specified Active Directory provider '(unset)' is invalid"},
        {"provider = nosuch\n", "The specified Active Directory provider 'nosuch' is invalid"},
        {"provider\n", "Error parsing configuration on line 1: no delimiter found"},
        {"\nother = x\n", "The specified key 'provider' was not found in this configuration"},
        {"", "The specified key 'provider' was not found in this configuration"}};
    for (const ProviderCase& provider : kCases) {
        WriteFile(kProvider, provider.text);
        const ProgramResult result = Ctl({"join", "corp.test", "-U", "administrator"});
        EXPECT_THAT(result, ExitsWith(1)) << provider.text;
        EXPECT_THAT(result.errors, StartsWith("error: " + std::string(provider.error) + '\n'));
        EXPECT_THAT(result.errors, AllOf(HasSubstr("\ncause: "), HasSubstr("\nremedy: ")));
        EXPECT_THAT(result.errors, Not(HasSubstr("remote-authentication-store")));
        EXPECT_THAT(Ctl({"status"}), ExitsWith(1)) << provider.text;
    }
}

TEST_F(DamagedHostTest, WhatIsMissingForAProxyIsNamed) {
    WriteFile("/etc/nimbrel/nimauth/apxprovider.conf", "x = \"\"\n");
    EXPECT_THAT(Ctl({"proxy", "domain", "192.0.2.7"}).errors,
                HasSubstr("provider = \"apxhttps\" to apxprovider.conf\n"));
    WriteFile("/etc/nimbrel/nimauth/apxprovider.conf", "provider = \"nope\"\n");
    const ProgramResult result = Ctl({"proxy", "domain", "192.0.2.7"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.errors,
                AllOf(StartsWith("error: Unable to open APX provider: "),
                      HasSubstr("\ncause: the proxy plug-in that /etc/nimbrel/nimauth/apxprovider.conf names cannot")));
}

TEST_F(DamagedHostTest, ConfigShowReportsEachFileForItself) {
    WriteFile(kProvider, "provider = embedded\nbroken\n");
    std::filesystem::remove(kProxyProvider);
    const ProgramResult result = Ctl({"config", "show"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(
        result.output,
        AllOf(HasLine("setting: remote-authentication-store value=None from=/etc/nimbrel/nimauth/authentication.conf"),
              HasLine("file: /etc/nimbrel/nimauth/provider.conf state=unusable"),
              HasLine("file: /etc/nimbrel/nimauth/apxprovider.conf state=unusable"),
              HasLine("file: /etc/nimbrel/nimauth/authentication.conf state=ok"),
              HasLine("file: /var/lib/nimbrel/configstore.db state=ok")));
    EXPECT_THAT(result.errors, AllOf(HasSubstr("error: Error parsing configuration on line 2: no delimiter found\n"
                                               "where: /etc/nimbrel/nimauth/provider.conf\n"),
                                     HasSubstr("error: Unable to open '/etc/nimbrel/nimauth/apxprovider.conf': ")));
}

TEST_F(DamagedHostTest, DirectoryInThePlaceOfAFile) {
    std::filesystem::remove(kProvider);
    std::filesystem::create_directory(kProvider);
    const ProgramResult result = Ctl({"config", "show"});
    std::filesystem::remove(kProvider);
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.errors, HasSubstr(kProvider));
}

TEST_F(DamagedHostTest, DamagedConfigurationStore) {
    HaveJoined();
    WriteFile("/var/lib/nimbrel/configstore.db", std::string(8192, 'x'));
    for (const Words& words : {Words{"status"}, Words{"config", "show"}, Words{"option", "list"}}) {
        const ProgramResult result = Ctl(words);
        EXPECT_THAT(result, ExitsWith(1)) << words.front();
        EXPECT_THAT(result.errors, AllOf(StartsWith("error: "), HasSubstr("configstore.db")));
    }
    EXPECT_THAT(Ctl({"status"}).output, AllOf(HasLine("joined: yes"), HasLine("stored domain: unavailable")));
}

// The way that the failures themselves point out.
TEST_F(DamagedHostTest, RemediesOfADamagedConfigurationStoreLeadToItsEnd) {
    HaveDomain();
    WriteFile("/var/lib/nimbrel/configstore.db", std::string(8192, 'x'));
    EXPECT_THAT(Ctl({"join", "--proxy", "192.0.2.7"}).errors,
                HasSubstr("see 'nimauthctl option get UserVars.ActiveDirectoryVerifyAPXCertificate'"));
    EXPECT_THAT(Ctl({"option", "get", "UserVars.ActiveDirectoryVerifyAPXCertificate"}).errors,
                HasSubstr("then put a backup in its place or start anew"));
    std::filesystem::remove("/var/lib/nimbrel/configstore.db");
    Done({"option", "get", "UserVars.ActiveDirectoryVerifyAPXCertificate"});
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
}

TEST_F(DamagedHostTest, LeaveWhoseSettingsCannotBeRemovedSaysThatTheHostHasLeft) {
    HaveJoined();
    WriteFile("/var/lib/nimbrel/configstore.db", std::string(8192, 'x'));
    const ProgramResult result = Ctl({"leave"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.output,
                AllOf(HasLine("joined: no"), HasLine("stored settings: kept"), HasSubstr("the host has left")));
    EXPECT_THAT(result.errors, StartsWith("error: "));
}

TEST_F(DamagedHostTest, JoinWhoseSettingsCannotBeStoredSaysThatTheHostHasLeftAgain) {
    HaveDomain();
    WriteFile("/var/lib/nimbrel/configstore.db", std::string(8192, 'x'));
    const ProgramResult result = CtlWithPassword({"join", "corp.test", "-U", "administrator"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.output, AllOf(HasLine("joined: no"), HasSubstr("left again")));
    EXPECT_THAT(result.errors, StartsWith("error: "));
}

TEST_F(DamagedHostTest, DamagedEmbeddedDirectory) {
    HaveDomain();
    for (const char* const suffix : {"-wal", "-shm"}) {
        std::filesystem::remove(std::string("/var/lib/nimbrel/directory.db") + suffix);
    }
    WriteFile("/var/lib/nimbrel/directory.db", std::string(8192, 'x'));
    const ProgramResult result = Ctl({"directory", "show"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.errors, AllOf(StartsWith("error: "), HasSubstr("\ncause: "), HasSubstr("\nremedy: ")));
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(1));
}

// What the remedy promises, and what it costs.
TEST_F(DamagedHostTest, EmptyEmbeddedDirectoryIsRemovedToBeginAnew) {
    HaveJoined();
    WriteFile("/var/lib/nimbrel/directory.db", "");
    const ProgramResult refused = Ctl({"directory", "domain", "add", "a.test"});
    EXPECT_THAT(refused, ExitsWith(1));
    EXPECT_THAT(refused.errors, AllOf(HasSubstr("damaged, empty or of another kind"),
                                      HasSubstr("removed to begin anew"), Not(HasSubstr("free space"))));
    std::filesystem::remove("/var/lib/nimbrel/directory.db");
    HaveDomain();
    EXPECT_THAT(Ctl({"status"}).output, Not(HasSubstr("trust state: 1 ")));
    Done({"leave"});
    EXPECT_THAT(CtlWithPassword({"join", "corp.test", "-U", "administrator"}), ExitsWith(0));
    EXPECT_THAT(Done({"status"}), HasLine("trust state: 1 (healthy)"));
}

TEST_F(DamagedHostTest, MissingEmbeddedDirectory) {
    const ProgramResult result = Ctl({"directory", "show"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.errors, HasSubstr("nimauthctl directory domain add"));
    EXPECT_FALSE(std::filesystem::exists("/var/lib/nimbrel/directory.db"));
}

TEST_F(DamagedHostTest, PluginThatIsNoLibrary) {
    WriteFile("/usr/libexec/nimauth/libbroken.so", "not a library");
    WriteFile(kProvider, "provider = broken\n");
    const ProgramResult result = Ctl({"status"});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.output, AllOf(HasLine("provider: broken"), HasLine("directory: unavailable")));
    EXPECT_THAT(result.errors, StartsWith("error: The specified Active Directory provider 'broken' is invalid\n"));
}

}  // namespace
}  // namespace nimbrel::testing
