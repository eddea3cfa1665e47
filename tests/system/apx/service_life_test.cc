// The service's own life: how many connections it has, what a reload takes up, and how it ends, whatever hangs.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>

#include "apx_host.h"
#include "hung_domain.h"
#include "service.h"
#include "support/files.h"

namespace nimbrel::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// From 127.0.0.1, or from `source`.
int ConnectTo(const char* address, const char* source = kNear) {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in from = {};
    from.sin_family = AF_INET;
    inet_pton(AF_INET, source, &from.sin_addr);
    if (std::strcmp(source, kNear) != 0) {
        EXPECT_EQ(bind(connection, reinterpret_cast<const sockaddr*>(&from), sizeof from), 0);
    }
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(8443);
    to.sin_addr.s_addr = htonl(std::strcmp(address, kNear) == 0 ? INADDR_LOOPBACK : 0xC000020A);
    EXPECT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    return connection;
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST_F(Apx, SlowClientIsCutOff) {
    Configure(certificate, "request-seconds = 1\n");
    Service service;
    const int connection = ConnectTo(kNear);
    service.WaitForLog("cut client=127.0.0.1 reason=\"too slow\"");
    char byte = 0;
    EXPECT_LE(recv(connection, &byte, 1, 0), 0);
    close(connection);
    Configure(certificate, "");
    service.Signal(SIGHUP);
    service.WaitForLog("\nreloaded ");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
}

TEST_F(Apx, ConnectionsOfOneClientAreBounded) {
    Configure(certificate, "connections-per-client = 2\nrequest-seconds = 60\n");
    Service service;
    std::vector<int> connections;
    for (int count = 0; count < 2 + 16 + 1; ++count) connections.push_back(ConnectTo(kNear));
    service.WaitForLog("refused client=127.0.0.1 reason=\"too many connections of this client\"\n");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1229U);
    EXPECT_EQ(AskDomain(kHere, Pinned()).status, 0U);
    std::for_each(connections.begin(), connections.end(), close);
}

TEST_F(Apx, ClientWithAConnectionTooManyIsToldSo) {
    Configure(certificate, "connections-per-client = 2\nrequest-seconds = 60\n");
    Service service;
    const int first = ConnectTo(kNear);
    const int second = ConnectTo(kNear);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01").status, 1237U);
    service.WaitForLog("http=429 status=1237 reason=\"too many connections of this client\"");
    close(first);
    close(second);
}

TEST_F(Apx, ConnectionsTogetherAreBounded) {
    Configure(certificate, "connections = 2\nrequest-seconds = 60\n");
    Service service;
    const int first = ConnectTo(kNear);
    const int second = ConnectTo(kNear);
    EXPECT_EQ(AskDomain(kHere, Pinned()).status, 1237U);
    service.WaitForLog(
        "request client=192.0.2.10 method=GET path=/v1/domain http=429 status=1237 "
        "reason=\"too many connections\"");
    close(first);
    close(second);
}

TEST_F(Apx, WhoMayNotAskUsesUpNoConnections) {
    Configure(certificate, "allow = 127.0.0.1\nconnections = 2\n");
    Service service;
    std::vector<int> connections;
    for (int host = 1; host <= 8; ++host) {
        for (int count = 0; count < 8; ++count) {
            connections.push_back(ConnectTo(kNear, ("127.9.0." + std::to_string(host)).c_str()));
        }
    }
    service.WaitForLog("reason=\"too many connections of addresses that may not ask\"");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    std::for_each(connections.begin(), connections.end(), close);
}

TEST_F(Apx, RefusalsOfWhoMayNotAskDoNotFillTheLog) {
    Configure(certificate, "allow = 127.0.0.1\n");
    Service service;
    const auto begin = std::chrono::steady_clock::now();
    // Where the service has not cleared away enough connections that are over, the next one is cut, and has asked nothing.
    for (int told = 0; told < 60;) {
        const std::uint32_t status = AskDomain(kHere, Pinned()).status;
        ASSERT_TRUE(status == 5U || status == 1229U) << status;
        told += status == 5U;
    }
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    EXPECT_EQ(service.Stop(), 0);
    service.WaitForLog("\nstopped\n");
    EXPECT_GE(Count(service.Log(), "http=403"), 20U);
    EXPECT_LE(Count(service.Log(), "http=403"), 20U + static_cast<std::size_t>(seconds));
    EXPECT_EQ(Count(service.Log(), "http=200"), 1U);
}

TEST_F(Apx, RotatedCertificateIsPresentedAfterAReload) {
    Service service;
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    const Certificate next = MakeCertificate("proxy.corp.test");
    Configure(next);
    service.Signal(SIGHUP);
    service.WaitForLog("reloaded ");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, kUntrusted);
    EXPECT_EQ(AskDomain(kNear, {next.thumbprint, next.pem}).status, 0U);
    EXPECT_EQ(service.Stop(), 0);
}

TEST_F(Apx, ReloadTakesUpNewRulesAndKeepsTheOldOnesIfTheyAreWrong) {
    Service service;
    Configure(certificate, "allow = 192.0.2.0/24\n");
    service.Signal(SIGHUP);
    service.WaitForLog("reloaded ");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 5U);
    Configure(certificate, "allow = nonsense\n");
    service.Signal(SIGHUP);
    service.WaitForLog("not-reloaded reason=\"/etc/nimbrel/apxd.conf:7: 'allow':");
    EXPECT_EQ(AskDomain(kHere, Pinned()).status, 0U);
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 5U);
    EXPECT_EQ(service.Stop(), 0);
}

std::string LedgerText() { return ReadFile(kLedgerFile); }

// The rules in force stay, and with them who has taken over what.
TEST_F(Apx, ReloadThatFailsForgetsNothing) {
    Configure(certificate, "pre-staged = NODE07\n");
    Open().PreStageComputer("corp.test", "NODE07");
    Service service;
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node07").status, 0U);
    Configure(certificate, "listen = 203.0.113.1:8443\n");  // no address of this host
    service.Signal(SIGHUP);
    service.WaitForLog("not-reloaded ");
    EXPECT_THAT(service.Log(), HasSubstr("203.0.113.1"));
    EXPECT_THAT(LedgerText(), HasSubstr("T NODE07 "));
    EXPECT_EQ(AskAccount(kHere, Pinned(), "node07").status, 1316U);
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node07").status, 0U) << "its own once more";
    Configure(certificate);
    service.Signal(SIGHUP);
    service.WaitForLog("\nreloaded listen=");
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_THAT(LedgerText(), Not(HasSubstr("NODE07"))) << "nothing needs it now";
}

// The new rules count all the same, and nothing is lost of what the ledger holds.
TEST_F(Apx, ReloadThatCannotShortenTheLedgerIsOneAllTheSame) {
    Configure(certificate, "pre-staged = NODE07\n");
    Open().PreStageComputer("corp.test", "NODE07");
    Service service;
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node07").status, 0U);
    Configure(certificate, "allow = 192.0.2.0/24\n");
    std::filesystem::create_directory(std::string(kLedgerFile) + ".new");  // in the way of the new file
    service.Signal(SIGHUP);
    service.WaitForLog("not-pruned reason=");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 5U);
    EXPECT_THAT(LedgerText(), HasSubstr("T NODE07 "));
    std::filesystem::remove(std::string(kLedgerFile) + ".new");
    service.Signal(SIGHUP);
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_THAT(LedgerText(), Not(HasSubstr("NODE07")));
}

// There is no name server, and so nobody to ask.
TEST_F(Apx, WhileNoControllerIsFoundNoAccountIsGivenAway) {
    WriteServiceKeytab();
    Configure(certificate, HungDomain::BackEnd() + "pre-staged = NODE07\n");
    Service service;
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node07").status, 1355U);
    EXPECT_EQ(AskAccount(kHere, Pinned(), "node07").status, 1355U);
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_GE(Count(LedgerText(), "T NODE07 "), 1U) << "the first one was noted, as it would have been asked for";
    EXPECT_EQ(Count(LedgerText(), "F NODE07 "), Count(LedgerText(), "T NODE07 ")) << "and is nobody's";
}

// Configured with a directory that does not answer a client's question; the client hears in the end that nobody is there.
struct HungService {
    explicit HungService(const Trusted& trusted) {
        client = std::async(std::launch::async, [trusted] { EXPECT_EQ(AskDomain(kNear, trusted).status, 1229U); });
        domain.AwaitQuestion();
    }

    const HungDomain domain;
    Service service;
    std::future<void> client;
};

constexpr char kCut[] = "cut reason=\"requests under way have outlasted stop-seconds\"";

TEST_F(Apx, StopDoesNotWaitForADirectoryThatHangs) {
    Configure(certificate, HungDomain::BackEnd() + "stop-seconds = 1\n");
    HungService hung(Pinned());
    Service& service = hung.service;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30)) << "the directory has 60";
    service.WaitForLog(std::string(kCut) + "\nstopped\n");
}

TEST_F(Apx, ReloadDoesNotWaitForADirectoryThatHangs) {
    Configure(certificate, HungDomain::BackEnd() + "stop-seconds = 1\n");
    HungService hung(Pinned());
    Service& service = hung.service;
    Configure(certificate, "stop-seconds = 1\n");
    service.Signal(SIGHUP);
    service.WaitForLog("reloaded ");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 0U);
    service.WaitForLog(kCut);
    const auto begin = std::chrono::steady_clock::now();
    Configure(certificate, "allow = nonsense\n");
    service.Signal(SIGHUP);
    service.WaitForLog("not-reloaded ");
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30)) << "the directory has 60";
}

TEST_F(Apx, WhatAHungReadingHoldsIsNotRefusedToTheNext) {
    Configure(certificate, HungDomain::BackEnd() + "stop-seconds = 1\n");
    HungService hung(Pinned());
    Service& service = hung.service;
    Configure(certificate, "listen = 127.0.0.1:9443\nledger = /run/apxd/other\nstop-seconds = 1\n");
    service.Signal(SIGHUP);
    service.WaitForLog("reloaded listen=\"127.0.0.1 9443\"");
    EXPECT_EQ(AskDomain(kNear, Pinned()).status, 1225U) << "nobody is there any more to take a connection";
    Configure(certificate, "stop-seconds = 1\n");
    service.Signal(SIGHUP);
    service.WaitForLog("reloaded listen=\"0.0.0.0 8443\"");
    EXPECT_EQ(AskAccount(kNear, Pinned(), "node01").status, 0U);
    EXPECT_THAT(LedgerText(), HasSubstr("H NODE01 "));
    EXPECT_EQ(service.Stop(), 0);
}

// What systemd has been told, one text each.
class NotifySocket {
 public:
    NotifySocket() : _socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, kPath);
        std::filesystem::remove(kPath);
        EXPECT_EQ(bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    ~NotifySocket() { close(_socket); }

    static std::string Environment() { return std::string("NOTIFY_SOCKET=") + kPath; }
    std::string Next() const {
        char text[256];
        const ssize_t size = recv(_socket, text, sizeof text, MSG_DONTWAIT);
        return size < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(size));
    }

 private:
    static constexpr char kPath[] = "/run/notify";
    int _socket;
};

TEST_F(Apx, ServiceManagerIsToldHowLongAStopMayTake) {
    Configure(certificate, "stop-seconds = 600\n");
    const NotifySocket manager;
    Service service({NotifySocket::Environment()});
    EXPECT_EQ(service.Stop(), 0);
    EXPECT_EQ(manager.Next(), "READY=1");
    EXPECT_EQ(manager.Next(), "STOPPING=1\nEXTEND_TIMEOUT_USEC=630000000");
}

TEST_F(Apx, CheckConfigTellsWhatIsWrong) {
    const auto check = [] { return WEXITSTATUS(std::system("apxd --check-config >/run/check 2>&1")); };
    const auto said = [] {
        std::ifstream stream("/run/check");
        return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(said(), "/etc/nimbrel/apxd.conf: in order\n");
    Configure(certificate, "requests-per-minute = many\n");
    EXPECT_EQ(check(), 1);
    EXPECT_THAT(said(), HasSubstr("apxd: /etc/nimbrel/apxd.conf:7: 'requests-per-minute': "));
    Configure(certificate);
    std::ofstream("/etc/nimbrel/apxd/key.pem") << MakeCertificate("x").key;
    EXPECT_EQ(check(), 1);
    EXPECT_THAT(said(), HasSubstr("/etc/nimbrel/apxd/key.pem: "));
    EXPECT_EQ(WEXITSTATUS(std::system("apxd --config >/run/check 2>&1")), 2);
}

TEST_F(Apx, KeytabThatCannotBeUsedIsToldBeforeTheFirstHostAsks) {
    const auto run = [](const char* options) {
        return WEXITSTATUS(std::system((std::string("apxd ") + options + " >/run/check 2>&1").c_str()));
    };
    Configure(certificate, HungDomain::BackEnd());
    std::filesystem::remove(kServiceKeytab);
    const std::string said =
        "apxd: The keytab '/etc/nimbrel/apxd/apxd.keytab' cannot be used: No such file or directory\n";
    for (const char* const options : {"--check-config", ""}) {
        EXPECT_EQ(run(options), 1) << options;
        EXPECT_EQ(ReadFile("/run/check"), said) << options;
    }
    WriteServiceKeytab();
    EXPECT_EQ(run("--check-config"), 0);
    Service service;
    std::filesystem::remove(kServiceKeytab);
    service.Signal(SIGHUP);
    service.WaitForLog("not-reloaded reason=\"The keytab '/etc/nimbrel/apxd/apxd.keytab' cannot be used: ");
}

}  // namespace
}  // namespace nimbrel::testing
