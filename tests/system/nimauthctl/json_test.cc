// --json: one object, whatever happens.

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using nlohmann::json;

class JsonTest : public ToolHost {
 protected:
    // Runs the line with --json; standard output must be one object with its schema, and standard error empty.
    static json Parsed(Words words, int exitStatus = 0) {
        words.emplace_back("--json");
        return Described(words, Ctl(words), exitStatus);
    }

    static json Checked(const ProgramResult& result, int exitStatus) {
        EXPECT_THAT(result, ExitsWith(exitStatus));
        EXPECT_EQ("", result.errors);
        const json object = json::parse(result.output, nullptr, false);
        EXPECT_TRUE(object.is_object()) << result.output;
        EXPECT_EQ(1, object.value("schema", 0));
        return object;
    }

    // The same against the schema of the command that the words begin with.
    static json Described(const Words& words, const ProgramResult& result, int exitStatus) {
        static SchemaFolder schemas(NIMAUTHCTL_SCHEMAS);
        const json object = Checked(result, exitStatus);
        std::string name;
        for (const std::string& word : words) {
            name += (name.empty() ? "" : "-") + word;
            if (!schemas.Has(name + ".json")) continue;
            EXPECT_EQ("", schemas.Check(name + ".json", object)) << result.output;
        }
        return object;
    }
};

TEST_F(JsonTest, EveryCommandAnswersWithOneObject) {
    const Words kLines[] = {{"--version"},
                            {"directory", "domain", "add", "corp.test"},
                            {"directory", "domain", "add", "b.test"},
                            {"directory", "domain", "list"},
                            {"directory", "domain", "remove", "b.test"},
                            {"directory", "user", "list"},
                            {"directory", "ou", "add", "corp.test", "Hosts"},
                            {"directory", "ou", "list"},
                            {"directory", "ou", "remove", "corp.test", "Hosts"},
                            {"directory", "computer", "stage", "corp.test", "node02"},
                            {"directory", "computer", "disable", "corp.test", "node02"},
                            {"directory", "computer", "enable", "corp.test", "node02"},
                            {"directory", "computer", "reset", "corp.test", "node02"},
                            {"directory", "computer", "list"},
                            {"directory", "computer", "remove", "corp.test", "node02"},
                            {"directory", "trust", "add", "corp.test", "trust.test"},
                            {"directory", "trust", "list"},
                            {"directory", "trust", "remove", "corp.test", "trust.test"},
                            {"directory", "controller", "add", "corp.test", "dc2.corp.test"},
                            {"directory", "controller", "set", "corp.test", "dc2.corp.test", "--reachable", "no"},
                            {"directory", "controller", "list"},
                            {"directory", "controller", "remove", "corp.test", "dc2.corp.test"},
                            {"directory", "rehearse", "join-domain", "--status", "5"},
                            {"directory", "rehearse", "--clear"},
                            {"directory", "show"},
                            {"store", "list"},
                            {"store", "show"},
                            {"store", "set", "Active Directory"},
                            {"config", "show"},
                            {"option", "list"},
                            {"option", "get", "UserVars.ActiveDirectoryVerifyAPXCertificate"},
                            {"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "0"},
                            {"status"}};
    for (const Words& words : kLines) {
        SCOPED_TRACE(::testing::PrintToString(words));
        EXPECT_FALSE(Parsed(words).contains("error"));
    }
}

TEST_F(JsonTest, JoinStatusAndLeaveTellTheirValues) {
    HaveDomain();
    const Words joining = {"join", "corp.test", "-U", "administrator", "--json"};
    const json join = Described(joining, CtlWithPassword(joining), 0);
    EXPECT_EQ(true, join["joined"]);
    EXPECT_EQ("CN=NODE01,CN=Computers,DC=corp,DC=test", join["machineAccount"]);
    EXPECT_TRUE(join["organizationalUnit"].is_null());

    const json status = Parsed({"status"});
    EXPECT_EQ(true, status["joined"]);
    EXPECT_EQ("corp.test", status["domain"]);
    EXPECT_EQ(1, status["trustState"]);
    EXPECT_EQ("healthy", status["trustStateText"]);
    EXPECT_EQ(json::array(), status["trustedDomains"]);
    EXPECT_FALSE(status.contains("stale"));

    const Words leaving = {"leave", "-U", "administrator", "--json"};
    const json leave = Described(leaving, CtlWithPassword(leaving), 0);
    EXPECT_EQ("kept", leave["storedSettings"]);
    EXPECT_EQ("corp.test", leave["left"]);
}

TEST_F(JsonTest, OptionsKeepTheirTypes) {
    EXPECT_EQ(1, Parsed({"option", "get", "UserVars.ActiveDirectoryVerifyAPXCertificate"})["value"]);
    EXPECT_EQ(1, Parsed({"option", "list"})["options"][0]["value"]);
}

TEST_F(JsonTest, FailureIsTheSameObjectEverywhere) {
    HaveDomain();
    const json failed = Parsed({"leave"}, 4)["error"];
    EXPECT_EQ("UnknownException", failed["exception"]);
    EXPECT_EQ(2692, failed["code"]);
    EXPECT_EQ("Exception 0x00000a84: Unknown exception", failed["message"]);
    EXPECT_TRUE(failed["cause"].is_string());
    EXPECT_TRUE(failed["remedy"].is_string());
    const json wrong = Checked(CtlWithPassword({"leave", "-U", "alice", "--json"}, kWrongPassword), 4);
    EXPECT_EQ(failed, wrong["error"]);
}

TEST_F(JsonTest, UsageErrorsAreObjectsToo) {
    for (const Words& words : {Words{"bogus"}, Words{"store"}, Words{"store", "set"}, Words{"store", "set", "LDAP"},
                               Words{"status", "--timeout", "x"}, Words{"status", "--bogus"}}) {
        const json error = Parsed(words, 2)["error"];
        EXPECT_EQ("UsageError", error["exception"]);
        EXPECT_EQ(0, error["code"]);
    }
}

TEST_F(JsonTest, StaleAnswersAreNamed) {
    HaveJoined();
    Done({"directory", "rehearse", "get-trusted-domains", "--delay", "10m"});
    const json status = Parsed({"status", "--timeout", "3"}, 6);
    EXPECT_EQ(json::array({"trustedDomains"}), status["stale"]);
    EXPECT_TRUE(status["trustedDomains"].is_null());
    EXPECT_EQ(true, status["joined"]);
}

TEST_F(JsonTest, AnswersThatFailedAreListedBesideTheOthers) {
    HaveJoined();
    Done({"directory", "computer", "remove", "corp.test", "NODE01"});
    const json status = Parsed({"status"}, 1);
    EXPECT_EQ("NoTrustSAMAccountException", status["errors"][0]["exception"]);
    EXPECT_EQ(1787, status["errors"][0]["code"]);
    EXPECT_TRUE(status["trustedDomains"].is_null());
    EXPECT_EQ(5, status["trustState"]);
    EXPECT_FALSE(status.contains("error"));
}

TEST_F(JsonTest, BytesThatAreNotUtf8AreReplaced) {
    const json error = Parsed({"store", "set",
                               "a\xff"
                               "b"},
                              2)["error"];
    EXPECT_EQ(
        "there is no authentication store 'a\xef\xbf\xbd"
        "b'",
        error["message"]);
    WriteFile("/etc/nimbrel/nimauth/authentication.conf", "remote-authentication-store = \"\xfe\"\nx\x1b = \xc3\x28\n");
    EXPECT_EQ("\xef\xbf\xbd", Parsed({"store", "show"})["activeStore"]);
    EXPECT_EQ(5u, Parsed({"config", "show"})["settings"].size());
}

TEST_F(JsonTest, QuietStillShowsTheObject) {
    EXPECT_EQ("corp.test", Parsed({"directory", "domain", "add", "corp.test", "-q"})["domains"][0]["domain"]);
}

TEST_F(JsonTest, PermissionIsAnObject) {
    const ProgramResult result = CtlAsNobody({"leave", "--json"});
    EXPECT_EQ("ToolError", Checked(result, 5)["error"]["exception"]);
}

}  // namespace
}  // namespace nimbrel::testing
