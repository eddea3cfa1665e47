// What the plug-in makes of the service's answers and of its own settings.

#include "answers.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "settings.h"
#include "support/temporary_folder.h"

namespace nimbrel::apxhttps::test {
namespace {

TEST(ApxHttpsAnswers, CompleteAnswersAreTaken) {
    const auto domain = ParseDomainAnswer(R"({"netbiosName":"CORP","dnsName":"corp.test","sid":"S-1-5","x":[1]})");
    ASSERT_TRUE(domain);
    EXPECT_EQ(domain->netbiosName + domain->dnsName + domain->sid, "CORPcorp.testS-1-5");
    const auto account = ParseAccountAnswer("{\"accountName\":\"NODE01$\",\"oneTimeSecret\":\"a\\\"b\xc3\xb6\"}\n");
    ASSERT_TRUE(account);
    EXPECT_EQ(account->accountName, "NODE01$");
    EXPECT_EQ(account->oneTimeSecret, "a\"b\xc3\xb6");
}

TEST(ApxHttpsAnswers, AnythingElseIsRefused) {
    const std::string rows[] = {
        "",
        "null",
        "[]",
        "\"text\"",
        "<html></html>",
        R"({"accountName":"NODE01$"})",
        R"({"accountName":"NODE01$","oneTimeSecret":"")",
        R"({"accountName":"NODE01$","oneTimeSecret":""})",
        R"({"accountName":"NODE01$","oneTimeSecret":null})",
        R"({"accountName":"NODE01$","oneTimeSecret":7})",
        R"({"accountName":"NODE01$","oneTimeSecret":["x"]})",
        R"({"accountName":"NODE01$","oneTimeSecret":"a\u0000b"})",
        R"({"accountName":"NODE01\n","oneTimeSecret":"a"})",
        R"({"accountName":"NODE01$","oneTimeSecret":"a"}x)",
        R"({"accountName":"NODE01$","oneTimeSecret":"a",})",
        "{\"accountName\":\"NODE01$\",\"oneTimeSecret\":\"\xff\"}",
        R"({"accountName":"NODE01$","oneTimeSecret":")" + std::string(5000, 'a') + R"("})",
        std::string(60000, '['),
    };
    for (const std::string& row : rows) {
        EXPECT_FALSE(ParseAccountAnswer(row)) << row.substr(0, 80);
        EXPECT_FALSE(ParseDomainAnswer(row)) << row.substr(0, 80);
    }
}

TEST(ApxHttpsAnswers, EveryTextOfAnAnswerMustBeThere) {
    EXPECT_FALSE(ParseDomainAnswer(R"({"netbiosName":"CORP","dnsName":"corp.test"})"));
    EXPECT_FALSE(ParseDomainAnswer(R"({"netbiosName":"CORP","sid":"S-1-5"})"));
    EXPECT_FALSE(ParseDomainAnswer(R"({"dnsName":"corp.test","sid":"S-1-5"})"));
    EXPECT_FALSE(ParseAccountAnswer(R"({"oneTimeSecret":"a"})"));
    EXPECT_FALSE(ParseAccountAnswer(R"({"accountName":"a"})"));
}

TEST(ApxHttpsAnswers, TextsHave4096CharactersAtMostAndNoControlCharacters) {
    const auto isTaken = [](const std::string& name) {
        return ParseAccountAnswer(R"({"oneTimeSecret":"a","accountName":")" + name + R"("})").has_value();
    };
    EXPECT_TRUE(isTaken(std::string(4096, 'a')));
    EXPECT_FALSE(isTaken(std::string(4097, 'a')));
    EXPECT_TRUE(isTaken("a b~"));
    EXPECT_TRUE(isTaken("\xc2\x80"));
    EXPECT_FALSE(isTaken("\x7f"));
    EXPECT_FALSE(isTaken(R"(\u001f)"));
    EXPECT_TRUE(isTaken(R"(\u0020)"));
}

TEST(ApxHttpsAnswers, MessageOfARefusalIsOptional) {
    EXPECT_EQ(ParseRefusal(R"({"status":5,"message":"taken"})")->message, "taken");
    EXPECT_EQ(ParseRefusal(R"({"status":5})")->message, "");
    EXPECT_FALSE(ParseRefusal(R"({"message":"taken"})"));
}

TEST(ApxHttpsAnswers, RefusalsCarryTheirNumber) {
    const struct {
        const char* body;
        std::uint32_t status;  // 0: no refusal
    } rows[] = {
        {R"({"status":1316,"message":"taken"})", 1316},
        {R"({"status":2148074277})", 0x80090325},
        {R"({"status":4294967295})", 4294967295},
        {R"({"status":4294967296})", 0},
        {R"({"status":1})", 1},
        {R"({"status":0})", 0},
        {R"({"status":-5})", 0},
        {R"({"status":5.0})", 0},
        {R"({"status":"5"})", 0},
        {"{}", 0},
        {"5", 0},
    };
    for (const auto& row : rows) {
        const auto refusal = ParseRefusal(row.body);
        EXPECT_EQ(refusal ? refusal->status : 0, row.status) << row.body;
        EXPECT_EQ(refusal.has_value(), row.status != 0) << row.body;
    }
    EXPECT_EQ(ParseRefusal(R"({"status":5,"message":"a\nb"})")->message, "");
}

TEST(ApxHttpsAnswers, RequestIsJson) {
    EXPECT_EQ(AccountRequest("node01.corp.test", ""), R"({"accountName":"node01.corp.test"})");
    EXPECT_EQ(AccountRequest("n\"", "Hosts"), R"({"accountName":"n\"","organizationalUnit":"Hosts"})");
    EXPECT_EQ(AccountRequest("\xff", ""), "{\"accountName\":\"\xef\xbf\xbd\"}");
    EXPECT_EQ(AccountRequest("\xc3\xa4", ""), "{\"accountName\":\"\xc3\xa4\"}");
}

std::string ErrorOf(const std::string& text) {
    try {
        ParseSettings(text, "f");
        return "(none)";
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(ApxHttpsSettings, MissingFileGivesTheDefaults) {
    const TemporaryFolder folder;
    const Settings settings = ReadSettings(folder / "missing");
    EXPECT_EQ(settings.port, 8443);
    EXPECT_EQ(settings.connectSeconds, 10);
    EXPECT_EQ(settings.totalSeconds, 60);
    EXPECT_EQ(settings.clientCertificate, "");
}

TEST(ApxHttpsSettings, EveryKeyIsTaken) {
    const Settings settings = ParseSettings(
        "# comment\n\nport = \"9443\"\r\nconnect-seconds=1\ntotal-seconds = 2\nclient-certificate = \"/a b\"\n"
        "client-key = /c",
        "f");
    EXPECT_EQ(settings.port, 9443);
    EXPECT_EQ(settings.connectSeconds, 1);
    EXPECT_EQ(settings.totalSeconds, 2);
    EXPECT_EQ(settings.clientCertificate, "/a b");
    EXPECT_EQ(settings.clientKey, "/c");
}

TEST(ApxHttpsSettings, WhatIsWrongIsToldWithItsLine) {
    EXPECT_EQ(ErrorOf("\nport"), "f:2: the line is not KEY = \"VALUE\"");
    EXPECT_EQ(ErrorOf("Port = 1"), "f:1: unknown key 'Port'");
    EXPECT_EQ(ErrorOf("port = 0"), "f:1: the value must be a number from 1 to 65535");
    EXPECT_EQ(ErrorOf("port = 65536"), "f:1: the value must be a number from 1 to 65535");
    EXPECT_EQ(ErrorOf("total-seconds = \"1 \""), "f:1: the value must be a number from 1 to 3600");
    EXPECT_EQ(ErrorOf("total-seconds = 0"), "f:1: the value must be a number from 1 to 3600");
    EXPECT_EQ(ErrorOf("\n\ntotal-seconds = 3601"), "f:3: the value must be a number from 1 to 3600");
    EXPECT_EQ(ErrorOf("connect-seconds = 3601"), "f:1: the value must be a number from 1 to 3600");
    EXPECT_EQ(ErrorOf("connect-seconds = x"), "f:1: the value must be a number from 1 to 3600");
}

TEST(ApxHttpsSettings, BoundsAreTaken) {
    EXPECT_EQ(ParseSettings("port = 1", "f").port, 1);
    EXPECT_EQ(ParseSettings("port = 65535", "f").port, 65535);
    EXPECT_EQ(ParseSettings("connect-seconds = 3600", "f").connectSeconds, 3600);
    EXPECT_EQ(ParseSettings("total-seconds = 3600", "f").totalSeconds, 3600);
}

TEST(ApxHttpsSettings, QuotesCountInPairsAndBlanksAroundDoNot) {
    EXPECT_EQ(ParseSettings("client-key = \"", "f").clientKey, "\"");
    EXPECT_EQ(ParseSettings("client-key = \"\"", "f").clientKey, "");
    EXPECT_EQ(ParseSettings("client-key = \"a", "f").clientKey, "\"a");
    EXPECT_EQ(ParseSettings("client-key = a\"", "f").clientKey, "a\"");
    EXPECT_EQ(ParseSettings("\r\t client-key\t =\t a=b \t\r\n \t\n\t#", "f").clientKey, "a=b");
}

TEST(ApxHttpsSettings, FileIsReadAndWhyItCannotBeIsTold) {
    const TemporaryFolder folder;
    WriteFile(folder / "settings", "port = 7\n");
    EXPECT_EQ(ReadSettings(folder / "settings").port, 7);
    const auto errorOf = [&](const std::string& name) -> std::string {
        try {
            ReadSettings(folder / name);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "(none)";
    };
    EXPECT_EQ(errorOf(""), folder / "" + ":0: Is a directory");
    EXPECT_EQ(errorOf("settings/below"), folder / "settings/below" + ":0: Not a directory");
}

TEST(ApxHttpsAnswers, CorpusOfTheFuzzerIsRead) {
    std::size_t read = 0;
    for (const auto& entry : std::filesystem::directory_iterator(NIMAUTH_APX_CORPUS "/apx_answer")) {
        const std::string text = ReadFile(entry.path());
        const auto account = ParseAccountAnswer(text);
        EXPECT_TRUE(!account || !account->accountName.empty()) << entry.path();
        const auto refusal = ParseRefusal(text);
        EXPECT_TRUE(!refusal || refusal->status != 0) << entry.path();
        ++read;
    }
    EXPECT_GE(read, 5U);
}

}  // namespace
}  // namespace nimbrel::apxhttps::test
