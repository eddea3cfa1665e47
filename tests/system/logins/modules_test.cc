// The log-in modules of the embedded directory, in programs that know nothing of them.

#include <cstdio>
#include <sstream>

#include "logins_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::HasSubstr;

class LoginModulesTest : public LoginsHost {
 protected:
    void SetUp() override {
        LoginsHost::SetUp();
        Enable();
    }
    static std::string Getent(const Words& words, uid_t user = 0) {
        return RunProgram("/usr/bin/getent", {.arguments = words, .user = user}).output;
    }
    // pamtester's own words for one step.
    static std::string Says(const std::string& user, const std::string& step) {
        const ProgramResult result = RunProgram(
            "/usr/bin/pamtester", {.arguments = {"other", user, step}, .input = std::string(kPassword) + '\n'});
        return result.output + result.errors;
    }
    static void Set(const std::string& user, const std::string& flag, const std::string& value) {
        Done({"directory", "user", "set", "corp.test", user, "--" + flag, value});
    }
};

TEST_F(LoginModulesTest, UsersAreLookedUpByNameAndNumber) {
    const std::string alice = "alice:*:1900000002:1900000002:alice:/home/alice:/bin/bash\n";
    for (const char* const key : {"alice", "ALICE", "1900000002"}) EXPECT_EQ(alice, Getent({"passwd", key})) << key;
    for (const char* const key : {"alice", "1900000002"}) EXPECT_EQ("alice:*:1900000002:\n", Getent({"group", key}));
    for (const char* const key : {"nobody-at-all", "1900000099", "1900000000"}) EXPECT_EQ("", Getent({"passwd", key}));
    EXPECT_THAT(Getent({"passwd"}), ::testing::Not(HasSubstr("alice")));
}

TEST_F(LoginModulesTest, NumbersAreNeverUsedTwice) {
    Done({"directory", "user", "remove", "corp.test", "alice"});
    EXPECT_EQ("", Getent({"passwd", "alice"}));
    AddUser("carol");
    EXPECT_THAT(Getent({"passwd", "carol"}), HasSubstr("carol:*:1900000003:"));
}

// The directory is for root; a log-in tells the others the names.
TEST_F(LoginModulesTest, OrdinaryUsersKnowTheNamesAfterALogin) {
    EXPECT_EQ("", Getent({"passwd", "alice"}, kNobody));
    EXPECT_THAT(Says("alice", "open_session"), HasSubstr("successfully opened a session"));
    EXPECT_THAT(Getent({"passwd", "alice"}, kNobody), HasSubstr("alice:*:1900000002:"));
    EXPECT_EQ("administrator:1900000001\nalice:1900000002\n", ReadFile("/var/lib/nimbrel/embedded-accounts"));
}

TEST_F(LoginModulesTest, LocalAccountIsNeverEnteredWithTheDirectorysPassword) {
    AddUser("bob");
    AddUser("root");
    EXPECT_EQ("bob:x:1000:1000:Bob:/home/bob:/bin/bash\n", Getent({"passwd", "bob"}));
    ExpectRefused({{"other", "bob", kPassword}, {"other", "root", kPassword}});
    EXPECT_TRUE(LogsIn("other", "bob", kBobPassword));
}

TEST_F(LoginModulesTest, AccountsThatMayNotLogInAreRefused) {
    for (const char* const flag : {"disabled", "locked", "expired", "password-expired", "must-change-password"}) {
        Set("alice", flag, "yes");
        EXPECT_THAT(Says("alice", "acct_mgmt"), ::testing::Not(HasSubstr("done"))) << flag;
        Set("alice", flag, "no");
    }
    EXPECT_THAT(Says("alice", "acct_mgmt"), HasSubstr("account management done"));
    Set("alice", "locked", "yes");
    ExpectRefused({{"other", "alice", kPassword}});
}

TEST_F(LoginModulesTest, DirectoryThatIsDownLetsLocalUsersIn) {
    Done({"directory", "controller", "set", "corp.test", "dc1.corp.test", "--reachable", "no"});
    EXPECT_TRUE(LogsIn("other", "bob", kBobPassword));
    EXPECT_TRUE(LogsIn("other", "root", kRootPassword));
    ExpectRefused({{"other", "alice", kPassword}});
}

TEST_F(LoginModulesTest, ComputerAccountThatWasDisabledEndsLogins) {
    Done({"directory", "computer", "disable", "corp.test", "NODE01"});
    ExpectRefused({{"other", "alice", kPassword}});
    Done({"directory", "computer", "enable", "corp.test", "NODE01"});
    EXPECT_TRUE(LogsIn("other", "alice", kPassword));
}

TEST_F(LoginModulesTest, MissingModuleLetsLocalUsersIn) {
    const std::string moved = std::string(kPamModulePath) + ".moved";
    ASSERT_EQ(0, std::rename(kPamModulePath, moved.c_str()));
    EXPECT_TRUE(LogsIn("other", "bob", kBobPassword));
    EXPECT_TRUE(LogsIn("other", "root", kRootPassword));
    ASSERT_EQ(0, std::rename(moved.c_str(), kPamModulePath));
}

// An ordinary user's root has no numbers but its own, so that there su gets as far as becoming the user.
TEST_F(LoginModulesTest, SuChangesToTheDirectorysUser) {
    const bool allNumbers = ReadFile("/proc/self/uid_map").find("4294967295") != std::string::npos;
    const ProgramResult result =
        RunProgram("/bin/su", {.arguments = {"-s", "/bin/sh", "-c", "id -un; id -u", "alice"}});
    if (allNumbers) {
        EXPECT_EQ("alice\n1900000002\n", result.output) << result.errors;
    } else {
        EXPECT_THAT(result.errors, HasSubstr("su: cannot set groups"));
    }
}

TEST_F(LoginModulesTest, ModulesExportNothingElse) {
    for (const std::string& path :
         {std::string(kPamModulePath), std::string("/usr/lib/" NIMAUTH_MULTIARCH "/libnss_nimembedded.so.2")}) {
        const std::string symbols =
            RunProgram("/usr/bin/nm", {.arguments = {"-D", "--defined-only", "--format=posix", path}}).output;
        EXPECT_THAT(symbols, ::testing::AnyOf(HasSubstr("pam_sm_authenticate"), HasSubstr("_getpwnam_r")));
        std::istringstream lines(symbols);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(line.starts_with("pam_sm_") || line.starts_with("_nss_nimembedded_")) << line;
        }
    }
}

}  // namespace
}  // namespace nimbrel::testing
