#include "tools/nimauthctl/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace nimbrel::nimauthctl {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

json Parsed(const Report& report) { return json::parse(report.AsJson()); }

TEST(ReportTest, ValuesAreLinesAndMembers) {
    Report report;
    report.Text("active store", "None");
    report.Number("key-version", -3);
    report.Flag("joined", true);
    report.None("domain");
    report.Coded("trust state", 1, "healthy");
    EXPECT_EQ("active store: None\nkey-version: -3\njoined: yes\ndomain: none\ntrust state: 1 (healthy)\n",
              report.AsText());
    EXPECT_EQ(json::parse(R"({"schema": 1, "activeStore": "None", "keyVersion": -3, "joined": true, "domain": null,
                              "trustState": 1, "trustStateText": "healthy"})"),
              Parsed(report));
}

TEST(ReportTest, MembersKeepTheOrderOfTheLines) {
    Report report;
    report.Text("zebra", "1");
    report.Text("apple", "2");
    EXPECT_LT(report.AsJson().find("zebra"), report.AsJson().find("apple"));
    EXPECT_LT(report.AsJson().find("schema"), report.AsJson().find("zebra"));
}

TEST(ReportTest, RowsAreLinesAndObjects) {
    Report report;
    report.AddRow("user", "users", "alice").Flag("locked", false).Text("ou", "Hosts/Lab").None("sid");
    report.AddRow("user", "users", "bob").Text("ou", "");
    EXPECT_EQ("user: alice locked=no ou=Hosts/Lab sid=none\nuser: bob ou=\"\"\n", report.AsText());
    EXPECT_EQ(json::parse(R"({"schema": 1, "users": [{"user": "alice", "locked": false, "ou": "Hosts/Lab", "sid": null},
                                                     {"user": "bob", "ou": ""}]})"),
              Parsed(report));
}

TEST(ReportTest, DetailsThatAreNotOneWordAreQuoted) {
    Report report;
    report.AddRow("unit", "units", "a b").Text("dn", "OU=a,DC=test").Text("say", "\"hi\" there");
    EXPECT_EQ("unit: a b dn=\"OU=a,DC=test\" say=\"\\\"hi\\\" there\"\n", report.AsText());
}

TEST(ReportTest, EmptyListIsToldAsSuch) {
    Report report;
    report.List("user", "users");
    EXPECT_EQ("users: none\n", report.AsText());
    EXPECT_EQ(json::parse(R"({"schema": 1, "users": []})"), Parsed(report));
}

TEST(ReportTest, StaleAnswersAreMarked) {
    Report report;
    report.Text("domain", "corp.test");
    report.None("machine account");
    report.List("user", "users");
    report.Text("fresh", "x");
    EXPECT_FALSE(report.HasStale());
    for (const char* const label : {"domain", "machine account", "users"}) report.MarkStale(label);
    EXPECT_TRUE(report.HasStale());
    EXPECT_EQ("domain: corp.test [stale]\nmachine account: unknown [stale]\nusers: unknown [stale]\nfresh: x\n",
              report.AsText());
    EXPECT_EQ(json::parse(R"({"schema": 1, "domain": "corp.test", "machineAccount": null, "users": null, "fresh": "x",
                              "stale": ["domain", "machineAccount", "users"]})"),
              Parsed(report));
}

TEST(ReportTest, StaleRowMakesTheReportStale) {
    Report report;
    report.AddRow("domain", "domains", "a").Number("relationship", 6).Stale();
    EXPECT_TRUE(report.HasStale());
    EXPECT_EQ("domain: a relationship=6 [stale]\n", report.AsText());
    EXPECT_EQ(true, Parsed(report)["domains"][0]["stale"]);
}

TEST(ReportTest, OneFailureOfSeveralAnswersIsToldOnce) {
    const Failure failure{.exception = "IOError", .message = "no", .exitCode = ExitCode::Failure};
    Report report;
    report.Unavailable("a", failure);
    report.Unavailable("b", failure);
    EXPECT_EQ("a: unavailable\nb: unavailable\n", report.AsText());
    EXPECT_THAT(report.Failures(), ElementsAre(failure));
    EXPECT_EQ(1u, Parsed(report)["errors"].size());
    EXPECT_TRUE(Parsed(report)["a"].is_null());
}

TEST(ReportTest, NotesComeLast) {
    Report report;
    report.Note("look");
    report.Text("a", "b");
    EXPECT_EQ("a: b\nnote: look\n", report.AsText());
    EXPECT_EQ(json::array({"look"}), Parsed(report)["notes"]);
}

TEST(ReportTest, ControlCharactersCannotPassForLinesOrCommands) {
    EXPECT_EQ("a\\x0ab\\x1b[31m\\x7f\\x09", Printable("a\nb\x1b[31m\x7f\t"));
    EXPECT_EQ("\xc2\\x9b", Printable("\xc2\x9b"));
    EXPECT_EQ("Gr\xc3\xbc\xc3\x9f", Printable("Gr\xc3\xbc\xc3\x9f"));
    EXPECT_EQ("", Printable(""));
    Report report;
    report.Text("domain", "x\nerror: y");
    EXPECT_EQ("domain: x\\x0aerror: y\n", report.AsText());
}

TEST(ReportTest, BytesThatAreNotUtf8AreReplacedInJson) {
    Report report;
    report.Text("domain",
                "a\xff"
                "b");
    report.AddRow("user", "users", "\xc3").Text("x", "\xed\xa0\x80");
    EXPECT_EQ(
        "a\xef\xbf\xbd"
        "b",
        Parsed(report)["domain"]);
}

TEST(ReportTest, FailureIsLines) {
    Failure failure{.exception = "IOError", .message = "no\nway"};
    EXPECT_EQ("error: no\\x0away\n", FailureAsText(failure));
    failure.where = "/etc/x";
    failure.cause = "c";
    failure.remedy = "r";
    EXPECT_EQ("error: no\\x0away\nwhere: /etc/x\ncause: c\nremedy: r\n", FailureAsText(failure));
}

TEST(ReportTest, FailureIsOneObject) {
    const Failure failure{.exception = "LogonFailureException", .code = 1326, .message = "m\xff", .cause = "c"};
    EXPECT_EQ(json::parse(R"({"schema": 1, "error": {"exception": "LogonFailureException", "code": 1326,
                              "message": "m\ufffd", "where": null, "cause": "c", "remedy": null, "log": null}})"),
              json::parse(FailureAsJson(failure)));
}

TEST(ReportTest, JsonNamesAreCamelCase) {
    EXPECT_EQ("trustedDomains", JsonName("trusted domains"));
    EXPECT_EQ("smartCardServices", JsonName("smart-card services"));
    EXPECT_EQ("domainNetBIOSName", JsonName("domain NetBIOS name"));
    EXPECT_EQ("", JsonName(""));
}

Report Findings() {
    Report report;
    report.AddRow("check", "checks", "user").Text("result", "pass").Text("found", "root");
    report.AddRow("check", "checks", "default name")
        .Text("result", "fail")
        .Text("found", "'linux' is a default name, which a join refuses")
        .Text("remedy", "give the host a name of its own: hostnamectl");
    return report;
}

TEST(ReportTest, TableThatIsTooWideHasItsTextsWrapped) {
    EXPECT_EQ(
        "checks:\n"
        "  CHECK         RESULT  FOUND\n"
        "  user          pass    root\n"
        "  default name  fail    'linux' is a default name, which a join\n"
        "                        refuses\n"
        "                        remedy: give the host a name of its own:\n"
        "                        hostnamectl\n",
        Findings().AsTable(64, false));
    EXPECT_THAT(Findings().AsTable(64, true), HasSubstr("\x1b[31mfail\x1b[0m    'linux' is"));
}

TEST(ReportTest, TerminalWithoutRoomForThatGetsARowsDetailsBelowIt) {
    EXPECT_THAT(Findings().AsTable(50, false),
                HasSubstr("  default name\n    result: fail,\n    found: 'linux' is a default name, which a join\n"
                          "    refuses,\n    remedy: give the host a name of its own:\n    hostnamectl\n"));
}

TEST(ReportTest, DetailsOfARowShareLines) {
    Report report;
    report.AddRow("user", "users", "alice").Text("domain", std::string(30, 'd')).Flag("locked", false).Text("ou", "");
    report.AddRow("user", "users", "bob").Text("domain", "corp.test").Flag("locked", true).Text("ou", "Hosts");
    EXPECT_EQ("users:\n  alice\n    domain: " + std::string(30, 'd') +
                  ",\n    locked: no\n  bob\n    domain: corp.test, locked: yes,\n    ou: Hosts\n",
              report.AsTable(44, false));
}

TEST(ReportTest, LongWordsAreNotBroken) {
    Report report;
    report.AddRow("check", "checks", "x").Text("found", std::string(70, 'a') + " b");
    EXPECT_EQ("checks:\n  CHECK  FOUND\n  x      " + std::string(70, 'a') + "\n         b\n",
              report.AsTable(40, false));
}

TEST(ReportTest, NotesAreWrappedInATable) {
    Report report;
    report.Note("one two three four");
    EXPECT_EQ("note: one two\n      three\n      four\n", report.AsTable(14, false));
    EXPECT_EQ("note: one two three four\n", report.AsText());
}

TEST(ReportTest, VerbatimTextKeepsItsLinesAndShowsControlCharacters) {
    Report report;
    report.Text("preview", "7");
    report.Verbatim("diff", "--- a\n+++ b\n-\told\n+new\x1b\n same\n");
    EXPECT_EQ("preview: 7\n--- a\n+++ b\n-\told\n+new\\x1b\n same\n", report.AsText());
    EXPECT_EQ("preview:  7\n\n--- a\n+++ b\n\x1b[31m-\told\x1b[0m\n\x1b[32m+new\\x1b\x1b[0m\n same\n",
              report.AsTable(80, true));
    EXPECT_EQ("--- a\n+++ b\n-\told\n+new\x1b\n same\n", Parsed(report)["diff"]);
}

}  // namespace
}  // namespace nimbrel::nimauthctl
