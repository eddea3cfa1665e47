// Where passwords come from, and where they must never be seen. Every run of the tool is searched for them besides.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tool_host.h"

namespace nimbrel::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class SecretsTest : public ToolHost {
 protected:
    void SetUp() override {
        ToolHost::SetUp();
        HaveDomain();
    }

    static void ExpectNotInProcess(pid_t process) {
        for (const char* const file : {"cmdline", "environ"}) {
            const std::string text = ReadFile("/proc/" + std::to_string(process) + '/' + file);
            EXPECT_THAT(text, Not(HasSubstr(kPassword))) << file;
        }
    }
    // The regular files below a directory. A directory on another file system is left out: the checkout, which is shown
    // at its own path and knows the passwords of its tests, may lie anywhere.
    static std::vector<std::string> FilesOfTheHost(const std::string& root) {
        std::vector<std::string> files;
        const auto end = std::filesystem::recursive_directory_iterator();
        for (auto entry = std::filesystem::recursive_directory_iterator(root); entry != end; ++entry) {
            if (entry->is_directory() && DeviceOf(entry->path()) != DeviceOf(root)) entry.disable_recursion_pending();
            if (entry->is_regular_file()) files.push_back(entry->path());
        }
        return files;
    }
    static dev_t DeviceOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status.st_dev;
    }
    static void ExpectInCommandLine(pid_t process, const char* word) {
        EXPECT_THAT(ReadFile("/proc/" + std::to_string(process) + "/cmdline"), HasSubstr(word));
    }
};

const Words kJoin = {"join", "corp.test", "-U", "administrator"};

Words JoinWith(const Words& more) {
    Words words = kJoin;
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST_F(SecretsTest, PasswordFromADescriptor) {
    const ProgramResult result =
        Ctl(JoinWith({"--password-fd", "7"}), {.descriptors = {{7, std::string(kPassword) + '\n'}}});
    EXPECT_THAT(result, ExitsWith(0));
}

TEST_F(SecretsTest, PasswordFromStandardInputIsNotInTheProcess) {
    const ProgramResult result =
        Ctl(JoinWith({"--password-stdin"}), {.input = kPassword, .beforeInput = [](pid_t tool) {
                                                 ExpectInCommandLine(tool, "--password-stdin");
                                                 ExpectNotInProcess(tool);
                                             }});
    EXPECT_THAT(result, ExitsWith(0));
}

TEST_F(SecretsTest, PromptTakesThePasswordWithoutShowingIt) {
    const ProgramResult result =
        Ctl(kJoin, {.terminal = {{"Password for administrator: ", std::string(kPassword) + '\n', ExpectNotInProcess}}});
    EXPECT_THAT(result, ExitsWith(0));
    EXPECT_EQ("", result.errors);
    EXPECT_THAT(result.terminal, HasSubstr("Password for administrator: \r\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("Password for")));
}

TEST_F(SecretsTest, NewPasswordIsAskedForTwice) {
    const Words words = {"directory", "user", "add", "corp.test", "bob"};
    const std::string typed = std::string(kPassword) + '\n';
    EXPECT_THAT(Ctl(words, {.terminal = {{"Password for bob: ", typed}, {"The same again: ", typed}}}), ExitsWith(0));

    const ProgramResult differ =
        Ctl({"directory", "user", "add", "corp.test", "carol"},
            {.terminal = {{"Password for carol: ", typed}, {"again: ", std::string(kWrongPassword) + '\n'}}});
    EXPECT_THAT(differ, ExitsWith(2));
    EXPECT_THAT(differ.errors, HasSubstr("differ"));
    EXPECT_THAT(Done({"directory", "user", "list"}), AllOf(HasSubstr("user: bob "), Not(HasSubstr("user: carol "))));
}

TEST_F(SecretsTest, PromptWithoutATerminalFailsClearly) {
    const ProgramResult result = Ctl(kJoin, {.input = std::string(kPassword) + '\n'});
    EXPECT_THAT(result, ExitsWith(2));
    EXPECT_EQ(
        "error: there is no terminal to ask for the password on\n"
        "remedy: use --password-stdin or --password-fd N\n",
        result.errors);
}

TEST_F(SecretsTest, EndOfTheTerminalsInputIsNotAnEmptyPassword) {
    const ProgramResult result = Ctl(kJoin, {.terminal = {{"administrator: ", "\x04"}}});
    EXPECT_THAT(result, ExitsWith(2));
    EXPECT_THAT(result.errors, HasSubstr("ended before a password was typed"));
}

TEST_F(SecretsTest, InterruptAtThePromptEndsTheTool) {
    ProgramOptions options = {.arguments = kJoin, .terminal = {{"administrator: ", "\x03"}}};
    const ProgramResult result = RunProgram(kTool, options);
    EXPECT_EQ(SIGINT, result.signal);
    EXPECT_THAT(Done({"status"}), HasLine("joined: no"));
}

TEST_F(SecretsTest, UserNameCannotPlayWithTheTerminal) {
    const std::string typed = std::string(kPassword) + '\n';
    const ProgramResult result =
        Ctl({"directory", "user", "add", "corp.test", "x\x1b[2J\nPassword"},
            {.terminal = {{"Password for x\\x1b[2J\\x0aPassword: ", typed}, {"again: ", typed}}});
    EXPECT_THAT(result, ExitsWith(1));
    EXPECT_THAT(result.terminal, Not(HasSubstr("\x1b")));
}

struct RefusedInput {
    std::string input;
    const char* text;
};

TEST_F(SecretsTest, InputThatIsNoPasswordIsRefused) {
    const RefusedInput kCases[] = {{std::string(kPassword) + "\nmore", "more than one line"},
                                   {std::string(kPassword) + std::string(1, '\0'), "NUL"},
                                   {kPassword + std::string(5'000'000, 'x'), "longer than 1024 bytes"}};
    for (const RefusedInput& refused : kCases) {
        const ProgramResult result = Ctl(JoinWith({"--password-stdin"}), {.input = refused.input});
        EXPECT_THAT(result, ExitsWith(2));
        EXPECT_THAT(result.errors, HasSubstr(refused.text));
    }
    EXPECT_THAT(Done({"status"}), HasLine("joined: no"));
}

TEST_F(SecretsTest, ClosedAndUnknownDescriptorsAreUsageErrors) {
    EXPECT_THAT(Ctl(JoinWith({"--password-stdin"}), {.closed = {0}}), ExitsWith(2));
    EXPECT_THAT(Ctl(JoinWith({"--password-fd", "77"})), ExitsWith(2));
    EXPECT_THAT(Ctl(JoinWith({"--password-fd", "x"})), ExitsWith(2));
    EXPECT_THAT(Ctl(JoinWith({"--password-fd", "0", "--password-stdin"})), ExitsWith(2));
}

TEST_F(SecretsTest, PasswordOnTheCommandLineIsRefusedAndNotRepeated) {
    for (const Words& words : {JoinWith({"--password", kPassword}), JoinWith({std::string("--password=") + kPassword}),
                               JoinWith({kPassword}), JoinWith({std::string("-p") + kPassword})}) {
        EXPECT_THAT(Ctl(words), ExitsWith(2));
    }
}

TEST_F(SecretsTest, EnvironmentIsNotAskedForAPassword) {
    for (const char* const name : {"PASSWORD", "NIMAUTH_PASSWORD", "NIMAUTHCTL_PASSWORD", "PASSWD"}) {
        const ProgramResult result = Ctl(kJoin, {.environment = {std::string(name) + '=' + kPassword}});
        EXPECT_THAT(result, ExitsWith(2)) << name;
    }
}

TEST_F(SecretsTest, FailureAndVerbosityDoNotShowIt) {
    Done({"directory", "rehearse", "join-domain", "--status", "1359"});
    for (const char* const more : {"--verbose", "--json"}) {
        EXPECT_THAT(CtlWithPassword(JoinWith({more})), ExitsWith(1));
    }
}

TEST_F(SecretsTest, ItIsInNoFileOfTheHost) {
    EXPECT_THAT(CtlWithPassword(kJoin), ExitsWith(0));
    int searched = 0;
    for (const char* const root : {"/var", "/etc/nimbrel", "/tmp", "/run", "/root"}) {
        for (const std::string& path : FilesOfTheHost(root)) {
            ++searched;
            EXPECT_EQ(ReadFile(path).find(kPassword), std::string::npos) << path;
        }
    }
    EXPECT_GE(searched, 5);
}

// The system log, as far as its socket holds.
class LogSocket {
 public:
    LogSocket() : _socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        constexpr sockaddr_un kAddress{AF_UNIX, "/dev/log"};
        unlink(kAddress.sun_path);
        EXPECT_EQ(0, bind(_socket, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress));
    }
    LogSocket(const LogSocket&) = delete;
    LogSocket& operator=(const LogSocket&) = delete;
    ~LogSocket() {
        close(_socket);
        unlink("/dev/log");
    }

    std::string Take() const {
        std::string text;
        std::array<char, 8192> line{};
        for (ssize_t size; (size = recv(_socket, line.data(), line.size(), 0)) > 0;) {
            text.append(line.data(), static_cast<std::size_t>(size)) += '\n';
        }
        return text;
    }

 private:
    int _socket;
};

TEST_F(SecretsTest, ItIsNotInTheSystemLog) {
    const LogSocket log;
    Done({"directory", "rehearse", "join-domain", "--status", "1359", "--count", "1"});
    EXPECT_THAT(CtlWithPassword(kJoin), ExitsWith(1));
    std::filesystem::remove("/var/lib/nimbrel/configstore.db");
    WriteFile("/var/lib/nimbrel/configstore.db", std::string(8192, 'x'));
    EXPECT_THAT(CtlWithPassword(kJoin), ExitsWith(1));
    EXPECT_THAT(log.Take(), AllOf(HasSubstr("Failed to store domain details"), Not(HasSubstr(kPassword))));
}

struct Mapping {
    unsigned long begin = 0;
    unsigned long end = 0;
    bool readable = false;
    bool inCore = true;
};

// The process's memory, and whether a core of it would hold that.
std::vector<Mapping> Mappings(pid_t process) {
    std::ifstream lines("/proc/" + std::to_string(process) + "/smaps");
    std::vector<Mapping> mappings;
    for (std::string line; std::getline(lines, line);) {
        Mapping mapping;
        std::array<char, 5> rights{};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &mapping.begin, &mapping.end, rights.data()) == 3) {
            mapping.readable = rights[0] == 'r' && line.find("[v") == std::string::npos;
            mappings.push_back(mapping);
        } else if (line.starts_with("VmFlags:") && !mappings.empty() && line.find(" dd") != std::string::npos) {
            mappings.back().inCore = false;
        }
    }
    return mappings;
}

std::string MemoryOf(pid_t process, const Mapping& mapping) {
    const int memory = open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    std::string bytes(mapping.end - mapping.begin, '\0');
    const ssize_t size = pread(memory, bytes.data(), bytes.size(), static_cast<off_t>(mapping.begin));
    close(memory);
    bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return bytes;
}

// The join waits between two attempts: the provider has seen the password, and the next attempt will need it.
TEST_F(SecretsTest, CoreOfACrashedJoinWouldNotHoldIt) {
    constexpr unsigned long kLargest = 1UL << 24U;
    int inCore = 0;
    int keptOut = 0;
    std::size_t searched = 0;
    const auto look = [&](pid_t tool) {
        for (const Mapping& mapping : Mappings(tool)) {
            // A sanitizer's own bookkeeping is kept out of cores, too, and larger than any memory.
            if (!mapping.readable || (!mapping.inCore && mapping.end - mapping.begin > kLargest)) continue;
            const std::string bytes = MemoryOf(tool, mapping);
            if (mapping.inCore) searched += bytes.size();
            if (bytes.find(kWrongPassword) != std::string::npos) ++(mapping.inCore ? inCore : keptOut);
        }
        kill(tool, SIGABRT);
    };
    const ProgramResult result = RunProgram(kTool, {.arguments = JoinWith({"--password-stdin", "--progress=json"}),
                                                    .input = kWrongPassword,
                                                    .onErrors = {"\"event\": \"pause\"", look}});
    EXPECT_EQ(SIGABRT, result.signal);
    EXPECT_EQ(0, inCore);
    EXPECT_EQ(1, keptOut);
    EXPECT_GT(searched, 1'000'000U);
}

TEST_F(SecretsTest, LeaveWithAPasswordButWithoutAUserIsRefused) {
    EXPECT_THAT(CtlWithPassword({"leave"}), ExitsWith(2));
}

}  // namespace
}  // namespace nimbrel::testing
