#include "tools/loginfiles/record_text.h"

#include <gtest/gtest.h>

#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

TEST(RecordTextTest, WhatIsWrittenIsRead) {
    Record record;
    record.action = "enable";
    record.mechanism = "pam-auth-update";
    record.pamModule = "pam_x.so";
    record.nssService = "x y";
    record.services = {"sshd", "login"};
    record.started = 1'795'240'000;
    record.bootId = "boot";
    record.deadline = 123;
    record.undoes = 4;
    record.changes = {{"/etc/a b", {}, {}}, {"/etc/c", {}, {}}};
    const Record read = ParseRecord(RecordText(record));
    EXPECT_EQ(RecordText(record), RecordText(read));
    EXPECT_EQ(record.services, read.services);
    EXPECT_EQ(record.changes, read.changes);
    EXPECT_EQ(record.deadline, read.deadline);
    EXPECT_EQ(record.undoes, read.undoes);
}

constexpr char kText[] =
    "nimauth-logins 1\naction enable\nmechanism pam-auth-update\nmodule pam_x.so\nnss x y\nservice sshd\n"
    "service login\nstarted 1795240000\nboot boot\ndeadline 123\nundoes 4\npath /etc/a b\npath /etc/c\n";

TEST(RecordTextTest, EveryKeyHasItsLine) {
    const Record record = ParseRecord(kText);
    EXPECT_EQ("enable", record.action);
    EXPECT_EQ("pam-auth-update", record.mechanism);
    EXPECT_EQ("pam_x.so", record.pamModule);
    EXPECT_EQ("x y", record.nssService);
    EXPECT_EQ((std::vector<std::string>{"sshd", "login"}), record.services);
    EXPECT_EQ(1'795'240'000, record.started);
    EXPECT_EQ("boot", record.bootId);
    EXPECT_EQ(123, record.deadline);
    EXPECT_EQ(4, record.undoes);
    ASSERT_EQ(2U, record.changes.size());
    EXPECT_EQ("/etc/a b", record.changes[0].path);
    EXPECT_EQ("/etc/c", record.changes[1].path);
    EXPECT_EQ(kText, RecordText(record));
}

TEST(RecordTextTest, TextsThatAreEmptyHaveNoLine) {
    EXPECT_EQ("nimauth-logins 1\nstarted 0\ndeadline 0\nundoes 0\n", RecordText({}));
}

TEST(RecordTextTest, KeysOfOtherVersionsAreNotTaken) {
    EXPECT_EQ(RecordText({}), RecordText(ParseRecord("nimauth-logins 1\nnew value\nword\n\n pat /x\npath\n")));
}

// "Kind: text".
template <class Call>
std::string ErrorOf(const Call& call) {
    try {
        call();
        return "none";
    } catch (const LoginsError& error) {
        return (error.Reason() == LoginsError::Kind::Refused  ? "refused: "
                : error.Reason() == LoginsError::Kind::System ? "system: "
                                                              : "other: ") +
               std::string(error.what());
    }
}

TEST(RecordTextTest, WhatIsWrongIsTold) {
    const std::string damaged = "system: the journal holds a record that is damaged or of another version";
    EXPECT_EQ(damaged, ErrorOf([] { ParseRecord(""); }));
    EXPECT_EQ(damaged, ErrorOf([] { ParseRecord("nimauth-logins 1\npath etc\n"); }));
    Entry entry;
    EXPECT_EQ("system: the journal holds a state that is damaged", ErrorOf([&] { ParseState("", entry); }));
    Record record;
    record.changes = {{"/etc/a\nb", {}, {}}};
    EXPECT_EQ("refused: a path with a line end cannot be recorded", ErrorOf([&] { RecordText(record); }));
}

TEST(RecordTextTest, StatesAreWords) {
    const char* const names[] = {"applying", "applied", "confirmed", "restoring", "restored", "undone"};
    for (int value = 0; value < 6; ++value) {
        const auto progress = static_cast<Progress>(value);
        EXPECT_STREQ(names[value], Name(progress));
        EXPECT_EQ(std::string(names[value]) + '\n', StateText(progress, ""));
        EXPECT_EQ(std::string(names[value]) + "\nwhy\n", StateText(progress, "why"));
        for (const char* const rest : {"", "\n", "\n\n"}) {
            Entry entry;
            entry.reason = "old";
            ParseState(names[value] + std::string(rest), entry);
            EXPECT_EQ(progress, entry.progress);
            EXPECT_EQ("", entry.reason);
        }
    }
    Entry entry;
    ParseState("restored\nwhy\nnot\n\n", entry);
    EXPECT_EQ("why\nnot", entry.reason);
}

TEST(RecordTextTest, DamagedTextsAreRefused) {
    Entry entry;
    for (const char* const text : {"", "nimauth-logins 2\n", "action enable\n"}) {
        EXPECT_THROW(ParseRecord(text), LoginsError) << text;
    }
    for (const char* const line :
         {"deadline soon", "deadline 12x", "deadline 9223372036854775808", "undoes -", "started x"}) {
        EXPECT_THROW(ParseRecord(std::string("nimauth-logins 1\n") + line + '\n'), LoginsError) << line;
    }
    for (const char* const text : {"", "bogus\n", "applied too\n"}) EXPECT_THROW(ParseState(text, entry), LoginsError);
}

TEST(RecordTextTest, FilesWithoutAWholePathAreDamage) {
    for (const char* const path : {"etc/passwd", "../etc/passwd", " /etc/passwd"}) {
        EXPECT_THROW(ParseRecord(std::string("nimauth-logins 1\npath ") + path + '\n'), LoginsError) << path;
    }
}

TEST(RecordTextTest, KeysWithoutAValueSayNothing) {
    const Record record = ParseRecord("nimauth-logins 1\naction \nservice \npath \nservice sshd\n");
    EXPECT_EQ(record.services, std::vector<std::string>{"sshd"});
    EXPECT_TRUE(record.changes.empty());
}

TEST(RecordTextTest, EveryProgressSurvives) {
    for (int value = 0; value <= static_cast<int>(Progress::Undone); ++value) {
        Entry entry;
        ParseState(StateText(static_cast<Progress>(value), "why"), entry);
        EXPECT_EQ(static_cast<Progress>(value), entry.progress);
        EXPECT_EQ("why", entry.reason);
    }
}

}  // namespace
}  // namespace nimbrel::logins
