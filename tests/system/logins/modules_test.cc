// The log-in modules of the embedded directory, in programs that know nothing of them.

#include <fcntl.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "logins_host.h"
#include "pluginkit/descriptor.h"

namespace nimbrel::testing {
namespace {

using ::testing::HasSubstr;

// The whole file locked against readers and writers, as SQLite would.
class LockedFile {
 public:
    explicit LockedFile(const char* path) : _file(open(path, O_RDWR | O_CLOEXEC)) {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        EXPECT_EQ(0, fcntl(_file.Number(), F_SETLK, &lock)) << path;
    }

 private:
    kit::Descriptor _file;
};

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
    static std::string Says(const std::string& user, const std::string& step, uid_t caller = 0) {
        const ProgramResult result =
            RunProgram("/usr/bin/pamtester",
                       {.arguments = {"other", user, step}, .input = std::string(kPassword) + '\n', .user = caller});
        return result.output + result.errors;
    }
    static void Set(const std::string& user, const std::string& flag, const std::string& value) {
        Done({"directory", "user", "set", "corp.test", user, "--" + flag, value});
    }
};

TEST_F(LoginModulesTest, UsersAreLookedUpByNameAndNumber) {
    const std::string alice = "alice:*:1900000002:1900000002:alice:/home/alice:/bin/bash\n";
    for (const char* const key : {"alice", "1900000002"}) {
        EXPECT_EQ(alice, Getent({"passwd", key})) << key;
        EXPECT_EQ("alice:*:1900000002:\n", Getent({"group", key})) << key;
    }
    for (const char* const key : {"ALICE", "Alice", "nobody-at-all", "1900000099", "1900000000"}) {
        EXPECT_EQ("", Getent({"passwd", key})) << key;
    }
    EXPECT_THAT(Getent({"passwd"}), ::testing::Not(HasSubstr("alice")));
}

TEST_F(LoginModulesTest, UserAddedInCapitalsIsAnAccountInLowerCase) {
    AddUser("Dora.Smith");
    EXPECT_THAT(Getent({"passwd", "dora.smith"}), HasSubstr("dora.smith:*:1900000003:1900000003:dora.smith:"));
    EXPECT_TRUE(LogsIn("other", "dora.smith", kPassword));
    ExpectRefused({{"other", "Dora.Smith", kPassword}});
}

TEST_F(LoginModulesTest, NumbersAreNeverUsedTwice) {
    Done({"directory", "user", "remove", "corp.test", "alice"});
    EXPECT_EQ("", Getent({"passwd", "alice"}));
    AddUser("carol");
    EXPECT_THAT(Getent({"passwd", "carol"}), HasSubstr("carol:*:1900000003:"));
}

// The directory is for root; who changes it tells the others the names.
TEST_F(LoginModulesTest, OrdinaryUsersKnowTheNames) {
    EXPECT_THAT(Getent({"passwd", "alice"}, kNobody), HasSubstr("alice:*:1900000002:"));
    AddUser("zoe");
    EXPECT_THAT(Getent({"passwd", "zoe"}, kNobody), HasSubstr("zoe:*:1900000003:"));
    Done({"directory", "user", "remove", "corp.test", "zoe"});
    EXPECT_EQ("", Getent({"passwd", "zoe"}, kNobody));
}

TEST_F(LoginModulesTest, LoginPublishesWhatNobodyHas) {
    std::filesystem::remove("/var/lib/nimbrel/embedded-accounts");
    EXPECT_EQ("", Getent({"passwd", "alice"}, kNobody));
    EXPECT_THAT(Says("alice", "open_session"), HasSubstr("successfully opened a session"));
    EXPECT_EQ("administrator:1900000001\nalice:1900000002\n", ReadFile("/var/lib/nimbrel/embedded-accounts"));
}

// It runs in the hands of whoever started it: it keeps away from the directory's files, root's rights or not.
TEST_F(LoginModulesTest, ProgramThatGivesRootsRightsAnswersFromWhatWasPublished) {
    constexpr char kProgram[] = "/usr/bin/getent-with-roots-rights";
    std::filesystem::copy_file("/usr/bin/getent", kProgram);
    std::filesystem::permissions(kProgram, std::filesystem::perms(04755));
    const auto answer = [&] {
        return RunProgram(kProgram, {.arguments = {"passwd", "alice"}, .user = kNobody}).output;
    };
    EXPECT_THAT(answer(), HasSubstr("alice:*:1900000002:"));
    WriteFile("/var/lib/nimbrel/embedded-accounts", "alice:1900000077\n");
    EXPECT_THAT(answer(), HasSubstr("alice:*:1900000077:"));
    std::filesystem::remove(kProgram);
}

TEST_F(LoginModulesTest, OrdinaryUsersSuChecksThePassword) {
    EXPECT_THAT(Says("alice", "open_session"), HasSubstr("successfully opened a session"));
    const auto su = [](const std::string& password) {
        return RunProgram(
            "/bin/su",
            {.arguments = {"-s", "/bin/sh", "-c", "id -u", "alice"}, .input = password + '\n', .user = kNobody});
    };
    EXPECT_EQ("1900000002\n", su(kPassword).output);
    EXPECT_EQ("", su("wrong").output);
    Set("alice", "disabled", "yes");
    EXPECT_EQ("", su(kPassword).output);
}

TEST_F(LoginModulesTest, LocalAccountIsNeverEnteredWithTheDirectorysPassword) {
    AddUser("bob");
    AddUser("ROOT");
    EXPECT_EQ("bob:x:1000:1000:Bob:/home/bob:/bin/bash\n", Getent({"passwd", "bob"}));
    for (const char* const key : {"BOB", "Bob", "ROOT", "Root", "1900000003", "1900000004"}) {
        EXPECT_EQ("", Getent({"passwd", key})) << key;
    }
    ExpectRefused({{"other", "bob", kPassword},
                   {"other", "root", kPassword},
                   {"other", "Bob", kPassword},
                   {"other", "BOB", kPassword},
                   {"other", "Root", kPassword},
                   {"other", "ROOT", kPassword}});
    EXPECT_TRUE(LogsIn("other", "bob", kBobPassword));
}

// Programs that compare names would take the user's own group for the local one.
TEST_F(LoginModulesTest, LocalGroupsNameIsNoAccount) {
    AddUser("wheel");
    EXPECT_THAT(Getent({"passwd", "wheel"}), HasSubstr("wheel:*:1900000003:"));
    const std::string before = ReadFile("/etc/group");
    WriteFile("/etc/group", before + "wheel:x:998:\n");
    EXPECT_EQ("wheel:x:998:\n", Getent({"group", "wheel"}));
    EXPECT_EQ("", Getent({"group", "1900000003"}));
    EXPECT_EQ("", Getent({"passwd", "wheel"}));
    EXPECT_EQ("", Getent({"passwd", "1900000003"}));
    ExpectRefused({{"other", "wheel", kPassword}});
    WriteFile("/etc/group", before);
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

// What was published tells the names alone: nobody may take that for an account without flags.
TEST_F(LoginModulesTest, AccountIsNotLetInByAProgramThatCannotReadItsFlags) {
    EXPECT_THAT(Says("alice", "open_session"), HasSubstr("successfully opened a session"));
    EXPECT_THAT(Getent({"passwd", "alice"}, kNobody), HasSubstr("alice:*:1900000002:"));
    for (const char* const value : {"yes", "no"}) {
        Set("alice", "disabled", value);
        EXPECT_THAT(Says("alice", "acct_mgmt", kNobody), ::testing::Not(HasSubstr("done"))) << value;
    }
}

TEST_F(LoginModulesTest, LocalUsersAreNotHeldUpByLockedFiles) {
    const LockedFile membership("/var/lib/nimbrel/embedded-membership.db");
    const LockedFile directory("/var/lib/nimbrel/directory.db");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(Says("root", "open_session"), HasSubstr("successfully opened a session"));
    EXPECT_THAT(Says("bob", "open_session"), HasSubstr("successfully opened a session"));
    EXPECT_TRUE(LogsIn("other", "bob", kBobPassword));
    EXPECT_EQ("", Getent({"passwd", "nobody-at-all"}));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));
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
