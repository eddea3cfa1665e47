#include "tools/loginfiles/journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/temporary_folder.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::logins {
namespace {

using ::testing::HasSubstr;

void Nothing(int) {}

class JournalTest : public ::testing::Test {
 protected:
    void SetUp() override {
        std::filesystem::create_directory(folder / "etc");
        WriteFile(a, "a old\n");
        WriteFile(b, "b old\n");
    }
    // Whatever happened, no staged file is left.
    void TearDown() override {
        for (const auto& item : std::filesystem::directory_iterator(folder / "etc")) {
            EXPECT_FALSE(item.path().filename().string().ends_with('~')) << item.path();
        }
    }

    // a and b get new contents, c is created.
    Record NewRecord(std::int64_t deadline = 0) const {
        Record record;
        record.action = "enable";
        record.deadline = deadline;
        record.bootId = Journal::BootId();
        for (const std::string& path : {a, b, c}) {
            const FileState now = ReadState(path);
            record.changes.push_back({path, now, now.With("new\n")});
        }
        return record;
    }
    static Record Reverse(Record record) {
        record.action = "undo";
        record.undoes = record.id;
        record.deadline = 0;
        for (Change& change : record.changes) std::swap(change.before, change.after);
        return record;
    }
    void ExpectOld() const {
        EXPECT_EQ("a old\n", ReadFile(a));
        EXPECT_EQ("b old\n", ReadFile(b));
        EXPECT_FALSE(std::filesystem::exists(c));
    }
    void ExpectNew() const {
        for (const std::string& path : {a, b, c}) EXPECT_EQ("new\n", ReadFile(path));
    }
    Progress ProgressOf(int id) const { return Journal(journalFolder).Find(id)->progress; }

    const TemporaryFolder folder;
    const std::string journalFolder = folder / "lib/logins";
    const std::string a = folder / "etc/a";
    const std::string b = folder / "etc/b";
    const std::string c = folder / "etc/c";
};

TEST_F(JournalTest, ChangesAllFilesAndRemembersBoth) {
    Journal journal(journalFolder);
    EXPECT_EQ(1, journal.Apply(NewRecord(), Nothing));
    ExpectNew();
    const Entry entry = *journal.Find(1);
    EXPECT_EQ(Progress::Confirmed, entry.progress);
    EXPECT_EQ("a old\n", ReadFile(journalFolder + "/1/before" + a));
    EXPECT_EQ("new\n", ReadFile(journalFolder + "/1/after" + c));
    EXPECT_FALSE(std::filesystem::exists(journalFolder + "/1/before" + c));
    EXPECT_EQ(3U, entry.record.changes.size());
}

TEST_F(JournalTest, WaitsForItsConfirmation) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(Journal::MillisecondsSinceBoot() + 60'000), Nothing);
    EXPECT_EQ(1, journal.Waiting()->record.id);
    EXPECT_TRUE(journal.Recover().empty());
    journal.Confirm(1);
    EXPECT_FALSE(journal.Waiting().has_value());
    EXPECT_TRUE(journal.Recover().empty());
    ExpectNew();
}

TEST_F(JournalTest, OverdueChangeIsTakenBack) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(1), Nothing);
    ASSERT_EQ(1U, journal.Recover().size());
    ExpectOld();
    EXPECT_EQ(Progress::Restored, ProgressOf(1));
    EXPECT_EQ("nobody confirmed it in time", journal.Find(1)->reason);
    EXPECT_TRUE(journal.Recover().empty());
}

TEST_F(JournalTest, ChangeOfAnEarlierBootIsOverdue) {
    Journal journal(journalFolder);
    Record record = NewRecord(Journal::MillisecondsSinceBoot() + 60'000);
    record.bootId = "another boot";
    journal.Apply(record, Nothing);
    EXPECT_EQ(1U, journal.Recover().size());
    ExpectOld();
}

TEST_F(JournalTest, FileChangedBeforehandIsNoticed) {
    Journal journal(journalFolder);
    const Record record = NewRecord();
    WriteFile(b, "somebody's\n");
    try {
        journal.Apply(record, Nothing);
        ADD_FAILURE() << "not noticed";
    } catch (const LoginsError& error) {
        EXPECT_EQ(LoginsError::Kind::Changed, error.Reason());
        EXPECT_THAT(error.what(), HasSubstr(b));
    }
    EXPECT_EQ("a old\n", ReadFile(a));
    EXPECT_EQ("somebody's\n", ReadFile(b));
    EXPECT_TRUE(journal.Entries().empty());
}

TEST_F(JournalTest, FileChangedMeanwhileTakesEverythingBack) {
    Journal journal(journalFolder);
    EXPECT_THROW(journal.Apply(NewRecord(), [&](int) { WriteFile(b, "somebody's\n"); }), LoginsError);
    EXPECT_EQ("a old\n", ReadFile(a));
    EXPECT_EQ("somebody's\n", ReadFile(b));
    EXPECT_FALSE(std::filesystem::exists(c));
    EXPECT_THAT(journal.Find(1)->reason, HasSubstr("left alone: " + b));
}

TEST_F(JournalTest, RefusalOfTheWatcherChangesNothing) {
    Journal journal(journalFolder);
    const auto refuse = [](int) { throw LoginsError(LoginsError::Kind::System, "no watcher"); };
    EXPECT_THROW(journal.Apply(NewRecord(), refuse), LoginsError);
    ExpectOld();
    EXPECT_EQ(Progress::Restored, ProgressOf(1));
}

TEST_F(JournalTest, FileThatCannotBeReplacedTakesEverythingBack) {
    Journal journal(journalFolder);
    // Where the new file would be prepared, something is in the way.
    std::filesystem::create_directory(StagedName(c, 1));
    EXPECT_THROW(journal.Apply(NewRecord(), Nothing), LoginsError);
    ExpectOld();
    std::filesystem::remove(StagedName(c, 1));
}

TEST_F(JournalTest, UndoIsAChangeOfItsOwn) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(), Nothing);
    EXPECT_EQ(2, journal.Apply(Reverse(journal.Find(1)->record), Nothing));
    ExpectOld();
    EXPECT_EQ(Progress::Undone, ProgressOf(1));
    EXPECT_EQ(Progress::Confirmed, ProgressOf(2));
}

TEST_F(JournalTest, KeepsTheLastFifty) {
    Journal journal(journalFolder);
    for (int round = 0; round < 27; ++round) {
        const int id = journal.Apply(NewRecord(), Nothing);
        journal.Apply(Reverse(journal.Find(id)->record), Nothing);
    }
    EXPECT_EQ(50U, journal.Entries().size());
    EXPECT_EQ(54, journal.Entries().back().record.id);
    EXPECT_FALSE(journal.Find(1).has_value());
}

TEST_F(JournalTest, LeftoversOfACrashGo) {
    Journal journal(journalFolder);
    journal.Lock();
    const std::string candidate = journal.MakeCandidateFolder();
    std::filesystem::create_directory(journalFolder + "/new-9");
    journal.Recover();
    EXPECT_FALSE(std::filesystem::exists(candidate));
    EXPECT_FALSE(std::filesystem::exists(journalFolder + "/new-9"));
}

TEST_F(JournalTest, JournalIsForRootOnly) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(), Nothing);
    EXPECT_EQ(std::filesystem::perms(0700), std::filesystem::status(journalFolder).permissions());
    EXPECT_EQ(std::filesystem::perms(0700), std::filesystem::status(journalFolder + "/1").permissions());
}

}  // namespace
}  // namespace nimbrel::logins
