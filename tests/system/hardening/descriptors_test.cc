// Descriptors stay with the process that opened them, and files are made new: as strace sees the real operations. A
// child that a plug-in, a PAM module or another thread of the agent starts at any moment must get none of them.

#include <linux/close_range.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string_view>

#include "apx/service.h"
#include "logins/logins_host.h"
#include "trace.h"

namespace nimbrel::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fs = std::filesystem;

constexpr char kTrace[] = "/tmp/trace";
constexpr char kService[] = "/usr/sbin/apxd";
constexpr char kCertificate[] = "/srv/proxy.pem";

struct Exception {
    const char* what;   // a pattern of the path, or of what else the call begins with
    const char* flags;  // as strace writes them
    const char* reason;
};

constexpr char kSettings[] = R"(/etc/nimbrel/nimauth/authentication\.conf\.\w{6})";

// Descriptors that a child may get, as long as they are open.
const Exception kInherited[] = {
    {kSettings, "O_RDWR|O_CREAT|O_EXCL", "the temporary file of a settings file is made by mkstemp"},
    {kSettings, "O_WRONLY|O_CREAT|O_TRUNC", "and written through a file stream of the standard library"},
    {R"(/usr/lib/ssl/openssl\.cnf)", "O_RDONLY", "libcrypto"},
    {R"(/usr/share/augeas/lenses/.*)", "O_RDONLY", "libaugeas"},
    {R"((/etc/pam\.d|/var/lib/nimbrel/logins/candidate-\w+)/.*)", "O_RDONLY", "libpam"},
    {R"(/proc/sys/kernel/cap_last_cap)", "O_RDONLY", "libcap-ng, for a PAM module"},
    {R"(AF_UNIX, SOCK_STREAM)", R"(0, \[\d+, \d+\])", "libcurl's means to wake itself"},
    {R"(AF_NETLINK, SOCK_RAW)", "NETLINK_AUDIT", "libaudit, for libpam"},
};

// Files that are made without the kernel's word that they are new. All lie in folders of their user's own, and none is
// reached through a link but the first, whose name no one can know.
const Exception kNotExclusive[] = {
    {kSettings, "O_WRONLY|O_CREAT|O_TRUNC", "the file stream's second opening of what mkstemp has made"},
    {R"(/var/lib/nimbrel/[a-z-]+\.db(\.new\.\w{6})?-(journal|wal|shm))", "O_RDWR|O_CREAT|O_NOFOLLOW|O_CLOEXEC",
     "SQLite"},
    {R"(/var/lib/nimbrel/([a-z-]+\.db|embedded-accounts)\.lock)", "O_RDWR|O_CREAT|O_NONBLOCK|O_NOFOLLOW|O_CLOEXEC",
     "for many"},
    {R"(/var/lib/nimbrel/logins/lock)", "O_RDWR|O_CREAT|O_NOFOLLOW|O_CLOEXEC", "for many"},
    {R"(/run/apxd/ledger\.lock)", "O_RDWR|O_CREAT|O_NONBLOCK|O_NOFOLLOW|O_CLOEXEC", "for many"},
};

// "openat(AT_FDCWD, <what>, <flags>, 0600) = 3"
bool Fits(const Call& call, const Exception& one) {
    if (std::string_view(one.flags).starts_with("O_") && !call.Has(one.flags)) return false;
    const std::string flags = std::regex_replace(std::string(one.flags), std::regex(R"(\|)"), R"(\|)");
    return std::regex_match(call.arguments,
                            std::regex("(AT_FDCWD, )?\"?" + std::string(one.what) + "\"?, " + flags + "(, [0-7]+)?"));
}

template <std::size_t count>
bool IsListed(const Call& call, const Exception (&exceptions)[count]) {
    return std::any_of(std::begin(exceptions), std::end(exceptions),
                       [&](const Exception& one) { return Fits(call, one); });
}

std::vector<std::string> Offending(const std::vector<Call>& calls) {
    std::vector<std::string> texts;
    for (const Call& call : calls) {
        if (IsInherited(call) && !IsListed(call, kInherited)) {
            texts.push_back("inherited: " + call.Text());
        }
        if (MayUseAnotherFile(call) && !IsListed(call, kNotExclusive)) {
            texts.push_back("not exclusive: " + call.Text());
        }
    }
    return texts;
}

class DescriptorsTest : public LoginsHost {
 protected:
    // Runs the tool under strace. Expects it to succeed, to make some descriptors and none that is inherited.
    static void ExpectClean(const Words& words, const std::string& input = "") {
        SCOPED_TRACE(::testing::PrintToString(words));
        Words all = {"-f", "-qq", "--seccomp-bpf", "-s", "256", "-o", kTrace, "-e", kTracedCalls, kTool};
        all.insert(all.end(), words.begin(), words.end());
        const ProgramResult result = RunProgram("/usr/bin/strace", {.arguments = all, .input = input});
        EXPECT_EQ(0, result.exitStatus) << result.errors;
        ExpectCleanTrace({kTool, kHelperPath});
    }

    static void ExpectCleanTrace(const std::vector<std::string>& own) {
        const std::vector<Call> calls = ParseTrace(ReadFile(kTrace), own);
        EXPECT_FALSE(calls.empty());
        EXPECT_THAT(Offending(calls), IsEmpty());
    }
};

// What the whole test stands on: it is shown what it must find.
TEST(TraceTest, OffendingCallsOfOurOwnProgramsAreFound) {
    const std::string trace =
        "7 execve(\"/usr/bin/own\", [\"own\"], 0x7ff /* 9 vars */) = 0\n"
        "7 openat(AT_FDCWD, \"/a\", O_RDONLY) = 3\n"
        "7 openat(AT_FDCWD, \"/b\", O_RDONLY|O_CLOEXEC) = 4\n"
        "7 openat(AT_FDCWD, \"/c\", O_RDONLY) = -1 ENOENT (No such file or directory)\n"
        "7 vfork( <unfinished ...>\n"
        "8 dup2(5, 1)                       = 1\n"
        "8 execve(\"/usr/bin/foreign\", [\"foreign\"], 0x7ff /* 9 vars */) = 0\n"
        "7 <... vfork resumed>)              = 8\n"
        "8 openat(AT_FDCWD, \"/d\", O_RDONLY <unfinished ...>\n"
        "7 socket(AF_INET, SOCK_STREAM|SOCK_CLOEXEC <unfinished ...>\n"
        "8 <... openat resumed>)             = 3\n"
        "7 <... socket resumed>, IPPROTO_IP) = 5\n"
        "7 fcntl(5, F_GETFL)                 = 5\n"
        "7 fcntl(5, F_DUPFD, 10)             = 10\n"
        "7 accept(5, NULL, NULL)             = 6\n"
        "8 clone(child_stack=NULL, flags=SIGCHLD) = 9\n"
        "9 dup(1)                            = 7\n"
        "7 openat(AT_FDCWD, \"/e\", O_WRONLY|O_CREAT|O_CLOEXEC, 0600) = 7\n"
        "7 openat(AT_FDCWD, \"/f\", O_WRONLY|O_CREAT|O_EXCL|O_CLOEXEC, 0600) = 8\n"
        "7 pipe2([9, 10], 0)                 = 0\n"
        "7 +++ exited with 0 +++\n";
    EXPECT_THAT(Offending(ParseTrace(trace, {"/usr/bin/own"})),
                ElementsAre("inherited: openat(AT_FDCWD, \"/a\", O_RDONLY) = 3",
                            "inherited: fcntl(5, F_DUPFD, 10) = 10", "inherited: accept(5, NULL, NULL) = 6",
                            "not exclusive: openat(AT_FDCWD, \"/e\", O_WRONLY|O_CREAT|O_CLOEXEC, 0600) = 7",
                            "inherited: pipe2([9, 10], 0) = 0"));
}

TEST_F(DescriptorsTest, OfJoinsAndLeaves) {
    ExpectClean({"leave"});
    ExpectClean({"join", "corp.test", "-U", "administrator", "--password-stdin"}, std::string(kPassword) + '\n');
}

TEST_F(DescriptorsTest, OfTheFirstUseOfAHost) {
    fs::remove_all("/var/lib/nimbrel");
    fs::remove("/etc/nimbrel/nimauth/authentication.conf");
    ExpectClean({"directory", "domain", "add", "corp.test"});
    ExpectClean({"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "1"});
}

TEST_F(DescriptorsTest, OfQuestionsAndSettings) {
    WriteFile(kCertificate, MakeCertificate("proxy.corp.test").pem);
    for (const Words& words :
         std::vector<Words>{{"status"},
                            {"trusts"},
                            {"store", "set", "Active Directory"},
                            {"dc", "prefer", "dc1.corp.test"},
                            {"smartcard", "set", "sshd"},
                            {"proxy", "cert", "import", kCertificate},
                            {"option", "set", "UserVars.ActiveDirectoryVerifyAPXCertificate", "1"}}) {
        ExpectClean(words);
    }
}

// The computer account of the host's earlier join would be another owner's.
TEST_F(DescriptorsTest, OfAJoinThroughTheProxy) {
    const Certificate certificate = MakeCertificate("proxy.corp.test");
    Configure(certificate);
    WriteFile(kCertificate, certificate.pem);
    Done({"leave"});
    Done({"directory", "computer", "remove", "corp.test", "NODE01"});
    Service service;
    Done({"proxy", "cert", "import", kCertificate});
    ExpectClean({"proxy", "domain", "192.0.2.10"});
    ExpectClean({"join", "--proxy", "192.0.2.10"});
}

TEST_F(DescriptorsTest, OfChangesOfTheLogInFiles) {
    ExpectClean({"logins", "enable", "--confirm-within", "1"});  // and taken back by its watcher
    ExpectClean({"logins", "enable", "--confirm-within", "0"});
    ExpectClean({"logins", "disable", "--confirm-within", "0"});
}

// A shell stands in for the service: it hands the signal on that ends it, and ends when the trace is whole.
TEST_F(DescriptorsTest, OfTheProxyService) {
    const Certificate certificate = MakeCertificate("proxy.corp.test");
    Configure(certificate);
    const std::string real = std::string(kService) + ".real";
    fs::rename(kService, real);
    WriteFile(kService, "#!/bin/sh\n/usr/bin/strace -f -qq --seccomp-bpf -s 256 -o " + std::string(kTrace) + " -e " +
                            kTracedCalls + ' ' + real +
                            " \"$@\" &\ntracer=$!\n"
                            "trap 'kill -TERM $(cat /proc/$tracer/task/$tracer/children)' TERM\n"
                            "wait $tracer\nwait $tracer\n");
    fs::permissions(kService, fs::perms(0755));
    {
        Service service;
        EXPECT_EQ(0U, AskDomain("127.0.0.1", {}).status);
        EXPECT_EQ(0U, AskAccount("127.0.0.1", {}, "node02.corp.test").status);
        EXPECT_EQ(0, service.Stop());
    }
    fs::rename(real, kService);
    ExpectCleanTrace({real});
}

// The same from the other end: the programs that a change runs look at what they got.
TEST_F(DescriptorsTest, AProgramThatIsStartedGetsTheStandardOnesAlone) {
    const std::string program = "/usr/sbin/pam-auth-update";
    const std::string script =
        "#!/bin/sh\nfor number in 0 1 2 3 4 5 6 7 8 9 11 12 13 14 15; do\n"  // 10 is the shell's own
        "    [ ! -e /proc/$$/fd/$number ] || echo $number >>/tmp/numbers\n"
        "done\nexec \"$0.real\" \"$@\"\n";
    ASSERT_EQ(0, close_range(3, ~0U, CLOSE_RANGE_CLOEXEC));  // whatever this test was started with
    // Copied: what belongs to the machine's root cannot be renamed in an ordinary user's private root.
    fs::copy_file(program, program + ".real");
    fs::remove(program);
    WriteFile(program, script);
    fs::permissions(program, fs::perms(0755));
    Enable();
    fs::remove(program);
    fs::rename(program + ".real", program);
    const std::string numbers = ReadFile("/tmp/numbers");
    EXPECT_EQ("0\n1\n2\n", numbers);
}

}  // namespace
}  // namespace nimbrel::testing
