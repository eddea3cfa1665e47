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

TEST(RecordTextTest, LineEndsCannotBeRecorded) {
    Record record;
    record.changes = {{"/etc/a\nb", {}, {}}};
    EXPECT_THROW(RecordText(record), LoginsError);
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
