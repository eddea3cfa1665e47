#include "files.h"

#include <sys/file.h>

#include <thread>

#include "sandbox.h"
#include "support/access_list.h"

namespace nimbrel::ad::test {
namespace {

using std::chrono::milliseconds;

class Files : public Sandbox {};

TEST_F(Files, ReplacementIsSeenWhenItIsCommitted) {
    WriteFile(Path("file"), "old");
    {
        FileReplacement replacement(Path("file"));
        replacement.Write("new");
        EXPECT_EQ(ReadFile(Path("file")), "old");
        replacement.Commit();
    }
    EXPECT_EQ(ReadFile(Path("file")), "new");
    EXPECT_EQ(ModeOf(Path("file")), 0600U);
    EXPECT_EQ(FileCount(Folder()), 1U);
}

TEST_F(Files, ReplacementThatIsGivenUpLeavesNothing) {
    WriteFile(Path("file"), "old");
    { FileReplacement(Path("file")).Write("new"); }
    EXPECT_EQ(ReadFile(Path("file")), "old");
    EXPECT_EQ(FileCount(Folder()), 1U);
}

TEST_F(Files, RestoreBringsBackContentsAndAbsence) {
    WriteFile(Path("file"), std::string("a\0b", 3));
    const auto before = ReadWholeFile(Path("file"));
    const auto absent = ReadWholeFile(Path("other"));
    WriteFile(Path("file"), "x");
    WriteFile(Path("other"), "x");
    RestoreFile(Path("file"), before);
    RestoreFile(Path("other"), absent);
    EXPECT_EQ(ReadFile(Path("file")), std::string("a\0b", 3));
    EXPECT_EQ(FileCount(Folder()), 1U);
}

TEST_F(Files, RestoreBringsBackTheMode) {
    WriteFile(Path("file"), "a");
    std::filesystem::permissions(Path("file"), std::filesystem::perms(0640));
    const auto before = ReadWholeFile(Path("file"));
    { FileReplacement(Path("file")).Commit(); }
    EXPECT_EQ(ModeOf(Path("file")), 0600U);
    RestoreFile(Path("file"), before);
    EXPECT_EQ(ModeOf(Path("file")), 0640U);
}

TEST_F(Files, FoldersInTheWayAreReported) {
    std::filesystem::create_directory(Path("file"));
    EXPECT_EQ(StatusOf([&] { ReadWholeFile(Path("file")); }), kStatusAccessDenied);
    EXPECT_EQ(StatusOf([&] {
                  FileReplacement replacement(Path("file"));
                  replacement.Commit();
              }),
              kStatusInternalError);
    EXPECT_EQ(StatusOf([&] { FileReplacement(Path("missing/file")); }), kStatusInternalError);
    EXPECT_EQ(FileCount(Folder()), 1U);
}

TEST_F(Files, SecondHolderOfTheLockWaitsUntilItsDeadline) {
    const FileLock first(Path("a/lock"), Deadline::After(milliseconds(100)));
    const auto start = Deadline::Clock::now();
    EXPECT_EQ(StatusOf([&] { FileLock(Path("a/lock"), Deadline::After(milliseconds(100))); }), kStatusBusy);
    EXPECT_GE(Deadline::Clock::now() - start, milliseconds(100));
}

TEST_F(Files, UserOnTheAccessListMayNotWriteWhatIsTrusted) {
    WriteFile(Path("file"), "text");
    const bool listed = testing::PutOnAccessList(Path("file"), 6);
    EXPECT_EQ(StatusOf([&] { ReadTrustedFile(Path("file")); }), listed ? kStatusAccessDenied : 0U);
}

TEST_F(Files, LockThatOthersMayUseIsRefused) {
    const auto takeStatus = [&] {
        return StatusOf([&] { FileLock(Path("lock"), Deadline::After(milliseconds(100))); });
    };
    for (const mode_t mode : {0604, 0640, 0602}) {
        WriteFile(Path("lock"), "");
        ASSERT_EQ(chmod(Path("lock").c_str(), mode), 0);
        EXPECT_EQ(takeStatus(), kStatusAccessDenied) << std::oct << mode;
    }
    ASSERT_EQ(chmod(Path("lock").c_str(), 0600), 0);
    EXPECT_EQ(takeStatus(), 0U);
    std::filesystem::create_hard_link(Path("lock"), Path("second"));
    EXPECT_EQ(takeStatus(), kStatusAccessDenied);
}

TEST_F(Files, FoldersAndFilesHaveTheirModesUnderAnyUmask) {
    for (const mode_t mask : {0000, 0022, 0077, 0777}) {
        const mode_t before = umask(mask);
        const std::string folder = Path(std::to_string(mask));
        { const FileLock lock(folder + "/a/lock", Deadline::After(milliseconds(100))); }
        FileReplacement replacement(folder + "/a/file");
        replacement.Commit();
        umask(before);
        for (const auto& [path, mode] : {std::pair(folder, 0755U), std::pair(folder + "/a", 0755U),
                                         std::pair(folder + "/a/lock", 0600U), std::pair(folder + "/a/file", 0600U)}) {
            EXPECT_EQ(ModeOf(path), mode) << path << " under " << std::oct << mask;
        }
    }
}

TEST_F(Files, LockIsPassedOn) {
    { const FileLock first(Path("lock"), Deadline::After(milliseconds(100))); }
    EXPECT_EQ(StatusOf([&] { FileLock(Path("lock"), Deadline::After(milliseconds(100))); }), 0U);
}

}  // namespace
}  // namespace nimbrel::ad::test
