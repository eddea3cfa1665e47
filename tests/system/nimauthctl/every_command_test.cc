// Every command of the table on hosts of every kind, by its first example: it ends with an exit status that it
// documents, answers with one object of its schema, and never hangs or crashes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "embeddeddirectory/directory.h"
#include "forked_tool.h"
#include "json_schema.h"
#include "plugins/embedded/cheap_passwords.h"
#include "support/files.h"
#include "tools/nimauthctl/command_table.h"

namespace nimbrel::testing {
namespace {

using nimauthctl::Command;
using nimauthctl::Commands;
using nimauthctl::ExitCode;
using Words = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr char kPassword[] = "Correct-Horse-7";
constexpr uid_t kNobody = 65534;
constexpr char kState[] = "/var/lib/nimbrel";
constexpr char kSettings[] = "/etc/nimbrel/nimauth";
constexpr char kSaved[] = "/tmp/saved";
constexpr int kPatience = 60;  // seconds: far more than a busy machine needs

// The command's first example, made fit for a run without a terminal.
Words SampleLine(const Command& command) {
    Words words = WordsOf(command.examples.front().commandLine);
    const bool takesPassword = std::any_of(command.options.begin(), command.options.end(),
                                           [](const auto& option) { return option.Key() == "password-stdin"; });
    const bool isLeave = command.name == "leave";  // takes a password with a user only
    if (takesPassword && !isLeave && std::find(words.begin(), words.end(), "--password-stdin") == words.end()) {
        words.emplace_back("--password-stdin");
    }
    words.emplace_back("--json");
    return words;
}

std::string SchemaFile(const Command& command) {
    std::string file = command.name;
    std::replace(file.begin(), file.end(), ' ', '-');
    return file + ".json";
}

class EveryCommandTest : public ::testing::Test {
 protected:
    void SetUp() override {
        umask(022);
        fs::remove_all(kState);
        fs::create_directories(kState);
        if (!fs::exists("/etc/pam.d/sshd")) fs::copy("/etc/pam.d/login", "/etc/pam.d/sshd");
        fs::create_directories(kSettings);
        WriteFile(std::string(kSettings) + "/authentication.conf", "remote-authentication-store = \"None\"\n");
        WriteFile(std::string(kSettings) + "/provider.conf", "provider = \"embedded\"\n");
        WriteFile(std::string(kSettings) + "/apxprovider.conf", "provider = \"apxhttps\"\n");
        ASSERT_EQ(0, sethostname("node01", 6));
    }

    static ForkedResult Run(const Words& words, uid_t user = 0, int seconds = kPatience) {
        return RunForkedTool(words, std::string(kPassword) + '\n', user, seconds);
    }

    static void Do(const Words& words) {
        const ForkedResult result = Run(words);
        ASSERT_EQ(0, result.exitStatus) << ::testing::PrintToString(words) << result.errors;
    }

    static void HaveJoined(const std::string& domain) {
        Do({"directory", "domain", "add", "corp.test"});
        if (domain != "corp.test") Do({"directory", "domain", "add", domain});
        Do({"directory", "user", "add", domain, "administrator", "--may-join", "--password-stdin"});
        embedded::test::MakePasswordsCheap(embedded::kDefaultDirectoryPath, kPassword);
        Do({"join", domain, "-U", "administrator", "--password-stdin"});
    }

    static void Save() {
        fs::remove_all(kSaved);
        fs::create_directories(kSaved);
        fs::copy(kState, std::string(kSaved) + "/state", fs::copy_options::recursive);
        fs::copy(kSettings, std::string(kSaved) + "/settings", fs::copy_options::recursive);
    }

    static void BringBack() {
        for (const auto& [from, to] : {std::pair("/state", kState), std::pair("/settings", kSettings)}) {
            for (const auto& entry : fs::directory_iterator(to)) fs::remove_all(entry.path());
            fs::copy(std::string(kSaved) + from, to, fs::copy_options::recursive);
        }
    }

    // Each command on the present host, which is the same for all of them. Only one that `check` has expected to may be
    // stopped at the end of its time.
    void RunAll(const Words& more = {}, uid_t user = 0,
                const std::function<void(const Command&, const ForkedResult&)>& check = ExpectItEnds,
                const std::function<bool(const Command&)>& waitsForever = nullptr) {
        Save();
        for (const Command& command : Commands()) {
            SCOPED_TRACE(command.name);
            Words words = SampleLine(command);
            words.insert(words.end(), more.begin(), more.end());
            const ForkedResult result = Run(words, user, waitsForever && waitsForever(command) ? 5 : kPatience);
            ExpectDocumented(command, result);
            check(command, result);
            BringBack();
        }
    }

    static void ExpectItEnds(const Command& /*command*/, const ForkedResult& result) {
        EXPECT_EQ(0, result.signal) << result.output;
    }

    void ExpectDocumented(const Command& command, const ForkedResult& result) {
        const auto code = static_cast<ExitCode>(result.exitStatus);
        const bool isDocumented =
            result.exitStatus == 0 || result.exitStatus == 1 || result.signal == SIGTERM ||
            std::find(command.exitCodes.begin(), command.exitCodes.end(), code) != command.exitCodes.end();
        EXPECT_TRUE(isDocumented) << "exit status " << result.exitStatus << ", signal " << result.signal << '\n'
                                  << result.output;
        EXPECT_EQ("", result.errors);
        EXPECT_EQ(std::string::npos, result.output.find(kPassword));
        const nlohmann::json object = nlohmann::json::parse(result.output, nullptr, false);
        ASSERT_TRUE(object.is_object()) << result.output;
        EXPECT_EQ("", _schemas.Check(SchemaFile(command), object)) << result.output;
    }

    SchemaFolder _schemas{NIMAUTHCTL_SCHEMAS};
};

TEST_F(EveryCommandTest, HasASchema) {
    for (const Command& command : Commands()) EXPECT_TRUE(_schemas.Has(SchemaFile(command))) << command.name;
}

TEST_F(EveryCommandTest, OnAHostThatIsNotJoined) { RunAll(); }

TEST_F(EveryCommandTest, OnAJoinedHost) {
    HaveJoined("corp.test");
    Do({"directory", "user", "add", "corp.test", "alice", "--password-stdin"});
    Do({"directory", "trust", "add", "corp.test", "trust.test"});
    RunAll();
}

TEST_F(EveryCommandTest, OnAHostThatIsJoinedElsewhere) {
    HaveJoined("elsewhere.test");
    RunAll();
}

TEST_F(EveryCommandTest, WithoutConfiguration) {
    for (const auto& entry : fs::directory_iterator(kSettings)) fs::remove(entry.path());
    RunAll();
}

TEST_F(EveryCommandTest, WithoutAProvider) {
    WriteFile(std::string(kSettings) + "/provider.conf", "provider = \"nosuch\"\n");
    RunAll({}, 0, [](const Command& command, const ForkedResult& result) {
        ExpectItEnds(command, result);
        if (command.name == "status" || command.name == "join" || command.name == "trusts" ||
            command.name == "dc any") {
            EXPECT_NE(std::string::npos, result.output.find("InvalidActiveDirectoryProviderException"));
        }
    });
}

TEST_F(EveryCommandTest, WithoutPermission) {
    HaveJoined("corp.test");
    fs::permissions(kState, fs::perms::none);
    RunAll({}, kNobody, [](const Command& command, const ForkedResult& result) {
        ExpectItEnds(command, result);
        EXPECT_TRUE(!command.needsRoot || result.exitStatus == 5) << result.exitStatus;
    });
    fs::permissions(kState, fs::perms(0755));
}

TEST_F(EveryCommandTest, WithAProviderThatHangs) {
    HaveJoined("corp.test");
    for (const char* const operation :
         {"join-domain", "part-domain", "get-active-domain", "set-preferred-domain-controllers",
          "get-preferred-domain-controllers", "get-domain-trust-state", "get-trusted-domains", "get-machine-account-dn",
          "get-any-domain-controller", "convert-canonical-username", "get-host-principal-for-domain",
          "get-domain-trust-relationship", "set-smart-card-enabled-services", "get-smart-card-enabled-services"}) {
        Do({"directory", "rehearse", operation, "--delay", "10m"});
    }
    const auto waitsForever = [](const Command& command) { return command.name == "join" || command.name == "leave"; };
    const auto check = [&](const Command& command, const ForkedResult& result) {
        EXPECT_EQ(waitsForever(command), result.signal == SIGTERM) << "signal " << result.signal;
    };
    RunAll({"--timeout", "0"}, 0, check, waitsForever);
}

}  // namespace
}  // namespace nimbrel::testing
