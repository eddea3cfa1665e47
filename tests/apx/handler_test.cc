// The protocol without a network: which request gets which answer.

#include "services/apxd/handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "apx/memory_back_end.h"
#include "services/apxd/service_log.h"
#include "support/temporary_folder.h"

namespace nimbrel::apxd::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

Config MakeConfig() {
    Config config;
    config.domain = "corp.test";
    config.allowed = {*Network::Parse("192.0.2.0/24")};
    config.requestsPerMinute = 60;
    config.burst = 3;
    config.defaultUnit = "Hosts";
    return config;
}

class ApxdHandler : public ::testing::Test {
 protected:
    static Request MakeRequest(const std::string& method, const std::string& path, const std::string& body = "") {
        Request request;
        request.method = method;
        request.path = path;
        request.contentType = body.empty() ? "" : "application/json; charset=utf-8";
        request.contentLength = body.size();
        request.body = body;
        request.client = Address::Parse("192.0.2.10");
        return request;
    }
    static Request Post(const std::string& body) { return MakeRequest("POST", "/v1/computers", body); }

    Answer Send(const Request& request, Handler::Time time = {}) {
        if (auto refused = handler.Admit(request, time)) return std::move(*refused);
        return handler.Handle(request);
    }
    // "400 87" and the like.
    std::string Outcome(const Request& request) {
        now += std::chrono::hours(1);
        const Answer answer = Send(request, now);
        EXPECT_EQ(json::parse(answer.body.Text()).value("status", 0U), answer.status);
        return std::to_string(answer.httpStatus) + ' ' + std::to_string(answer.status);
    }

    const TemporaryFolder folder;
    Config config = MakeConfig();
    MemoryBackEnd backEnd;
    Ledger ledger{folder / "ledger"};
    Handler handler{config, backEnd, ledger};
    Handler::Time now;
};

TEST_F(ApxdHandler, DomainIsTold) {
    const Answer answer = Send(MakeRequest("GET", "/v1/domain"));
    EXPECT_EQ(answer.httpStatus, 200U);
    EXPECT_EQ(json::parse(answer.body.Text()),
              json({{"netbiosName", "CORP"}, {"dnsName", "corp.test"}, {"sid", "S-1-5-21-1-2-3"}}));
}

TEST_F(ApxdHandler, AccountIsHandedOut) {
    const Answer answer = Send(Post(R"({"accountName":"node01.corp.test","organizationalUnit":"Lab","new":1})"));
    EXPECT_EQ(answer.httpStatus, 201U);
    const json body = json::parse(answer.body.Text());
    EXPECT_EQ(body, json({{"accountName", "NODE01$"}, {"oneTimeSecret", backEnd.accounts.at("NODE01").secret}}));
    EXPECT_EQ(backEnd.accounts.at("NODE01").unit, "Lab");
    EXPECT_EQ(answer.account, "NODE01");
    EXPECT_EQ(answer.organizationalUnit, "Lab");
    EXPECT_STREQ(answer.way, "created");
    EXPECT_EQ(Send(Post(R"({"accountName":"node01","organizationalUnit":null})")).httpStatus, 200U);
}

TEST_F(ApxdHandler, WithoutAUnitTheConfiguredOneIsUsed) {
    Send(Post(R"({"accountName":"node01"})"));
    EXPECT_EQ(backEnd.accounts.at("NODE01").unit, "Hosts");
}

TEST_F(ApxdHandler, Refusals) {
    backEnd.accounts["TAKEN"] = {};
    Request wrongType = Post(R"({"accountName":"a"})");
    wrongType.contentType = "text/plain";
    Request tooLong = Post("{}");
    tooLong.contentLength = kLargestBody + 1;
    const struct {
        Request request;
        const char* outcome;
    } rows[] = {
        {MakeRequest("GET", "/"), "404 50"},
        {MakeRequest("GET", "/v1/domain/"), "404 50"},
        {MakeRequest("POST", "/v1/domain", "{}"), "405 50"},
        {MakeRequest("GET", "/v1/computers"), "405 50"},
        {MakeRequest("HEAD", "/v1/domain"), "405 50"},
        {wrongType, "415 87"},
        {tooLong, "413 87"},
        {Post("{"), "400 87"},
        {Post("[]"), "400 87"},
        {Post("null"), "400 87"},
        {Post("{}"), "400 87"},
        {Post(R"({"accountName":7})"), "400 87"},
        {Post(R"({"accountName":"a\u0000b"})"), "400 87"},
        {Post(R"({"accountName":"a","organizationalUnit":["x"]})"), "400 87"},
        {Post(R"({"accountName":"a","organizationalUnit":"x\ny"})"), "400 87"},
        {Post(R"({"accountName":")" + std::string(256, 'a') + R"("})"), "400 87"},
        {Post(std::string(4000, '[')), "400 87"},
        {Post("{\"accountName\":\"\xff\"}"), "400 87"},
        {Post(R"({"accountName":"node01.other.test"})"), "400 1210"},
        {Post(R"({"accountName":"x;y"})"), "400 1210"},
        {Post(R"({"accountName":"taken"})"), "409 1316"},
        {Post(R"({"accountName":"node01","organizationalUnit":"Nowhere"})"), "404 2"},
    };
    for (const auto& row : rows) EXPECT_EQ(Outcome(row.request), row.outcome) << row.request.body;
}

TEST_F(ApxdHandler, EveryRefusalTellsItsReason) {
    config.allowedUnits = {"Lab"};
    Request large = Post("{}");
    large.contentLength = kLargestBody + 1;
    Request larger = Post(std::string(kLargestBody + 1, ' '));
    larger.contentLength = 2;
    Request untyped = Post("{}");
    untyped.contentType = "";
    const struct {
        Request request;
        const char* message;
    } rows[] = {
        {MakeRequest("GET", "/"), "there is no such path"},
        {MakeRequest("POST", "/v1/domain"), "only GET is allowed"},
        {MakeRequest("GET", "/v1/computers"), "only POST is allowed"},
        {large, "the body is larger than 4096 bytes"},
        {larger, "the body is larger than 4096 bytes"},
        {untyped, "the body must be application/json"},
        {Post("[]"), "the body is not a JSON object"},
        {Post("{}"), "'accountName' is missing"},
        {Post(R"({"accountName":7})"), "'accountName' is not a text"},
        {Post(R"({"accountName":"\u007f"})"), "'accountName' is too long or holds control characters"},
        {Post(R"({"accountName":"\u001f"})"), "'accountName' is too long or holds control characters"},
        {Post(R"({"accountName":"a","organizationalUnit":7})"), "'organizationalUnit' is not a text"},
        {Post(R"({"accountName":"a","organizationalUnit":"X"})"), "hosts may not choose this organizational unit"},
    };
    for (const auto& row : rows) {
        now += std::chrono::hours(1);
        const Answer answer = Send(row.request, now);
        EXPECT_EQ(answer.message, row.message);
        EXPECT_EQ(json::parse(answer.body.Text()).value("message", ""), row.message);
        EXPECT_EQ(answer.body.Text().back(), '\n');
    }
    EXPECT_EQ(Handler::LengthRequired().message, "the body's length is not given");
    EXPECT_EQ(Handler::LengthRequired().httpStatus, 411U);
    EXPECT_EQ(Handler::LengthRequired().status, 87U);
    EXPECT_EQ(Handler::TurnedAway("too many").message, "too many");
    EXPECT_EQ(Handler::TurnedAway("too many").httpStatus, 429U);
    EXPECT_EQ(Handler::TurnedAway("too many").status, 1237U);
}

TEST_F(ApxdHandler, LongestNamesAndBodiesAreTaken) {
    EXPECT_EQ(Outcome(Post(R"({"accountName":")" + std::string(255, 'a') + R"("})")), "400 1210");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"a","organizationalUnit":")" + std::string(1024, 'u') + R"("})")),
              "201 0");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"a","organizationalUnit":")" + std::string(1025, 'u') + R"("})")),
              "400 87");
    Request longer = Post(std::string(kLargestBody + 1, ' '));
    longer.contentLength = 2;
    EXPECT_EQ(Outcome(longer), "413 87");
    const std::string body = R"({"accountName":"b"})";
    EXPECT_EQ(Outcome(Post(body + std::string(kLargestBody - body.size(), ' '))), "201 0");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"x ~","organizationalUnit":" ~"})")), "400 1210");
}

TEST_F(ApxdHandler, TypeOfTheBodyIsLookedAtWithoutItsParameters) {
    for (const char* type :
         {"application/json", "Application/JSON;charset=x", "application/json\t", "application/json "}) {
        Request request = Post(R"({"accountName":"a"})");
        request.contentType = type;
        EXPECT_EQ(Outcome(request).substr(0, 2), "20") << type;
    }
}

TEST_F(ApxdHandler, RefusalsOfTheDirectoryHaveTheirHttpStatus) {
    for (const auto& [status, outcome] :
         {std::pair{87U, "400 87"}, std::pair{1210U, "400 1210"}, std::pair{267U, "400 267"}, std::pair{5U, "403 5"},
          std::pair{1331U, "403 1331"}, std::pair{2U, "404 2"}, std::pair{1317U, "404 1317"},
          std::pair{1316U, "409 1316"}, std::pair{1355U, "503 1355"}, std::pair{1359U, "500 1359"},
          std::pair{8U, "500 8"}, std::pair{112U, "500 112"}, std::pair{1325U, "500 1325"},
          std::pair{1326U, "500 1326"}, std::pair{1398U, "500 1398"}, std::pair{1610U, "500 1610"},
          std::pair{8557U, "500 8557"}}) {
        backEnd.beforeCreate = [status = status] { throw Refusal(status, "no"); };
        EXPECT_EQ(Outcome(Post(R"({"accountName":"a"})")), outcome);
    }
}

TEST_F(ApxdHandler, RefusalIsOneLineOfUtf8) {
    backEnd.beforeCreate = [] { throw Refusal(87, "\xc3\xa4 \"\xff"); };
    const Answer answer = Send(Post(R"({"accountName":"a"})"));
    EXPECT_EQ(answer.body.Text(), "{\"message\":\"\xc3\xa4 \\\"\xef\xbf\xbd\",\"status\":87}\n");
    EXPECT_EQ(answer.message, "\xc3\xa4 \"\xff");
}

TEST_F(ApxdHandler, AnswersAreOneLineEach) {
    EXPECT_EQ(Send(MakeRequest("GET", "/v1/domain")).body.Text(),
              "{\"netbiosName\":\"CORP\",\"dnsName\":\"corp.test\",\"sid\":\"S-1-5-21-1-2-3\"}\n");
    backEnd.afterCreate = [&] { backEnd.accounts.at("A").secret = std::string("\x00\x0f\x10\x1f\x20", 5); };
    EXPECT_EQ(Send(Post(R"({"accountName":"a"})")).body.Text(),
              "{\"accountName\":\"A$\",\"oneTimeSecret\":\"\\u0000\\u000f\\u0010\\u001f \"}\n");
}

TEST_F(ApxdHandler, SecretsAreWrittenAsJsonWhateverTheyHold) {
    std::string secret = "\"\\\x7f\xc3\xa4 ~";
    for (char c = 1; c < ' '; ++c) secret += c;
    backEnd.afterCreate = [&] { backEnd.accounts.at("NODE01").secret = secret; };
    const Answer answer = Send(Post(R"({"accountName":"node01"})"));
    EXPECT_EQ(json::parse(answer.body.Text()).at("oneTimeSecret"), secret);
    EXPECT_STREQ(Send(Post(R"({"accountName":"node01"})")).way, "renewed");
}

TEST_F(ApxdHandler, OnlyAllowedNetworksMayAsk) {
    Request request = MakeRequest("GET", "/v1/domain");
    request.client = Address::Parse("198.51.100.1");
    EXPECT_EQ(Outcome(request), "403 5");
    request.client.reset();
    EXPECT_EQ(Outcome(request), "403 5");
}

TEST_F(ApxdHandler, OnlyHoldersOfACertificateMayAskWhereOneIsWanted) {
    config.clientCaFile = "/etc/ca.pem";
    Request request = MakeRequest("GET", "/v1/domain");
    EXPECT_EQ(Outcome(request), "403 5");
    request.certificate = "00ff";
    EXPECT_EQ(Outcome(request), "200 0");
    request.certificateFault = "the client's certificate is revoked";
    EXPECT_EQ(Outcome(request), "403 5");
}

TEST_F(ApxdHandler, TheSameAddressWithAnotherCertificateIsAnotherClient) {
    config.clientCaFile = "/etc/ca.pem";
    Request request = Post(R"({"accountName":"node01"})");
    request.certificateNames = {"node01"};
    request.certificate = "01";
    EXPECT_EQ(Outcome(request), "201 0");
    request.certificate = "02";
    EXPECT_EQ(Outcome(request), "409 1316");
    request.certificate = "01";
    EXPECT_EQ(Outcome(request), "200 0");
    EXPECT_TRUE(ledger.Find("NODE01", "192.0.2.10+01"));
}

TEST_F(ApxdHandler, CertificateIsGoodForTheAccountsThatItNames) {
    config.clientCaFile = "/etc/ca.pem";
    const auto outcome = [this](const std::string& account, const std::vector<std::string>& names) {
        backEnd.accounts.clear();
        Request request = Post(R"({"accountName":")" + account + R"("})");
        request.certificate = "01";
        request.certificateNames = names;
        return Outcome(request);
    };
    EXPECT_EQ(outcome("node01.corp.test", {"other", "Node01.corp.test"}), "201 0");
    EXPECT_EQ(outcome("NODE01", {"node01"}), "201 0");
    EXPECT_EQ(outcome("node01", {"node01.CORP.test"}), "201 0");
    for (const char* const name : {"node02", "node0", "node011.corp.test", "", "*.corp.test", ".node01", "corp.node01",
                                   "node01.lab.example", "node01.corp.test.lab.example", "node01.test", "node01."}) {
        EXPECT_EQ(outcome("node01", {name}), "403 5") << name;
    }
    EXPECT_EQ(outcome("node01", {}), "403 5");
    EXPECT_EQ(outcome("no host", {"node01"}), "400 1210");
    config.anyClientName = true;
    EXPECT_EQ(outcome("node01", {"deployment"}), "201 0");
}

TEST_F(ApxdHandler, WhoMayNotAskIsToldWhy) {
    Request request = MakeRequest("GET", "/v1/domain");
    request.client = Address::Parse("198.51.100.1");
    EXPECT_EQ(Send(request).message, "this address may not ask");
    request.client = Address::Parse("192.0.2.10");
    config.clientCaFile = "/etc/ca.pem";
    EXPECT_EQ(Send(request).message, "a certificate of an allowed client is needed");
    while (Send(request).httpStatus == 403U) {
    }
    EXPECT_EQ(Send(request).message, "too many requests; try again later");
}

TEST_F(ApxdHandler, WhatWasAskedForIsInTheLogAlsoWhenItIsRefused) {
    const Answer answer = Send(Post(R"({"accountName":"x;y","organizationalUnit":"Lab"})"));
    EXPECT_EQ(answer.account, "x;y");
    EXPECT_EQ(answer.organizationalUnit, "Lab");
}

TEST_F(ApxdHandler, PreStagedAccountIsTakenOver) {
    config.preStaged = {"NODE07"};
    backEnd.accounts["NODE07"] = {};
    Handler other(config, backEnd, ledger);
    const Answer answer = other.Handle(Post(R"({"accountName":"node07"})"));
    EXPECT_EQ(answer.httpStatus, 200U);
    EXPECT_STREQ(answer.way, "taken-over");
}

TEST_F(ApxdHandler, ClientWithoutAnAddressIsUnknown) {
    Request request = Post(R"({"accountName":"node01"})");
    request.client.reset();
    EXPECT_EQ(handler.Handle(request).httpStatus, 201U);
    EXPECT_TRUE(ledger.Find("NODE01", "unknown"));
}

TEST_F(ApxdHandler, UnitsOutsideTheListAreRefused) {
    config.allowedUnits = {"Lab", "Lab/Sub"};
    EXPECT_EQ(Outcome(Post(R"({"accountName":"a","organizationalUnit":"lab/sub"})")), "201 0");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"b","organizationalUnit":"Domain Controllers"})")), "403 5");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"c"})")), "201 0");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"d","organizationalUnit":"Hosts"})")), "201 0");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"e","organizationalUnit":"hOSTS"})")), "201 0");
    EXPECT_EQ(Outcome(Post(R"({"accountName":"f","organizationalUnit":"Hosts/Other"})")), "403 5");
}

TEST_F(ApxdHandler, AClientThatAsksTooOftenMustWait) {
    const Request request = MakeRequest("GET", "/v1/domain");
    for (int count = 0; count < 3; ++count) EXPECT_EQ(Send(request).httpStatus, 200U);
    const Answer refused = Send(request);
    EXPECT_EQ(refused.httpStatus, 429U);
    EXPECT_EQ(refused.status, 1237U);
    Request other = request;
    other.client = Address::Parse("192.0.2.11");
    EXPECT_EQ(Send(other).httpStatus, 200U);
    EXPECT_EQ(Send(request, Handler::Time() + std::chrono::seconds(1)).httpStatus, 200U);
    EXPECT_EQ(Send(request, Handler::Time() + std::chrono::seconds(1)).httpStatus, 429U);
}

TEST_F(ApxdHandler, AFaultInsideIsNotToldToTheClient) {
    backEnd.beforeCreate = [] { throw std::runtime_error("/srv/private is full"); };
    const Answer answer = Send(Post(R"({"accountName":"node01"})"));
    EXPECT_EQ(answer.httpStatus, 500U);
    EXPECT_EQ(answer.status, kInternalError);
    EXPECT_EQ(json::parse(answer.body.Text()).value("message", ""), "the service failed; its log tells more");
    EXPECT_THAT(answer.body.Text(), ::testing::Not(HasSubstr("private")));
    EXPECT_THAT(answer.message, HasSubstr("private"));
}

TEST_F(ApxdHandler, FullDiskIsToldToTheClient) {
    for (const int error : {ENOSPC, EDQUOT, EIO}) {
        backEnd.beforeCreate = [=] { throw std::system_error(error, std::generic_category(), "/var/ledger"); };
        const Answer answer = Send(Post(R"({"accountName":"node01"})"));
        EXPECT_EQ(answer.httpStatus, 500U);
        EXPECT_EQ(answer.status, error == EIO ? kInternalError : kDiskFull);
        EXPECT_THAT(answer.body.Text(), HasSubstr(error == EIO ? "log tells more" : "the service's disk is full"));
        EXPECT_THAT(answer.message, HasSubstr("/var/ledger: "));
    }
}

// --- The log ---

TEST(ApxdLog, ValuesCannotForgeALine) {
    EXPECT_EQ(LogLine("request").Add("path", "/v1/domain").Add("http", 200).AddIfAny("way", "").Text(),
              "request path=/v1/domain http=200");
    EXPECT_EQ(LogLine("x").Add("a", "b c").Add("d", "").Text(), "x a=\"b c\" d=\"\"");
    EXPECT_EQ(LogLine("x").Add("a", "\nrequest \"\\\xff").Text(), "x a=\"\\x0arequest \\x22\\x5c\\xff\"");
    EXPECT_EQ(LogLine("x").Add("a", "b=c").Text(), "x a=\"b=c\"");
    EXPECT_EQ(LogLine("x").Add("a", std::string(300, 'y')).Text(), "x a=" + std::string(256, 'y') + "...");
}

// --- What the fuzzer has found worth keeping ---

TEST_F(ApxdHandler, CorpusOfTheFuzzerIsAnswered) {
    std::size_t read = 0;
    for (const auto& entry : std::filesystem::directory_iterator(NIMAUTH_APX_CORPUS "/apx_request")) {
        const std::string text = ReadFile(entry.path());
        const Answer answer = handler.Handle(Post(text));
        EXPECT_TRUE(json::parse(answer.body.Text()).is_object()) << entry.path();
        ++read;
    }
    EXPECT_GE(read, 5U);
}

}  // namespace
}  // namespace nimbrel::apxd::test
