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

// What somebody else may have done to file b while a change waits, and what is there after it has been taken back.
TEST_F(JournalTest, FilesThatSomebodyTouchedMeanwhileDoNotKeepTheOthersWaiting) {
    namespace fs = std::filesystem;
    const struct {
        const char* what;
        std::function<void(const std::string&)> touch;
        bool putBack;
    } rows[] = {
        {"other rights", [](const std::string& path) { fs::permissions(path, fs::perms(0600)); }, true},
        {"a second name", [](const std::string& path) { fs::create_hard_link(path, path + ".linked"); }, true},
        {"a folder",
         [](const std::string& path) {
             fs::remove(path);
             fs::create_directory(path);
         },
         false},
        {"a link",
         [](const std::string& path) {
             fs::remove(path);
             fs::create_symlink("nowhere", path);
         },
         false},
        {"nothing", [](const std::string& path) { fs::remove(path); }, false},
        {"other content", [](const std::string& path) { WriteFile(path, "somebody's\n"); }, false},
        {"the old content",
         [](const std::string& path) {
             WriteFile(path, "b old\n");
             fs::permissions(path, fs::perms(0600));
         },
         true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        fs::remove_all(b);
        WriteFile(b, "b old\n");
        Journal journal(journalFolder);
        const int id = journal.Apply(NewRecord(1), Nothing);
        row.touch(b);
        EXPECT_EQ(1U, journal.Recover().size());
        EXPECT_EQ(Progress::Restored, ProgressOf(id));
        EXPECT_EQ("a old\n", ReadFile(a));
        EXPECT_FALSE(fs::exists(c));
        EXPECT_EQ(row.putBack ? "nobody confirmed it in time"
                              : "nobody confirmed it in time; changed by somebody else and left alone: " + b,
                  journal.Find(id)->reason);
        EXPECT_TRUE(!row.putBack || ReadFile(b) == "b old\n");
    }
}

TEST_F(JournalTest, WhatGoesBackLiesBesideEveryFileUntilTheConfirmation) {
    Journal journal(journalFolder);
    const int id = journal.Apply(NewRecord(Journal::MillisecondsSinceBoot() + 60'000), Nothing);
    EXPECT_EQ("a old\n", ReadFile(StagedName(a, id, Prepared::Before)));
    EXPECT_FALSE(std::filesystem::exists(StagedName(a, id)));
    EXPECT_FALSE(std::filesystem::exists(StagedName(c, id, Prepared::Before)));
    journal.Confirm(id);
    EXPECT_FALSE(std::filesystem::exists(StagedName(a, id, Prepared::Before)));
    // A crash between the confirmation and that.
    Stage(a, id, ReadState(a), Prepared::Before);
    journal.Recover();
    EXPECT_FALSE(std::filesystem::exists(StagedName(a, id, Prepared::Before)));
}

TEST_F(JournalTest, WhatIsPreparedIsOnlyUsedIfItIsRight) {
    Journal journal(journalFolder);
    const int id = journal.Apply(NewRecord(1), Nothing);
    WriteFile(StagedName(a, id, Prepared::Before), "a bad\n");
    std::filesystem::remove(StagedName(b, id, Prepared::Before));
    journal.Recover();
    ExpectOld();
}

TEST_F(JournalTest, UndoOfAWaitingChangeLeavesNothingPrepared) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(Journal::MillisecondsSinceBoot() + 60'000), Nothing);
    journal.Apply(Reverse(journal.Find(1)->record), Nothing);
    ExpectOld();
}

// A backup of the journal that consists of links, or a de-duplicator.
TEST_F(JournalTest, CopiesMayHaveFurtherNames) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(1), Nothing);
    std::filesystem::copy(journalFolder + "/1", folder / "backup",
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::create_hard_links);
    EXPECT_EQ(1U, journal.Recover().size());
    ExpectOld();
}

TEST_F(JournalTest, DamagedEntryDoesNotKeepALaterChangeWaiting) {
    Journal journal(journalFolder);
    journal.Apply(NewRecord(), Nothing);
    journal.Apply(Reverse(journal.Find(1)->record), Nothing);
    WriteFile(journalFolder + "/1/record", "");
    EXPECT_EQ(3, journal.Apply(NewRecord(1), Nothing));
    EXPECT_EQ(3, journal.Waiting()->record.id);
    WriteFile(journalFolder + "/2/state", "damaged");
    EXPECT_EQ(1U, journal.Recover().size());
    ExpectOld();
    EXPECT_EQ(Progress::Restored, ProgressOf(3));
    const std::vector<Damage> damages = journal.Damages();
    ASSERT_EQ(2U, damages.size());
    EXPECT_EQ(1, damages[0].id);
    EXPECT_THAT(damages[0].reason, HasSubstr("a record that is damaged"));
    EXPECT_TRUE(damages[0].isOver);
    EXPECT_FALSE(damages[1].isOver);
    EXPECT_EQ(1U, journal.ReadableEntries().size());
    try {
        journal.Entries();
        ADD_FAILURE() << "not told";
    } catch (const LoginsError& error) {
        EXPECT_THAT(error.what(), HasSubstr("change 1 cannot be read: "));
        EXPECT_THAT(error.Remedy(), HasSubstr("mv " + journalFolder + "/1 "));
    }
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
