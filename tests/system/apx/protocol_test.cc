// The service as a client sees it that keeps to no plug-in's ways: what HTTP and TLS it takes, and for how long.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "embeddeddirectory/directory.h"
#include "service.h"
#include "tls_client.h"

namespace nimbrel::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kNear[] = "127.0.0.1";
constexpr char kAskDomain[] = "GET /v1/domain HTTP/1.1\r\nHost: proxy\r\n\r\n";

class ApxProtocol : public ::testing::Test {
 protected:
    ApxProtocol() {
        std::filesystem::remove_all("/var/lib/nimbrel");
        std::filesystem::remove_all("/run/apxd");
        embedded::Directory::Open("/var/lib/nimbrel/directory.db", embedded::OpenMode::CreateIfMissing)
            .AddDomain("corp.test");
    }
    static std::string AnswerTo(const std::string& request, const std::string& address = kNear) {
        TlsClient client(address);
        EXPECT_TRUE(client.Send(request));
        return client.Answer();
    }

    const Certificate certificate = MakeCertificate("proxy.corp.test");
};

TEST_F(ApxProtocol, AnswersAreHttpWithJson) {
    Configure(certificate);
    Service service;
    const std::string answer = AnswerTo(kAskDomain);
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: application/json\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nCache-Control: no-store\r\n"));
    EXPECT_THAT(answer, HasSubstr("\"dnsName\":\"corp.test\""));
}

TEST_F(ApxProtocol, BodyWithoutALengthIsRefused) {
    Configure(certificate);
    Service service;
    const std::string answer = AnswerTo(
        "POST /v1/computers HTTP/1.1\r\nHost: proxy\r\nContent-Type: application/json\r\n"
        "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 411 "));
    EXPECT_THAT(answer, HasSubstr("\"status\":87"));
}

TEST_F(ApxProtocol, WhoAsksTooOftenIsToldWhenToComeAgain) {
    Configure(certificate, "requests-per-minute = 1\nburst = 1\n");
    Service service;
    EXPECT_THAT(AnswerTo(kAskDomain), Not(HasSubstr("Retry-After")));
    const std::string answer = AnswerTo(kAskDomain);
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 429 "));
    EXPECT_THAT(answer, HasSubstr("\r\nRetry-After: 60\r\n"));
}

// The HTTP library's own refusals: the service never hears of such a request.
TEST_F(ApxProtocol, WhatIsNoHttpIsRefusedWithoutJsonAndWithoutALine) {
    Configure(certificate);
    Service service;
    EXPECT_THAT(AnswerTo("GET /v1/domain HTTP/1.1\r\nHost: proxy\r\nX: " + std::string(20000, 'x') + "\r\n\r\n"),
                StartsWith("HTTP/1.1 431 "));
    const std::string negative = AnswerTo(
        "POST /v1/computers HTTP/1.1\r\nHost: proxy\r\nContent-Type: application/json\r\n"
        "Content-Length: -1\r\n\r\n{}");
    EXPECT_THAT(negative, StartsWith("HTTP/1.1 400 "));
    EXPECT_THAT(negative, Not(HasSubstr("\"status\"")));
    EXPECT_EQ(service.Stop(), 0);
    service.WaitForLog("\nstopped\n");
    EXPECT_THAT(service.Log(), Not(HasSubstr("request ")));
}

TEST_F(ApxProtocol, TlsBeforeVersion12IsRefused) {
    Configure(certificate);
    Service service;
    EXPECT_FALSE(TlsClient(kNear, TLS1_VERSION).IsConnected());
    EXPECT_FALSE(TlsClient(kNear, TLS1_1_VERSION).IsConnected());
    EXPECT_TRUE(TlsClient(kNear, TLS1_2_VERSION).IsConnected());
    EXPECT_TRUE(TlsClient(kNear, TLS1_3_VERSION).IsConnected());
}

TEST_F(ApxProtocol, ListensOnIPv6) {
    Configure(certificate, "listen = [::1]:8443\nallow = ::1\n");
    Service service;
    EXPECT_THAT(AnswerTo(kAskDomain, "::1"), StartsWith("HTTP/1.1 200 OK\r\n"));
    service.WaitForLog("request client=::1 method=GET path=/v1/domain http=200 ");
    EXPECT_THROW(TlsClient client(kNear), std::runtime_error);
}

TEST_F(ApxProtocol, ListensOnBothKindsOfAddress) {
    Configure(certificate, "listen = [::]:8443\nallow = ::1\nallow = 127.0.0.1\n");
    Service service;
    EXPECT_THAT(AnswerTo(kAskDomain, "::1"), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(AnswerTo(kAskDomain), StartsWith("HTTP/1.1 200 OK\r\n"));
    service.WaitForLog("request client=::1 ");
    service.WaitForLog("request client=127.0.0.1 ");
}

TEST_F(ApxProtocol, ClientThatTricklesIsCutOff) {
    Configure(certificate, "request-seconds = 3\n");
    Service service;
    TlsClient client(kNear);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(client.Send("GET /v1/domain HTTP/1.1\r\nX: "));
    while (!client.WaitForAnswer(std::chrono::milliseconds(20)) && client.Send("x")) {
        ASSERT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    }
    EXPECT_EQ(client.Answer(), "");
    service.WaitForLog("cut client=127.0.0.1 reason=\"too slow\"");
}

// An answer is small enough for the kernel to keep: the service is done with it whether or not it is ever taken.
TEST_F(ApxProtocol, AnswerThatIsNotTakenHoldsNobodyUp) {
    Configure(certificate, "connections-per-client = 1\n");
    Service service;
    TlsClient client(kNear);
    EXPECT_TRUE(client.Send(kAskDomain));
    service.WaitForLog(" http=200 ");
    EXPECT_EQ(service.Stop(), 0);
    service.WaitForLog("\nstopped\n");
    EXPECT_THAT(service.Log(), Not(HasSubstr("cut")));
    EXPECT_THAT(client.Answer(), StartsWith("HTTP/1.1 200 OK\r\n")) << "it is still there";
}

}  // namespace
}  // namespace nimbrel::testing
