// The real service and the real plug-in over real TLS: who is trusted, who is served, and what goes wrong.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/conf.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>

#include "apx_host.h"
#include "embeddeddirectory/host.h"
#include "service.h"
#include "support/pass_phrase.h"
#include "tls_server.h"

namespace nimbrel::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// --- Joined ---

TEST_F(Apx, HostIsJoinedWithWhatTheServiceHandsOut) {
    Service service;
    EXPECT_THAT(AskDomain(kNear, Pinned()).texts, ElementsAre("CORP", "corp.test", Sid()));
    const Answered account = AskAccount(kNear, Pinned(), "node01.corp.test", "Hosts");
    ASSERT_EQ(account.status, 0U);
    EXPECT_EQ(account.texts.at(0), "NODE01$");
    EXPECT_EQ(Join({0, {"NODE01$", "wrong"}}), 1326U);
    EXPECT_EQ(Join(account), 0U);
    EXPECT_EQ(Join(account), 1326U);
    EXPECT_EQ(Open().GetComputer("corp.test", "NODE01").path, "Hosts");
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_THAT(service.Log(), HasSubstr("client=127.0.0.1 method=POST path=/v1/computers account=NODE01 unit=Hosts "
                                         "http=201 status=0 way=created ms="));
    EXPECT_THAT(service.Log(), Not(HasSubstr(account.texts.at(1))));
    EXPECT_THAT(service.Log(), HasSubstr("\nstopped\n"));
}

// --- Trust ---

TEST_F(Apx, WhoIsTrusted) {
    Service service;
    const Certificate other = MakeCertificate("proxy.corp.test");
    const std::string text = "Subject: the proxy\n" + certificate.pem + other.pem;
    std::string wrong = certificate.thumbprint;
    wrong.back() = wrong.back() == 'A' ? 'B' : 'A';
    const struct {
        const char* what;
        Trusted trusted;
        std::uint32_t status;
    } rows[] = {
        {"thumbprint and certificate", Pinned(), 0},
        {"thumbprint alone", {certificate.thumbprint, ""}, 0},
        {"certificate with others and text around it", {certificate.thumbprint, text}, 0},
        {"wrong thumbprint", {wrong, ""}, kUntrusted},
        {"wrong thumbprint, right certificate", {wrong, certificate.pem}, kUntrusted},
        {"right thumbprint, other certificate", {certificate.thumbprint, other.pem}, kUntrusted},
        {"right thumbprint, damaged certificate", {certificate.thumbprint, "no certificate"}, kUntrusted},
        {"other certificate with the right name", {other.thumbprint, other.pem}, kUntrusted},
        {"malformed thumbprint", {"0A:1B", ""}, kUntrusted},
        {"not verified", {}, 0},
    };
    for (const auto& row : rows) EXPECT_EQ(AskDomain(kNear, row.trusted).status, row.status) << row.what;
}

TEST_F(Apx, CertificateThatAnAuthoritySignedIsTrustedByEither) {
    const Certificate authority = MakeCertificate("corp.test authority");
    const Certificate signedOne = MakeCertificate("proxy.corp.test", &authority);
    Configure(signedOne);
    Service service;
    EXPECT_EQ(AskDomain(kNear, {signedOne.thumbprint, authority.pem}).status, 0U);
    EXPECT_EQ(AskDomain(kNear, {signedOne.thumbprint, signedOne.pem}).status, 0U);
    EXPECT_EQ(AskDomain(kNear, {authority.thumbprint, authority.pem}).status, kUntrusted);
}

TEST_F(Apx, ExpiredAndNotYetValidCertificatesAreRefused) {
    for (const auto& [from, to] : {std::pair(-7200L, -3600L), std::pair(3600L, 7200L)}) {
        const Certificate unfit = MakeCertificate("proxy.corp.test", nullptr, from, to);
        Configure(unfit);
        Service service;
        EXPECT_EQ(AskDomain(kNear, {unfit.thumbprint, unfit.pem}).status, kUntrusted);
        EXPECT_EQ(AskDomain(kNear, {unfit.thumbprint, ""}).status, kUntrusted);
        EXPECT_EQ(AskDomain(kNear, {}).status, 0U);
    }
}

TEST_F(Apx, NothingIsSentToAServiceThatIsNotTrusted) {
    const Certificate other = MakeCertificate("proxy.corp.test");
    EXPECT_EQ(StatusOfAnswer(Http("200 OK", "{}"), &other), kUntrusted);
    EXPECT_EQ(lastRequest, "");
}

// The host's OpenSSL configuration, as an administrator may have loosened it for something else.
class LooseOpenSsl {
 public:
    LooseOpenSsl() {
        std::ofstream(kFile) << "openssl_conf = all\n[all]\nssl_conf = tls\n[tls]\nsystem_default = loose\n"
                                "[loose]\nCipherString = ALL:@SECLEVEL=0\n";
        EXPECT_EQ(CONF_modules_load_file(kFile, nullptr, 0), 1);
    }
    LooseOpenSsl(const LooseOpenSsl&) = delete;
    LooseOpenSsl& operator=(const LooseOpenSsl&) = delete;
    ~LooseOpenSsl() { CONF_modules_finish(); }

 private:
    static constexpr char kFile[] = "/run/openssl.cnf";
};

TEST_F(Apx, NothingIsSentToAServiceThatShowsNoCertificate) {
    const LooseOpenSsl openSsl;
    const std::string account = R"({"accountName":"NODE01$","oneTimeSecret":"s"})";
    EXPECT_EQ(StatusOfAnswer(Http("200 OK", account), &TlsServer::kAnonymous), kUntrusted);
    EXPECT_EQ(lastRequest, "");
    TlsServer server(9443, &TlsServer::kAnonymous, Http("200 OK", account));
    EXPECT_EQ(AskAccount(kNear, {}, "node01").status, 0U) << "not verified: the two agree on a suite";
    EXPECT_THAT(server.Request(), StartsWith("POST /v1/computers HTTP/1.1\r\n"));
}

TEST_F(Apx, ServiceCanAskItsClientsForACertificate) {
    const Certificate authority = MakeCertificate("clients");
    const Certificate client = MakeCertificate("node01", &authority);
    const Certificate stranger = MakeCertificate("node01");
    std::ofstream("/etc/nimbrel/apxd/clients.pem") << authority.pem;
    std::ofstream("/etc/nimbrel/client.pem") << client.pem << client.key;
    std::ofstream("/etc/nimbrel/stranger.pem") << stranger.pem << stranger.key;
    Configure(certificate, "client-ca = /etc/nimbrel/apxd/clients.pem\n");
    Service service;
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 5U);
    SetPlugin("client-certificate = \"/etc/nimbrel/stranger.pem\"\nclient-key = \"/etc/nimbrel/stranger.pem\"\n");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 5U);
    SetPlugin("client-certificate = \"/etc/nimbrel/client.pem\"\nclient-key = \"/etc/nimbrel/client.pem\"\n");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    service.WaitForLog("certificate=");
}

// A service with authorities of its clients and their lists.
class ApxClientLists : public Apx {
 protected:
    ApxClientLists() {
        SetPlugin("client-certificate = \"/etc/nimbrel/client.pem\"\nclient-key = \"/etc/nimbrel/client.pem\"\n");
        Configure(certificate, "client-ca = /etc/nimbrel/apxd/clients.pem\nclient-crl = /etc/nimbrel/apxd/crl.pem\n");
        Trust(authority.pem);
    }
    static void Trust(const std::string& authorities) { std::ofstream("/etc/nimbrel/apxd/clients.pem") << authorities; }
    static void Publish(const std::string& lists) { std::ofstream("/etc/nimbrel/apxd/crl.pem") << lists; }
    std::uint32_t Ask(const Certificate& client, const std::string& issuers = "") const {
        std::ofstream("/etc/nimbrel/client.pem", std::ios::trunc) << client.pem << issuers << client.key;
        return AskDomain(kNear, Pinned()).status;
    }

    const Certificate authority = MakeCertificate("clients");
    const Certificate site = MakeCertificate("site", &authority, -3600, 86400, {{"basicConstraints", "CA:TRUE"}});
    const Certificate good = MakeCertificate("node01", &authority);
    const Certificate stolen = MakeCertificate("node01", &authority);
    const Certificate atSite = MakeCertificate("node01", &site);
};

TEST_F(ApxClientLists, RevokedCertificatesAreRefused) {
    Publish(MakeRevocationList(authority, {stolen}));
    Service service;
    EXPECT_EQ(Ask(good), 0U);
    EXPECT_EQ(Ask(stolen), 5U);
    service.WaitForLog("reason=\"the client's certificate is revoked\"");
    EXPECT_EQ(Ask(atSite, site.pem), 0U);
    Publish(MakeRevocationList(authority, {}, -7200, -3600));
    service.Signal(SIGHUP);
    service.WaitForLog(
        "not-reloaded reason=\"/etc/nimbrel/apxd/crl.pem: holds a list of 'CN=clients' that is out of date");
    EXPECT_EQ(Ask(stolen), 5U) << "the lists in force stay";
    Publish(MakeRevocationList(authority, {site}));
    service.Signal(SIGHUP);
    service.WaitForLog("\nreloaded ");
    EXPECT_EQ(Ask(stolen), 0U);
    EXPECT_EQ(Ask(atSite, site.pem), 5U) << "the authority on the way to it";
}

TEST_F(ApxClientLists, RevokedAuthorityIsNotTrustedForItself) {
    Trust(authority.pem + site.pem);
    Publish(MakeRevocationList(authority, {stolen}));
    {
        const Service service;
        EXPECT_EQ(Ask(atSite), 0U) << "an authority that is trusted need not be sent";
    }
    Publish(MakeRevocationList(authority, {site}));
    const Service service;
    EXPECT_EQ(Ask(atSite), 5U);
    EXPECT_EQ(Ask(good), 0U);
}

TEST_F(ApxClientLists, FileThatIsAtFaultIsNamed) {
    Publish(MakeRevocationList(authority, {}));
    Service service;
    Trust(authority.pem + site.key);
    service.Signal(SIGHUP);
    service.WaitForLog("not-reloaded reason=\"/etc/nimbrel/apxd/clients.pem: holds something that cannot be read");
}

// Larger than the configuration's other files may be, as lists of years are. Text in front of a list says nothing.
TEST_F(ApxClientLists, LargeListIsRead) {
    Publish(std::string(2U << 20U, '#') + '\n' + MakeRevocationList(authority, {stolen}));
    const Service service;
    EXPECT_EQ(Ask(stolen), 5U);
    EXPECT_EQ(Ask(good), 0U);
}

TEST_F(Apx, ClientsCertificateIsGoodForTheAccountThatItNames) {
    const Certificate authority = MakeCertificate("clients");
    std::ofstream("/etc/nimbrel/apxd/clients.pem") << authority.pem;
    const auto ask = [&](const std::string& commonName, const Extensions& extensions, const std::string& account) {
        const Certificate client = MakeCertificate(commonName, &authority, -3600, 86400, extensions);
        std::ofstream("/etc/nimbrel/client.pem", std::ios::trunc) << client.pem << client.key;
        return AskAccount(kNear, Pinned(), account).status;
    };
    const std::string dns = "subjectAltName";
    const std::string purpose = "extendedKeyUsage";
    SetPlugin("client-certificate = \"/etc/nimbrel/client.pem\"\nclient-key = \"/etc/nimbrel/client.pem\"\n");
    Configure(certificate, "client-ca = /etc/nimbrel/apxd/clients.pem\n");
    {
        Service service;
        EXPECT_EQ(ask("node01", {}, "node02"), 5U);
        EXPECT_EQ(ask("NODE01.corp.test", {}, "node01.corp.test"), 0U);
        EXPECT_EQ(ask("node02", {{dns, "DNS:other.corp.test"}}, "node02"), 5U) << "the common name does not count then";
        EXPECT_EQ(ask("other", {{dns, "IP:127.0.0.1,DNS:other.corp.test,DNS:node02.corp.test"}}, "node02"), 0U);
        EXPECT_EQ(ask("node03.lab.example", {}, "node03"), 5U) << "another domain's host";
        EXPECT_EQ(ask("node03", {{dns, "email:node03@corp.test"}}, "node03"), 0U);
        EXPECT_EQ(ask("node04", {{purpose, "serverAuth"}}, "node04"), 5U) << "not for clients";
        EXPECT_EQ(ask("node04", {{purpose, "clientAuth"}}, "node04"), 0U);
    }
    Configure(certificate, "client-ca = /etc/nimbrel/apxd/clients.pem\nclient-names = any\n");
    Service service;
    EXPECT_EQ(ask("deployment", {}, "node05"), 0U);
}

// --- Who is served ---

TEST_F(Apx, ClientOutsideTheAllowListIsRefused) {
    Configure(certificate, "allow = 192.0.2.0/24\n");
    Service service;
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 5U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01").status, 5U);
    EXPECT_EQ(AskAccount(kHere, Pinned(), "node01").status, 0U);
}

TEST_F(Apx, RefusalsKeepTheirNumbers) {
    Configure(certificate, "allow-unit = Hosts\nallow-unit = Gone\n");
    Open().PreStageComputer("corp.test", "TAKEN");
    Service service;
    EXPECT_EQ(AskAccount(kNear, Pinned(), "taken").status, 1316U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01.other.test").status, 1210U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "a-name-of-more-than-15").status, 1210U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01", "Lab").status, 5U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01", "Gone").status, 2U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node\xff").status, 1210U);
    Open().SetControllerReachable("corp.test", "dc1.corp.test", false);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01").status, 1355U);
}

TEST_F(Apx, RateIsLimitedPerClient) {
    Configure(certificate, "requests-per-minute = 1\nburst = 2\n");
    Service service;
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1237U);
    EXPECT_EQ(AskDomain(kHere, Pinned()).status, 0U);
}

TEST_F(Apx, OfTwoHostsThatAskForTheSameNameAtOnceOneGetsIt) {
    Service service;
    auto there = std::async(std::launch::async, [this] { return AskAccount(kHere, Pinned(), "node01"); });
    const Answered one = AskAccount(kNear, Pinned(), "node01");
    const Answered two = there.get();
    EXPECT_EQ(std::max(one.status, two.status), 1316U);
    EXPECT_EQ(std::min(one.status, two.status), 0U);
    EXPECT_EQ(Join(one.status == 0 ? one : two), 0U);
}

TEST_F(Apx, PreStagedAccountIsTakenOverOnce) {
    Configure(certificate, "pre-staged = NODE07\n");
    Open().PreStageComputer("corp.test", "NODE07");
    Service service;
    const Answered account = AskAccount(kNear, Pinned(), "node07");
    EXPECT_EQ(AskAccount(kHere, Pinned(), "node07").status, 1316U);
    EXPECT_EQ(Join(account), 0U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node07").status, 1316U);
}

TEST_F(Apx, KilledBetweenCreatingTheAccountAndAnsweringTheHostsRetryIsServed) {
    const std::vector<std::string> environment = {"LD_PRELOAD=" NIMAUTH_TEST_KILLED_BEFORE_ANSWERING,
                                                  "ASAN_OPTIONS=verify_asan_link_order=0"};
    {
        Service service(environment);
        EXPECT_EQ(AskAccount(kNear, Pinned(), "node01").status, 1229U);
        EXPECT_EQ(service.Wait(), -SIGKILL);
        EXPECT_TRUE(Open().GetComputer("corp.test", "NODE01").preStaged);
    }
    Service service;
    EXPECT_EQ(AskAccount(kHere, Pinned(), "node01").status, 1316U);
    const Answered account = AskAccount(kNear, Pinned(), "node01");
    EXPECT_EQ(account.status, 0U);
    EXPECT_EQ(Join(account), 0U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01").status, 1316U);
}

// --- Connections that fail ---

TEST_F(Apx, StoppedServiceRefusesTheConnection) {
    Service().Stop();
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1225U);
}

TEST_F(Apx, HungServiceIsGivenUp) {
    SetPlugin("connect-seconds = 1\ntotal-seconds = 2\n");
    Service service;
    service.Signal(SIGSTOP);
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 10060U);
    service.Signal(SIGCONT);
    EXPECT_EQ(service.Stop(), 0);
}

TEST_F(Apx, BlackHoledAddressIsGivenUp) {
    SetPlugin("connect-seconds = 1\ntotal-seconds = 2\n");
    ASSERT_EQ(std::system("ip neighbour replace 192.0.2.99 lladdr 02:00:00:00:00:63 dev eth0"), 0);
    EXPECT_EQ(AskDomain(kBlackHole, Pinned()).status, 10060U);
}

TEST_F(Apx, AnswersThatAreNoAnswers) {
    const std::string account = R"({"accountName":"NODE01$","oneTimeSecret":"s"})";
    const struct {
        const char* what;
        std::string answer;
        std::uint32_t status;
    } rows[] = {
        {"a good one", Http("201 Created", account), 0},
        {"nothing", "", 1229},
        {"half a head", "HTTP/1.1 200 OK\r\nContent-", 1229},
        {"half a body", "HTTP/1.1 200 OK\r\nContent-Length: 200\r\n\r\n" + account, 1229},
        {"no HTTP", "220 mail.corp.test ESMTP\r\n", 1229},
        {"malformed JSON", Http("200 OK", "{"), 1229},
        {"another JSON", Http("200 OK", "{}"), 1229},
        {"a web page", Http("404 Not Found", "<html></html>"), 1229},
        {"a redirect", Http("302 Found", account, "Location: https://127.0.0.1:9443/v1/computers\r\n"), 1229},
        {"10 MB", Http("200 OK", std::string(10U << 20U, 'x')), 1229},
        {"10 MB without a length", "HTTP/1.1 200 OK\r\n\r\n" + std::string(10U << 20U, 'x'), 1229},
        {"a head without end", "HTTP/1.1 200 OK\r\nX: " + std::string(10U << 20U, 'x'), 1229},
        {"a refusal without a number", Http("403 Forbidden", "{}"), 1229},
        {"a refusal with the number 0", Http("403 Forbidden", R"({"status":0})"), 1229},
        {"a refusal", Http("409 Conflict", R"({"status":1316,"message":"taken"})"), 1316},
    };
    for (const auto& row : rows) EXPECT_EQ(StatusOfAnswer(row.answer), row.status) << row.what;
    EXPECT_THAT(lastRequest, StartsWith("POST /v1/computers HTTP/1.1\r\n"));
}

TEST_F(Apx, AServerThatDoesNotSpeakTlsIsNoConnection) {
    SetPlugin("port = 9443\n");
    TlsServer server(9443, nullptr, "HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1229U);
}

TEST_F(Apx, NobodyIsAskedForThePassPhraseOfTheHostsKey) {
    std::ofstream("/etc/nimbrel/client.pem") << certificate.pem;
    std::ofstream("/etc/nimbrel/client.key") << EncryptedKey(certificate);
    SetPlugin("client-certificate = /etc/nimbrel/client.pem\nclient-key = /etc/nimbrel/client.key\n");
    Service service;
    const CountedPrompts prompts;
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1610U);
    EXPECT_EQ(prompts.Asked(), 0);
}

TEST_F(Apx, DamagedSettingsOfThePluginAreTold) {
    SetPlugin("port = none\n");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1610U);
}

// --- Many at once ---

// One host: what the library asks of the proxy in a join, and the join itself. Returns 0, and the time it took.
int BeAHost(int number, const Trusted& trusted, int pipe) {
    const std::string name = "host" + std::to_string(number);
    const auto begin = std::chrono::steady_clock::now();
    for (int question = 0; question < 4; ++question) {
        if (AskDomain(kNear, trusted).status != 0) return 1;
    }
    const Answered account = AskAccount(kNear, trusted, name + ".corp.test", "Hosts");
    if (account.status != 0) return 2;
    const embedded::Host host(kDirectory, "/run/hosts/" + name + ".db");
    host.JoinWithMachineAccount({name, "corp.test", "CORP", "", account.texts.at(0), account.texts.at(1)});
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    const double milliseconds = took.count();
    return write(pipe, &milliseconds, sizeof milliseconds) == sizeof milliseconds ? 0 : 3;
}

// Returns when nobody has the other end of the pipe open any more.
void AwaitEnd(int pipe) {
    char unused = 0;
    while (read(pipe, &unused, 1) > 0) {
    }
}

TEST_F(Apx, TwoHundredHostsJoinAtOnce) {
    constexpr int kHosts = 200;
    Configure(certificate, "connections = 512\nconnections-per-client = 512\nrequest-seconds = 60\n");
    SetPlugin("connect-seconds = 60\ntotal-seconds = 120\n");
    std::filesystem::create_directories("/run/hosts");
    int start[2];
    int ends[2];
    ASSERT_EQ(pipe2(start, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    // Before the service and the thread that reads its log: a child made beside a thread may inherit a lock of malloc
    // that nobody will open again.
    std::vector<pid_t> hosts;
    for (int number = 0; number < kHosts; ++number) {
        const pid_t host = fork();
        if (host == 0) {
            close(start[1]);
            int result = 4;
            try {
                AwaitEnd(start[0]);
                result = BeAHost(number, Pinned(), ends[1]);
            } catch (const std::exception&) {
                result = 5;
            }
            _exit(result);
        }
        hosts.push_back(host);
    }
    Service service;
    const auto begin = std::chrono::steady_clock::now();
    close(start[0]);
    close(start[1]);
    int failed = 0;
    for (const pid_t host : hosts) {
        int status = 0;
        waitpid(host, &status, 0);
        failed += status != 0;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    close(ends[1]);
    std::vector<double> times;
    for (double time; read(ends[0], &time, sizeof time) == sizeof time;) times.push_back(time);
    close(ends[0]);
    EXPECT_EQ(failed, 0);
    ASSERT_EQ(times.size(), static_cast<std::size_t>(kHosts));
    std::sort(times.begin(), times.end());
    std::printf("%d hosts joined in %.2f s: %.1f joins/s (%.0f requests/s), median %.0f ms, 99th percentile %.0f ms\n",
                kHosts, took.count(), kHosts / took.count(), 5 * kHosts / took.count(), times[kHosts / 2],
                times[kHosts * 99 / 100 - 1]);
    int joined = 0;
    for (const auto& computer : Open().ListComputers("corp.test")) joined += !computer.preStaged;
    EXPECT_EQ(joined, kHosts);
}

}  // namespace
}  // namespace nimbrel::testing
