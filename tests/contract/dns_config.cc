// Which bytes of which file a new search domain changes, and how systemd-resolved gets to know it.

#include "sysnet/dns_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "host.h"
#include "platform/sysnet/src/resolved_service.h"
#include "platform/sysnet/src/search_domains.h"
#include "platform/sysnet/src/text_file.h"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();

using HostMgmt::Lib::HostMgmtException;
using SysNet::Network::AddToResolvConf;
using SysNet::Network::AddToResolvedDropIn;
using SysNet::Network::DnsConfigImpl;
using Domains = std::vector<std::string>;

struct Row {
    const char* name;
    std::string before;
    std::string after;
};

TEST(ResolvConf, DomainGoesToTheLineThatCounts) {
    const Row rows[] = {
        {"empty file", "", "search corp.test\n"},
        {"no search line", "nameserver 192.0.2.53\noptions edns0\n",
         "nameserver 192.0.2.53\noptions edns0\nsearch corp.test\n"},
        {"no final newline", "nameserver 192.0.2.53", "nameserver 192.0.2.53\nsearch corp.test\n"},
        {"search line", "search a.test b.test\noptions edns0\n", "search a.test b.test corp.test\noptions edns0\n"},
        {"last search line without newline", "search a.test", "search a.test corp.test"},
        {"only the last of several counts", "search a.test\nsearch b.test\nnameserver 192.0.2.53\n",
         "search a.test\nsearch b.test corp.test\nnameserver 192.0.2.53\n"},
        {"domain in an earlier line that does not count", "search corp.test\nsearch b.test\n",
         "search corp.test\nsearch b.test corp.test\n"},
        {"blanks between and behind", "search \t a.test\t b.test \t\n", "search \t a.test\t b.test corp.test \t\n"},
        {"tab behind the keyword", "search\ta.test\n", "search\ta.test corp.test\n"},
        {"domain line last", "search a.test\ndomain b.test\noptions edns0\n",
         "search a.test\ndomain b.test\nsearch b.test corp.test\noptions edns0\n"},
        {"domain line with more words", "domain b.test c.test\n", "domain b.test c.test\nsearch b.test corp.test\n"},
        {"domain line without newline", "domain b.test", "domain b.test\nsearch b.test corp.test"},
        {"domain line without newline among CRLF", "options edns0\r\ndomain b.test",
         "options edns0\r\ndomain b.test\r\nsearch b.test corp.test"},
        {"domain line that has it", "domain corp.test\n", "domain corp.test\n"},
        {"search after domain", "domain b.test\nsearch a.test\n", "domain b.test\nsearch a.test corp.test\n"},
        {"keyword without a domain is passed over", "search a.test\nsearch \nsearch\ndomain\t\n",
         "search a.test corp.test\nsearch \nsearch\ndomain\t\n"},
        {"keyword not at the start of its line", " search a.test\n", " search a.test\nsearch corp.test\n"},
        {"longer keyword", "searching a.test\nsearch.test\n", "searching a.test\nsearch.test\nsearch corp.test\n"},
        {"commented out", "#search corp.test\n;search corp.test\n",
         "#search corp.test\n;search corp.test\nsearch corp.test\n"},
        {"remark behind the domains", "search a.test  # office\n", "search a.test corp.test  # office\n"},
        {"remark that names it", "search a.test # corp.test\n", "search a.test corp.test # corp.test\n"},
        {"already there", "search a.test corp.test\n", "search a.test corp.test\n"},
        {"already there in other case and with a dot", "search Corp.TEST.\n", "search Corp.TEST.\n"},
        {"part of another domain", "search lab.corp.test corp.test.example\n",
         "search lab.corp.test corp.test.example corp.test\n"},
        {"CRLF", "search a.test\r\noptions edns0\r\n", "search a.test corp.test\r\noptions edns0\r\n"},
        {"odd bytes elsewhere", std::string("\0\xff\n", 3), std::string("\0\xff\n", 3) + "search corp.test\n"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(AddToResolvConf(row.before, {"corp.test"}), row.after) << row.name;
        EXPECT_EQ(AddToResolvConf(row.after, {"corp.test"}), row.after) << row.name << ", once more";
    }
}

TEST(ResolvConf, SeveralDomainsKeepTheirOrderAndAreAddedOnce) {
    EXPECT_EQ(AddToResolvConf("search a.test\n", {"c.test", "A.test", "b.test", "C.TEST."}),
              "search a.test c.test b.test\n");
    EXPECT_EQ(AddToResolvConf("", {"c.test", "b.test", "c.test"}), "search c.test b.test\n");
    EXPECT_EQ(AddToResolvConf("search a.test\n", {}), "search a.test\n");
}

// Every file of up to four lines of these kinds: nothing is taken away, and a second edit changes nothing.
TEST(ResolvConf, SecondEditChangesNothingWhateverTheFile) {
    const Domains kinds = {"",        "# comment",    "nameserver 192.0.2.53", "search a.test", "search corp.test",
                           "search ", "domain b.test"};
    for (std::size_t code = 0; code < kinds.size() * kinds.size() * kinds.size() * kinds.size(); ++code) {
        std::string content;
        std::size_t lines = 0;
        for (std::size_t rest = code; rest > 0; rest /= kinds.size(), ++lines) {
            content += kinds[rest % kinds.size()] + "\n";
        }
        const std::string once = AddToResolvConf(content, {"corp.test"});
        ASSERT_EQ(AddToResolvConf(once, {"corp.test"}), once) << content;
        ASSERT_NE(once.find("corp.test"), std::string::npos) << content;
        // What was added is one word or one line.
        std::size_t kept = 0;
        for (const char c : once) kept += kept < content.size() && c == content[kept] ? 1 : 0;
        ASSERT_EQ(kept, content.size()) << content << "became\n" << once;
    }
}

TEST(ResolvedDropIn, DomainGoesToTheLastSetting) {
    const Row rows[] = {
        {"no file", "", "[Resolve]\nDomains=corp.test\n"},
        {"setting", "[Resolve]\nDomains=a.test\n", "[Resolve]\nDomains=a.test corp.test\n"},
        {"setting without newline", "[Resolve]\nDomains=a.test", "[Resolve]\nDomains=a.test corp.test"},
        {"blanks", " [Resolve] \n Domains = a.test  b.test \n", " [Resolve] \n Domains = a.test  b.test corp.test \n"},
        {"already there", "[Resolve]\nDomains=Corp.test. a.test\n", "[Resolve]\nDomains=Corp.test. a.test\n"},
        {"already in an earlier setting", "[Resolve]\nDomains=corp.test\nDomains=a.test\n",
         "[Resolve]\nDomains=corp.test\nDomains=a.test\n"},
        {"taken back by an empty setting", "[Resolve]\nDomains=corp.test\nDomains=\nDomains=a.test\n",
         "[Resolve]\nDomains=corp.test\nDomains=\nDomains=a.test corp.test\n"},
        {"last of several", "[Resolve]\nDomains=a.test\nDomains=b.test\n",
         "[Resolve]\nDomains=a.test\nDomains=b.test corp.test\n"},
        {"an empty setting goes on taking back", "[Resolve]\nDomains=a.test\nDomains=\nDNS=192.0.2.53\n",
         "[Resolve]\nDomains=a.test\nDomains=\nDNS=192.0.2.53\nDomains=corp.test\n"},
        {"continued setting", "[Resolve]\nDomains=a.test \\\n# c\n  b.test\nDNS=192.0.2.53\n",
         "[Resolve]\nDomains=a.test \\\n# c\n  b.test corp.test\nDNS=192.0.2.53\n"},
        {"already there in a continued line", "[Resolve]\nDomains=a.test\\\ncorp.test\n",
         "[Resolve]\nDomains=a.test\\\ncorp.test\n"},
        {"already there, with the backslash behind it", "[Resolve]\nDomains=corp.test\\\n a.test\n",
         "[Resolve]\nDomains=corp.test\\\n a.test\n"},
        {"name that goes on", "[Resolve]\nDomains \\\n# c\n = a.test\nDNS=192.0.2.53\n",
         "[Resolve]\nDomains \\\n# c\n = a.test corp.test\nDNS=192.0.2.53\n"},
        {"other name that goes on", "[Resolve]\nFallback\\\nDomains=a.test\n",
         "[Resolve]\nFallback\\\nDomains=a.test\nDomains=corp.test\n"},
        {"section that goes on into nothing", "[Resolve]\\\n\nDomains=a.test\n",
         "[Resolve]\\\n\nDomains=a.test corp.test\n"},
        {"section that goes on behind a comment", "[Resolve] \\\n# c\n\t\nDNS=192.0.2.53\n",
         "[Resolve] \\\n# c\n\t\nDNS=192.0.2.53\nDomains=corp.test\n"},
        {"section that goes on into another name", "[Resolve]\\\nx\nDomains=a.test\n",
         "[Resolve]\\\nx\nDomains=a.test\n[Resolve]\nDomains=corp.test\n"},
        {"setting that goes on into nothing", "[Resolve]\nDomains=a.test \\\n",
         "[Resolve]\nDomains=a.test corp.test \\\n"},
        {"other line that goes on into nothing", "[Resolve]\nDNS=192.0.2.53 \\\n",
         "[Resolve]\nDNS=192.0.2.53 \\\n\nDomains=corp.test\n"},
        {"other section that goes on into nothing", "[Other]\nX=1 \\\n# c\n",
         "[Other]\nX=1 \\\n# c\n\n[Resolve]\nDomains=corp.test\n"},
        {"routing domain is no search domain", "[Resolve]\nDomains=~corp.test\n",
         "[Resolve]\nDomains=~corp.test corp.test\n"},
        {"section without the setting", "[Resolve]\nDNS=192.0.2.53\n\n[Other]\nX=1\n",
         "[Resolve]\nDNS=192.0.2.53\nDomains=corp.test\n\n[Other]\nX=1\n"},
        {"section at the end without newline", "# mine\n[Resolve]", "# mine\n[Resolve]\nDomains=corp.test"},
        {"setting of another section", "[Other]\nDomains=corp.test\n",
         "[Other]\nDomains=corp.test\n[Resolve]\nDomains=corp.test\n"},
        {"commented out", "[Resolve]\n#Domains=corp.test\n", "[Resolve]\n#Domains=corp.test\nDomains=corp.test\n"},
        {"comment only", "# nothing yet\n", "# nothing yet\n[Resolve]\nDomains=corp.test\n"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(AddToResolvedDropIn(row.before, {"corp.test"}), row.after) << row.name;
        EXPECT_EQ(AddToResolvedDropIn(row.after, {"corp.test"}), row.after) << row.name << ", once more";
    }
}

TEST(ResolvedDropIn, SeveralDomainsKeepTheirOrder) {
    EXPECT_EQ(AddToResolvedDropIn("", {"c.test", "b.test", "C.test"}), "[Resolve]\nDomains=c.test b.test\n");
}

constexpr char kResolvConf[] = "/etc/resolv.conf";
constexpr char kDropIn[] = "/etc/systemd/resolved.conf.d/50-nimauth.conf";
constexpr char kSystemctl[] = "/usr/bin/systemctl";
constexpr char kCalls[] = "/tmp/systemctl.calls";

// One message of the priority "user, warning" with this text.
auto IsWarning(const std::string& text) {
    return ::testing::AllOf(::testing::StartsWith("<12>"), ::testing::HasSubstr(text));
}

// The host's real files. What a test makes of them is gone afterwards.
class DnsConfigTest : public ::testing::Test {
 protected:
    // The files are the host's, wherever the process stands.
    void SetUp() override {
        std::filesystem::current_path("/tmp");
        CleanUp();
    }
    void TearDown() override { CleanUp(); }

    void CleanUp() {
        for (const char* path : {kResolvConf, kCalls, "/run/systemd"}) std::filesystem::remove_all(path);
        std::filesystem::create_directories("/etc/systemd");
        _systemd.reset();
        _systemd.emplace(host::Mount::Memory("/etc/systemd", "64k"));
        WriteFile(kResolvConf, "nameserver 192.0.2.53\n");
    }
    // An empty folder, even where the machine's own has contents that belong to somebody else.
    std::optional<host::Mount> _systemd;

    static void Link(const std::string& target) {
        std::filesystem::remove(kResolvConf);
        std::filesystem::create_symlink(target, kResolvConf);
    }
    static void Save(const std::string& domain) {
        DnsConfigImpl dns("defaultTcpipStack");
        dns.AddUserSearchDomain(domain);
        dns.SaveConfig();
    }
    // A running systemd whose command for it writes down how it was called and ends with `status`.
    static void RunSystemd(int status) {
        std::filesystem::create_directories("/run/systemd/system");
        std::filesystem::remove(kSystemctl);
        WriteFile(kSystemctl, "#!/bin/sh\necho \"$@\" >>" + std::string(kCalls) +
                                  "\necho \"environment: $(/usr/bin/env | /usr/bin/grep -c SECRET)\" >>" + kCalls +
                                  "\nexit " + std::to_string(status) + "\n");
        ASSERT_EQ(chmod(kSystemctl, 0755), 0);
    }
    // The same, with a command that never ends.
    static void HangSystemctl() {
        RunSystemd(0);
        std::filesystem::remove("/tmp/never");
        ASSERT_EQ(mkfifo("/tmp/never", 0600), 0);
        WriteFile(kSystemctl, "#!/bin/sh\nread line </tmp/never\n");
    }
};

TEST_F(DnsConfigTest, PlainFileIsEditedAndNoDropInMade) {
    Save("corp.test");
    EXPECT_EQ(ReadFile(kResolvConf), "nameserver 192.0.2.53\nsearch corp.test\n");
    EXPECT_FALSE(std::filesystem::exists(kDropIn));
}

TEST_F(DnsConfigTest, MissingFileIsCreated) {
    std::filesystem::remove(kResolvConf);
    Save("corp.test");
    EXPECT_EQ(ReadFile(kResolvConf), "search corp.test\n");
    EXPECT_EQ(ModeOf(kResolvConf), 0644U);
}

TEST_F(DnsConfigTest, SavingNothingNewWritesNothing) {
    Save("corp.test");
    const ino_t before = host::InodeOf(kResolvConf);
    Save("CORP.test");
    DnsConfigImpl("defaultTcpipStack").SaveConfig();
    EXPECT_EQ(host::InodeOf(kResolvConf), before);
}

TEST_F(DnsConfigTest, SavingNothingLooksAtNoFile) {
    std::filesystem::remove(kResolvConf);
    std::filesystem::create_directory(kResolvConf);
    EXPECT_NO_THROW(DnsConfigImpl("defaultTcpipStack").SaveConfig());
    EXPECT_THROW(Save("corp.test"), HostMgmtException);
}

TEST_F(DnsConfigTest, WhatHasBeenSavedIsNotSavedAgain) {
    DnsConfigImpl dns("defaultTcpipStack");
    dns.AddUserSearchDomain("corp.test");
    dns.SaveConfig();
    WriteFile(kResolvConf, "search a.test\n");
    dns.SaveConfig();
    EXPECT_EQ(ReadFile(kResolvConf), "search a.test\n");
}

TEST_F(DnsConfigTest, TargetOfAnotherProgramsLinkIsEdited) {
    std::filesystem::create_directories("/run/NetworkManager");
    WriteFile("/run/NetworkManager/resolv.conf", "search a.test\n");
    Link("../run/NetworkManager/resolv.conf");
    Save("corp.test");
    EXPECT_TRUE(std::filesystem::is_symlink(kResolvConf));
    EXPECT_EQ(ReadFile("/run/NetworkManager/resolv.conf"), "search a.test corp.test\n");
    EXPECT_FALSE(std::filesystem::exists(kDropIn));
}

TEST_F(DnsConfigTest, MountedFileIsRewrittenInPlace) {
    WriteFile("/tmp/resolv.conf", "search a.test\n");
    const host::Mount mount = host::Mount::Bind("/tmp/resolv.conf", kResolvConf);
    Save("corp.test");
    EXPECT_EQ(ReadFile("/tmp/resolv.conf"), "search a.test corp.test\n");
}

TEST_F(DnsConfigTest, FailedSaveKeepsTheDomainForTheNext) {
    DnsConfigImpl dns("defaultTcpipStack");
    dns.AddUserSearchDomain("corp.test");
    Link("missing");
    EXPECT_THROW(dns.SaveConfig(), HostMgmtException);
    std::filesystem::remove(kResolvConf);
    dns.SaveConfig();
    EXPECT_EQ(ReadFile(kResolvConf), "search corp.test\n");
}

TEST_F(DnsConfigTest, ResolvedGetsADropIn) {
    // The links that distributions make, most of them before resolved has ever run.
    for (const std::string target : {"../run/systemd/resolve/stub-resolv.conf", "/run/systemd/resolve/resolv.conf",
                                     "/var/run/systemd/resolve/stub-resolv.conf", "/usr/lib/systemd/resolv.conf",
                                     "../usr/lib/systemd/resolv.conf"}) {
        CleanUp();
        Link(target);
        Save("corp.test");
        EXPECT_EQ(ReadFile(kDropIn), "[Resolve]\nDomains=corp.test\n") << target;
        EXPECT_EQ(ModeOf(kDropIn), 0644U);
        EXPECT_EQ(std::filesystem::read_symlink(kResolvConf), target);
        EXPECT_FALSE(std::filesystem::exists("/run/systemd/resolve"));
    }
}

TEST_F(DnsConfigTest, DropInKeepsEarlierDomains) {
    Link("/run/systemd/resolve/stub-resolv.conf");
    Save("corp.test");
    Save("lab.test");
    EXPECT_EQ(ReadFile(kDropIn), "[Resolve]\nDomains=corp.test lab.test\n");
}

TEST_F(DnsConfigTest, DropInFoldersAreMadeWhateverTheUmask) {
    Link("/run/systemd/resolve/stub-resolv.conf");
    const mode_t before = umask(0077);
    Save("corp.test");
    SysNet::Network::MakeFolders("/tmp/several/folders");
    umask(before);
    EXPECT_EQ(ModeOf("/tmp/several"), 0755U);
    EXPECT_EQ(ModeOf("/tmp/several/folders"), 0755U);
    EXPECT_EQ(ModeOf("/etc/systemd/resolved.conf.d"), 0755U);
    EXPECT_EQ(ModeOf(kDropIn), 0644U);
}

TEST_F(DnsConfigTest, RunningResolvedIsTold) {
    Link("/run/systemd/resolve/stub-resolv.conf");
    RunSystemd(0);
    ASSERT_EQ(setenv("SECRET", "1", 1), 0);
    host::SystemLog log;
    Save("corp.test");
    unsetenv("SECRET");
    EXPECT_EQ(log.Take(), "");
    const std::string call = "--no-ask-password try-reload-or-restart systemd-resolved.service\nenvironment: 0\n";
    EXPECT_EQ(ReadFile(kCalls), call);
    Save("corp.test");  // who wrote what is there may have ended before the service was told
    EXPECT_EQ(ReadFile(kCalls), call + call);
}

// A unit that is restarted many times in a row is stopped, and joins that are tried again come here each time.
TEST_F(DnsConfigTest, ResolvedThatHasTheDomainsIsLeftAlone) {
    RunSystemd(0);
    std::filesystem::create_directories("/run/systemd/resolve");
    for (const std::string target : {"/run/systemd/resolve/stub-resolv.conf", "/usr/lib/systemd/resolv.conf"}) {
        Link(target);
        Save("corp.test");
        WriteFile("/run/systemd/resolve/resolv.conf", "nameserver 192.0.2.53\nsearch lab.test corp.test\n");
        std::filesystem::remove(kCalls);
        Save("CORP.test");
        EXPECT_FALSE(std::filesystem::exists(kCalls)) << target;
        Save("lab.test");  // the service has it, the drop-in has not
        EXPECT_TRUE(std::filesystem::exists(kCalls)) << target;
        std::filesystem::remove("/run/systemd/resolve/resolv.conf");
        std::filesystem::remove(kDropIn);
    }
}

TEST_F(DnsConfigTest, ResolvedThatCannotBeToldIsNoFailure) {
    Link("/run/systemd/resolve/stub-resolv.conf");
    RunSystemd(1);
    host::SystemLog log;
    Save("corp.test");
    EXPECT_EQ(ReadFile(kDropIn), "[Resolve]\nDomains=corp.test\n");
    EXPECT_THAT(log.Take(), IsWarning("systemd-resolved could not be told about its new search domains"));
    std::filesystem::remove(kSystemctl);
    Save("lab.test");
    EXPECT_EQ(ReadFile(kDropIn), "[Resolve]\nDomains=corp.test lab.test\n");
    EXPECT_THAT(log.Take(), IsWarning("systemd-resolved could not be told about its new search domains"));
}

TEST_F(DnsConfigTest, ProcessThatDoesNotReapItsChildrenIsServedToo) {
    Link("/run/systemd/resolve/stub-resolv.conf");
    RunSystemd(0);
    host::SystemLog log;
    signal(SIGCHLD, SIG_IGN);
    Save("corp.test");
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(log.Take(), "");
    EXPECT_THAT(ReadFile(kCalls), ::testing::StartsWith("--no-ask-password"));
}

TEST_F(DnsConfigTest, CommandThatHangsIsEndedInTime) {
    HangSystemctl();
    host::SystemLog log;
    SysNet::Network::ReloadResolved(50);
    EXPECT_THAT(log.Take(), IsWarning("systemd-resolved could not be told about its new search domains"));
    EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a child is left";
}

// A process whose timer interrupts it all the time.
TEST_F(DnsConfigTest, SignalsDoNotPutTheEndOff) {
    HangSystemctl();
    host::SystemLog log;
    struct sigaction interrupt = {};
    struct sigaction before = {};
    interrupt.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &interrupt, &before), 0);
    const itimerval often = {{0, 10'000}, {0, 10'000}};
    const itimerval never = {};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    SysNet::Network::ReloadResolved(200);  // does not return if each signal begins the time anew
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_THAT(log.Take(), IsWarning("systemd-resolved could not be told about its new search domains"));
}

TEST_F(DnsConfigTest, WithoutSystemdNothingIsRun) {
    Link("/run/systemd/resolve/stub-resolv.conf");
    RunSystemd(0);
    std::filesystem::remove_all("/run/systemd");
    Save("corp.test");
    EXPECT_FALSE(std::filesystem::exists(kCalls));
}

TEST_F(DnsConfigTest, PlainFileRunsNothing) {
    RunSystemd(0);
    Save("corp.test");
    EXPECT_FALSE(std::filesystem::exists(kCalls));
}

}  // namespace
