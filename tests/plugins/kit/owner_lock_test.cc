#include "pluginkit/owner_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "pluginkit/status_error.h"
#include "support/temporary_folder.h"
#include "support/umask.h"

namespace nimbrel::kit {
namespace {

using File = OwnerLock::File;
using std::chrono::milliseconds;

class OwnerLocks : public ::testing::Test {
 protected:
    bool IsThere() const { return std::filesystem::exists(std::filesystem::symlink_status(path)); }

    // 0, also if another has it.
    std::uint32_t TryStatus() const {
        try {
            OwnerLock(path, File::Stays).Try();
            return 0;
        } catch (const StatusError& error) {
            return error.Status();
        }
    }

    const TemporaryFolder folder;
    const std::string path = folder.Path("lock");
};

TEST_F(OwnerLocks, GoToOneAtATime) {
    OwnerLock first(path, File::Stays);
    OwnerLock second(path, File::Stays);
    EXPECT_TRUE(first.Try());
    EXPECT_FALSE(second.Try());
    EXPECT_FALSE(second.TryFor(milliseconds(1)));
    EXPECT_TRUE(first.Release());
    EXPECT_TRUE(second.TryFor(milliseconds(1)));
}

TEST_F(OwnerLocks, FileIsTheOwnersAloneUnderAnyUmask) {
    for (const mode_t mask : {0000, 0022, 0077, 0277}) {
        const Umask set(mask);
        OwnerLock lock(path, File::GoesWithTheLock);
        ASSERT_TRUE(lock.Try());
        EXPECT_EQ(folder.Mode("lock"), 0600U) << std::oct << mask;
    }
}

TEST_F(OwnerLocks, FileGoesOrStaysAsTold) {
    {
        OwnerLock lock(path, File::GoesWithTheLock);
        ASSERT_TRUE(lock.Try());
        EXPECT_TRUE(IsThere());
    }
    EXPECT_FALSE(IsThere());
    {
        OwnerLock lock(path, File::Stays);
        ASSERT_TRUE(lock.Try());
    }
    EXPECT_TRUE(IsThere());
}

TEST_F(OwnerLocks, ReleaseTellsThatTheFileCouldNotGo) {
    OwnerLock lock(path, File::GoesWithTheLock);
    EXPECT_TRUE(lock.Release()) << "there is no lock";
    ASSERT_TRUE(lock.Try());
    unlink(path.c_str());
    EXPECT_FALSE(lock.Release());
    EXPECT_TRUE(lock.Release());
}

TEST_F(OwnerLocks, LeftByAKilledProcessAreTakenOver) {
    folder.Put("lock", "", 0600);
    OwnerLock lock(path, File::GoesWithTheLock);
    EXPECT_TRUE(lock.Try());
    lock.Release();
    EXPECT_FALSE(IsThere());
}

TEST_F(OwnerLocks, WhoWithoutTheRightsCanOpenTheFileIsRefused) {
    for (const mode_t mode : {0604, 0640, 0602, 0620, 0601, 0610}) {
        folder.Put("lock", "", mode);
        EXPECT_EQ(TryStatus(), 5U) << std::oct << mode;
    }
    folder.Put("lock", "", 0600);
    EXPECT_EQ(TryStatus(), 0U);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
        EXPECT_EQ(TryStatus(), 5U) << "another user's";
    }
}

TEST_F(OwnerLocks, NothingButAFileOfOneNameIsOne) {
    folder.Put("other", "", 0600);
    std::filesystem::create_hard_link(folder.Path("other"), path);
    EXPECT_EQ(TryStatus(), 5U);
    unlink(path.c_str());
    ASSERT_EQ(symlink(folder.Path("elsewhere").c_str(), path.c_str()), 0);
    EXPECT_EQ(TryStatus(), 5U);
    EXPECT_FALSE(std::filesystem::exists(folder.Path("elsewhere")));
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(TryStatus(), 5U);
}

TEST_F(OwnerLocks, WithoutAFolderThereIsNone) {
    OwnerLock lock(folder.Path("missing/lock"), File::Stays);
    try {
        lock.Try();
        FAIL();
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), 1359U);
        EXPECT_EQ(error.what(), "Unable to open '" + folder.Path("missing/lock") + "': No such file or directory");
    }
}

// A child that is forked while the lock is held has its file open, too.
TEST_F(OwnerLocks, AreNotKeptByAChild) {
    OwnerLock lock(path, File::Stays);
    ASSERT_TRUE(lock.Try());
    int ends[2] = {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[1]);
        char end = 0;
        _exit(read(ends[0], &end, 1) == 0 ? 0 : 1);
    }
    close(ends[0]);
    lock.Release();
    EXPECT_TRUE(OwnerLock(path, File::Stays).Try());
    close(ends[1]);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// Who has waited for a lock whose name is gone does not share the turn of who has made a new one.
TEST_F(OwnerLocks, NobodyIsInsideTogether) {
    std::vector<std::thread> threads;
    std::atomic<int> inside = 0;
    std::atomic<int> together = 0;
    std::atomic<int> missed = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < 50; ++turn) {
                OwnerLock lock(path, File::GoesWithTheLock);
                missed += lock.TryFor(std::chrono::minutes(1)) ? 0 : 1;
                together += ++inside > 1 ? 1 : 0;
                --inside;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(together, 0);
    EXPECT_EQ(missed, 0);
}

}  // namespace
}  // namespace nimbrel::kit
