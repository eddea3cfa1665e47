// The files themselves: rights, links, creation, damage.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "database_file.h"
#include "sandbox.h"
#include "support/access_list.h"
#include "support/umask.h"

namespace nimbrel::embedded::test {
namespace {

class Files : public ::testing::Test {
 protected:
    void Create() const { Directory::Open(path, OpenMode::CreateIfMissing).AddDomain(kDomain); }
    std::uint32_t OpenStatus() const {
        return StatusOf([&] { Directory::Open(path).Export(); });
    }

    const TemporaryFolder folder;
    const std::string path = folder / "directory.db";
};

TEST_F(Files, MissingFileIsAnUnknownDomain) {
    EXPECT_EQ(OpenStatus(), 1355U);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(StatusOf([&] { Directory::Open(folder / "no/such/folder.db"); }), 1355U);
}

TEST_F(Files, EveryFileIsPrivateUnderAnyUmask) {
    for (const mode_t mask : {0000, 0022, 0277, 0777}) {
        SCOPED_TRACE(mask);
        const Umask set(mask);
        const std::string file = folder / ("directory" + std::to_string(mask) + ".db");
        Directory directory = Directory::Open(file, OpenMode::CreateIfMissing);
        directory.AddDomain(kDomain);
        for (const char* suffix : {"", "-wal", "-shm"}) {
            EXPECT_EQ(ModeOf(file + suffix), 0600U) << suffix;
        }
    }
}

TEST_F(Files, MembershipIsPrivateUnderAnyUmask) {
    const Umask set(0000);
    Membership::Open(path).SetSmartCardServices({"login"});
    EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(Files, RightsOfOthersAreTakenAway) {
    Create();
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(OpenStatus(), 0U);
    EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(Files, LastFolderIsCreated) {
    const Umask set(0777);
    const std::string nested = folder / "nimbrel/directory.db";
    Directory::Open(nested, OpenMode::CreateIfMissing);
    EXPECT_EQ(ModeOf(folder / "nimbrel"), 0755U);
}

TEST_F(Files, NothingIsLeftBesideANewFile) {
    Create();
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "")) {
        EXPECT_EQ(entry.path().string(), path);
        ++files;
    }
    EXPECT_EQ(files, 1);
}

TEST_F(Files, LinksAreRefused) {
    Create();
    const std::string link = folder / "link.db";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(StatusOf([&] { Directory::Open(link); }), 5U);
    EXPECT_EQ(StatusOf([&] { Directory::Open(link, OpenMode::CreateIfMissing); }), 5U);
    EXPECT_EQ(StatusOf([&] { Membership::Open(link).Current(); }), 5U);
}

TEST_F(Files, DanglingLinkIsNotFollowedToCreateAFile) {
    const std::string link = folder / "link.db";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(StatusOf([&] { Directory::Open(link, OpenMode::CreateIfMissing); }), 5U);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(Files, LinkedFolderIsFollowed) {
    Create();
    const std::string link = folder / "here";
    ASSERT_EQ(symlink((folder / "").c_str(), link.c_str()), 0);
    EXPECT_EQ(Directory::Open(link + "/directory.db").ListDomains().size(), 1U);
}

TEST_F(Files, FolderAndFifoAreRefused) {
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_EQ(OpenStatus(), 5U);
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(StatusOf([&] { Directory::Open(fifo); }), 5U);
    EXPECT_EQ(StatusOf([&] { Directory::Open(folder / "."); }), 1359U);
}

TEST_F(Files, DamagedFilesAreInternalErrors) {
    Create();
    const std::string good = ReadFile(path);
    ASSERT_GT(good.size(), 4096U);
    std::string header = good;
    header.replace(0, 16, 16, 'x');
    std::string pages = good;
    pages.replace(100, pages.size() - 100, pages.size() - 100, '\xaa');
    for (const std::string& damaged : {std::string(), std::string("no database"), header, pages,
                                       good.substr(0, good.size() / 2), std::string(good.size(), '\0')}) {
        WriteFile(path, damaged);
        EXPECT_EQ(OpenStatus(), 1359U) << damaged.size();
    }
    WriteFile(path, good);
    EXPECT_EQ(OpenStatus(), 0U);
}

TEST_F(Files, EveryDamagedPageGivesAnErrorOrTheTruthAndNeverCrashes) {
    Create();
    const std::string good = ReadFile(path);
    for (std::size_t at = 0; at < good.size(); at += 251) {
        std::string damaged = good;
        damaged.replace(at, std::min<std::size_t>(32, good.size() - at), std::min<std::size_t>(32, good.size() - at),
                        '\xff');
        WriteFile(path, damaged);
        const std::uint32_t status = OpenStatus();
        EXPECT_TRUE(status == 0 || status == 1359) << at << ": " << status;
    }
}

TEST_F(Files, OneKindIsNotTakenForTheOther) {
    Create();
    EXPECT_EQ(StatusOf([&] { Membership::Open(path).Current(); }), 1359U);
    const std::string membership = folder / "membership.db";
    Membership::Open(membership).SetSmartCardServices({});
    EXPECT_EQ(StatusOf([&] { Directory::Open(membership); }), 1359U);
}

TEST_F(Files, NewerVersionIsRefusedByName) {
    Create();
    sqlite3* connection = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(connection, "PRAGMA user_version = 2", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(connection);
    try {
        Directory::Open(path);
        FAIL();
    } catch (const DirectoryError& error) {
        EXPECT_EQ(error.Status(), 1359U);
        EXPECT_EQ(std::string(error.what()),
                  "The embedded directory '" + path + "' has version 2; this program knows version 1");
    }
}

TEST_F(Files, LogOfADeletedFileIsNotReplayedIntoANewOne) {
    std::string log;
    {
        Directory directory = Directory::Open(path, OpenMode::CreateIfMissing);
        directory.AddDomain("old.test");
        log = ReadFile(path + "-wal");
    }
    ASSERT_FALSE(log.empty());
    ASSERT_EQ(unlink(path.c_str()), 0);
    WriteFile(path + "-wal", log);
    EXPECT_TRUE(Directory::Open(path, OpenMode::CreateIfMissing).ListDomains().empty());
}

TEST_F(Files, SettingsOfTheFileAreDurable) {
    Create();
    sqlite3* connection = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(connection, "PRAGMA journal_mode", -1, &statement, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "wal");
    sqlite3_finalize(statement);
    sqlite3_close(connection);
}

TEST_F(Files, FileThatOthersHoldForTooLongIsAnInternalError) {
    Create();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    Directory directory = Directory::Open(path);
    EXPECT_EQ(directory.ListDomains().size(), 1U) << "readers do not wait for writers";
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("two.test"); }), 1359U);
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    EXPECT_EQ(StatusOf([&] { directory.AddDomain("two.test"); }), 0U);
    sqlite3_close(other);
}

TEST_F(Files, DescriptorsAreNotInherited) {
    Directory directory = Directory::Open(path, OpenMode::CreateIfMissing);
    directory.AddDomain(kDomain);
    int ours = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        if (target.rfind(path, 0) == 0) {
            ++ours;
            EXPECT_NE(fcntl(std::stoi(entry.path().filename().string()), F_GETFD) & FD_CLOEXEC, 0) << target;
        }
    }
    EXPECT_GE(ours, 2);
}

TEST_F(Files, ManyCreatorsAtOnceMakeOneFile) {
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            if (StatusOf([&] {
                    Directory::Open(path, OpenMode::CreateIfMissing).AddDomain("d" + std::to_string(i) + ".test");
                }) != 0) {
                ++failures;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Directory::Open(path).ListDomains().size(), 8U);
}

// A folder that all may read can be locked by all.
TEST_F(Files, NobodyWithoutRightsToTheFilesHoldsUpTheirMaking) {
    const int anybody = open((folder / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(anybody, LOCK_EX | LOCK_NB), 0);
    Create();
    Membership::Open(folder / "membership.db").SetSmartCardServices({"login"});
    close(anybody);
}

TEST_F(Files, LockThatAKilledMakerLeftIsTakenOver) {
    const std::string lockPath = path + ".lock";
    WriteFile(lockPath, "");
    ASSERT_EQ(chmod(lockPath.c_str(), 0600), 0);
    Create();
    EXPECT_FALSE(std::filesystem::exists(lockPath));
}

TEST_F(Files, LockThatOthersMayOpenIsRefused) {
    WriteFile(path + ".lock", "");
    ASSERT_EQ(chmod((path + ".lock").c_str(), 0604), 0);
    EXPECT_EQ(StatusOf([&] { Create(); }), 5U);
    EXPECT_FALSE(std::filesystem::exists(path));
}

// A sticky bit does not keep others from putting a log beside the database.
TEST_F(Files, FolderThatOthersMayWriteIsRefused) {
    Create();
    const std::string here = folder / "";
    for (const mode_t mode : {0702, 0777, 01777}) {
        ASSERT_EQ(chmod(here.c_str(), mode), 0);
        EXPECT_EQ(OpenStatus(), 5U) << std::oct << mode;
        EXPECT_EQ(StatusOf([&] { Directory::Open(path, OpenMode::LookUp); }), 5U) << std::oct << mode;
        EXPECT_EQ(StatusOf([&] { Directory::Open(folder / "new.db", OpenMode::CreateIfMissing); }), 5U)
            << std::oct << mode;
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "new.db"));
    ASSERT_EQ(chmod(here.c_str(), 0755), 0);
    EXPECT_EQ(OpenStatus(), 0U);
}

TEST_F(Files, RefusedFolderIsNamedWithItsModeAndTheRemedy) {
    Create();
    const std::string here = std::filesystem::canonical(folder / "");
    ASSERT_EQ(chmod(here.c_str(), 01777), 0);
    try {
        Directory::Open(path);
        FAIL();
    } catch (const DirectoryError& error) {
        EXPECT_EQ(std::string(error.what()),
                  "The embedded directory '" + path + "' is refused: others may write in its folder '" + here +
                      "' (mode 1777, group " + std::to_string(getegid()) + "). Remedy: chmod go-w '" + here + "'");
    }
}

// As mkdir makes it for root under the umask 002. An ordinary user has a group of its own.
TEST_F(Files, RootsOwnGroupMayWriteInTheFolder) {
    Create();
    ASSERT_EQ(chmod((folder / "").c_str(), 0775), 0);
    struct stat status = {};
    ASSERT_EQ(stat((folder / "").c_str(), &status), 0);
    EXPECT_EQ(OpenStatus(), status.st_gid == 0 ? 0U : 5U);
}

TEST_F(Files, OtherGroupMayNotWriteInTheFolder) {
    Create();
    ASSERT_EQ(chmod((folder / "").c_str(), 0775), 0);
    const bool given = chown((folder / "").c_str(), static_cast<uid_t>(-1), 65534) == 0;
    EXPECT_EQ(OpenStatus(), given || getegid() != 0 ? 5U : 0U);
}

// The list shows as the rights of the mode's group.
TEST_F(Files, UserOnTheFoldersAccessListMayNotWriteInIt) {
    Create();
    const bool listed = testing::PutOnAccessList(folder / "", 7);
    EXPECT_EQ(ModeOf(folder / ""), listed ? 0770U : 0700U);
    EXPECT_EQ(OpenStatus(), listed ? 5U : 0U);
}

TEST_F(Files, OwnerIsRootOrTheUser) {
    EXPECT_TRUE(MayOwnFiles(0, 0));
    EXPECT_TRUE(MayOwnFiles(0, 1000));
    EXPECT_TRUE(MayOwnFiles(1000, 1000));
    EXPECT_FALSE(MayOwnFiles(1000, 0));
    EXPECT_FALSE(MayOwnFiles(1000, 1001));
}

// Only root can give one away.
TEST_F(Files, FileOfAnotherUserIsRefused) {
    Create();
    const bool given = chown(path.c_str(), 65534, 65534) == 0;
    EXPECT_EQ(OpenStatus(), given ? 5U : 0U);
}

// The kernel refuses root nothing: a child becomes another user first.
TEST_F(Files, FileThatMayNotBeReadIsRefused) {
    Create();
    ASSERT_EQ(chmod(path.c_str(), 0000), 0);
    ASSERT_EQ(chmod((folder / "").c_str(), 0755), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && setuid(65534) != 0) {
            _exit(99);
        }
        _exit(static_cast<int>(OpenStatus()));
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    ASSERT_TRUE(WIFEXITED(result));
    EXPECT_EQ(WEXITSTATUS(result), 5);
}

}  // namespace
}  // namespace nimbrel::embedded::test
