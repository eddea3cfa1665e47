// The ledger on a disk that is full, in a folder where others have put files, and when its file has grown long.

#include "services/apxd/ledger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/temporary_folder.h"
#include "unit/without_file_capabilities.h"

namespace nimbrel::apxd::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

namespace fs = std::filesystem;

const std::string kMark = "0123456789abcdef0123456789abcdef";
const std::string kHeader = "nimbrel-apxd ledger 1\n";

// No file grows beyond `size` bytes.
class SmallFiles {
 public:
    explicit SmallFiles(rlim_t size) : _handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &_before);
        const rlimit small = {size, _before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    }
    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;
    ~SmallFiles() {
        setrlimit(RLIMIT_FSIZE, &_before);
        std::signal(SIGXFSZ, _handler);
    }

 private:
    rlimit _before = {};
    void (*_handler)(int);
};

int ErrorOf(const auto& call) {
    try {
        call();
        return 0;
    } catch (const std::system_error& error) {
        return error.code().value();
    }
}

class LedgerFile : public ::testing::Test {
 protected:
    // The open files of this process that lie in the folder, by their descriptors.
    std::vector<int> Descriptors() const {
        std::vector<int> found;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;  // the one of this loop itself
            const std::string target = fs::read_symlink(entry.path(), gone).string();
            if (target.starts_with(folder.Path())) found.push_back(std::stoi(entry.path().filename()));
        }
        return found;
    }

    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
};

TEST_F(LedgerFile, DescriptorsAreTwoAndNotInherited) {
    {
        Ledger ledger(path);
        ledger.Note("NODE01", "c", {kMark, 1, false});
        ledger.Prune(0, {});
        const auto descriptors = Descriptors();
        EXPECT_EQ(descriptors.size(), 2U) << "the ledger and its lock";
        for (const int one : descriptors) EXPECT_EQ(fcntl(one, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << one;
        EXPECT_THROW(Ledger second(path), std::runtime_error);
        EXPECT_EQ(Descriptors().size(), 2U);
    }
    EXPECT_EQ(Descriptors().size(), 0U);
    WriteFile(path, "something else\n");
    EXPECT_THROW(Ledger damaged(path), std::runtime_error);
    EXPECT_EQ(Descriptors().size(), 0U);
}

// The lines before it stay as they are, outdated ones, too.
TEST_F(LedgerFile, LineThatFindsNoRoomIsTakenBack) {
    Ledger ledger(path);
    ledger.Note("NODE01", "c", {kMark, 1, false});
    ledger.Note("NODE01", "c", {kMark, 1, false});
    const std::string before = ReadFile(path);
    {
        const SmallFiles full(before.size() + 10);
        EXPECT_EQ(ErrorOf([&] { ledger.Note("NODE02", "c", {kMark, 2, false}); }), EFBIG);
        EXPECT_EQ(ErrorOf([&] { ledger.Forget("NODE01", "c"); }), EFBIG);
    }
    EXPECT_EQ(ReadFile(path), before);
    EXPECT_TRUE(ledger.Find("NODE01", "c"));
    EXPECT_FALSE(ledger.Find("NODE02", "c"));
    ledger.Note("NODE03", "c", {kMark, 3, false});
    EXPECT_EQ(ReadFile(path), before + "H NODE03 c " + kMark + " 3\n");
}

TEST_F(LedgerFile, LedgerThatFindsNoRoomStaysAsItWas) {
    Ledger ledger(path);
    ledger.Note("NODE01", "c", {kMark, 1, false});
    ledger.Note("NODE02", "c", {kMark, 2, false});
    const std::string before = ReadFile(path);
    {
        const SmallFiles full(kHeader.size() + 10);
        EXPECT_EQ(ErrorOf([&] { ledger.Prune(2, {}); }), EFBIG);
    }
    EXPECT_EQ(ReadFile(path), before);
    EXPECT_TRUE(ledger.Find("NODE01", "c"));
    EXPECT_FALSE(fs::exists(path + ".new"));
    EXPECT_EQ(Descriptors().size(), 2U);
    ledger.Prune(2, {});
    EXPECT_EQ(ReadFile(path), kHeader + "H NODE02 c " + kMark + " 2\n");
}

TEST_F(LedgerFile, WhatAKilledProcessLeftIsReplacedAndNeverWrittenTo) {
    WriteFile(folder / "other", "another file\n");
    fs::create_hard_link(folder / "other", path + ".new");
    Ledger ledger(path);
    EXPECT_EQ(ReadFile(path), kHeader);
    EXPECT_EQ(ReadFile(folder / "other"), "another file\n");
    fs::create_symlink(folder / "other", path + ".new");
    ledger.Prune(0, {});
    EXPECT_EQ(ReadFile(folder / "other"), "another file\n");
}

TEST_F(LedgerFile, WhatIsInTheWayIsToldAndLeftAlone) {
    fs::create_directory(path + ".new");
    EXPECT_EQ(ErrorOf([&] { Ledger ledger(path); }), EEXIST);
    fs::remove(path + ".new");
    fs::create_directory(path);
    EXPECT_EQ(ErrorOf([&] { Ledger ledger(path); }), EISDIR);
    fs::remove(path);
    EXPECT_EQ(Descriptors().size(), 0U);
}

TEST_F(LedgerFile, PlaceThatIsTakenIsToldAndNothingIsLeftBesideIt) {
    Ledger ledger(path);
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(ErrorOf([&] { ledger.Prune(0, {}); }), EISDIR);
    EXPECT_FALSE(fs::exists(path + ".new"));
    EXPECT_EQ(Descriptors().size(), 2U);
}

TEST_F(LedgerFile, FolderThatMayNotBeReadIsTold) {
    fs::permissions(folder.Path(), fs::perms(0300));
    {
        const WithoutFileCapabilities asAnyUser;
        EXPECT_EQ(ErrorOf([&] { Ledger ledger(path); }), EACCES);
    }
    fs::permissions(folder.Path(), fs::perms(0700));
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(LedgerFile, LinkIsNoMissingLedger) {
    fs::create_symlink(folder / "nowhere", path);
    EXPECT_EQ(ErrorOf([&] { Ledger ledger(path); }), ENOENT);
    EXPECT_TRUE(fs::is_symlink(path));
}

TEST_F(LedgerFile, RightsThatTheUmaskTookAreThere) {
    const mode_t before = umask(0777);
    { Ledger ledger(path); }
    umask(before);
    EXPECT_EQ(ModeOf(path), 0600U);
    EXPECT_EQ(ModeOf(path + ".lock"), 0600U);
}

TEST_F(LedgerFile, PathWithoutAFolderIsInTheCurrentOne) {
    const fs::path before = fs::current_path();
    fs::current_path(folder.Path());
    { Ledger ledger("here"); }
    fs::current_path(before);
    EXPECT_EQ(ReadFile(folder / "here"), kHeader);
}

TEST_F(LedgerFile, DamagedLineMayHaveMoreThanItsWords) {
    WriteFile(path, kHeader + "H NODE01 c " + kMark + " 1 more\nF NODE02 c more\n");
    const Ledger ledger(path);
    EXPECT_EQ(ReadFile(path), kHeader + "H NODE01 c " + kMark + " 1\n");
}

TEST_F(LedgerFile, LaterEntryReplacesTheEarlier) {
    Ledger ledger(path);
    ledger.Note("NODE01", "c", {kMark, 1, false});
    ledger.Note("NODE01", "c", {kMark, 2, true});
    EXPECT_EQ(ledger.Find("NODE01", "c")->time, 2);
    EXPECT_TRUE(ledger.Find("NODE01", "c")->takenOver);
}

TEST_F(LedgerFile, OneThreadAtATimeWorksOnAnAccount) {
    Ledger ledger(path);
    std::atomic<int> inside = 0;
    std::atomic<int> disturbed = 0;
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                const Ledger::Turn turn(ledger, "NODE01");
                disturbed += inside++ == 0 ? 0 : 1;
                std::this_thread::yield();
                --inside;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(disturbed, 0);
    const Ledger::Turn one(ledger, "NODE01");
    const Ledger::Turn other(ledger, "NODE02");
}

// The folder is in memory where the machine offers that: thousands of lines take no time there.
class LongLedger : public ::testing::Test {
 protected:
    void Note(int times) {
        for (int i = 0; i < times; ++i) ledger.Note("NODE01", "c", {kMark, 1, false});
    }
    std::ptrdiff_t Lines() const {
        const std::string text = ReadFile(path);
        return std::count(text.begin(), text.end(), '\n');
    }

    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    Ledger ledger{path};
};

TEST_F(LongLedger, IsWrittenAnewBehindTenThousandOutdatedLines) {
    for (int round = 0; round < 2; ++round) {
        Note(10000);
        EXPECT_EQ(Lines(), 1 + round + 10000);
        Note(round);
        Note(1);
        EXPECT_EQ(Lines(), 1 + 1);
    }
    EXPECT_TRUE(ledger.Find("NODE01", "c"));
}

TEST_F(LongLedger, LosesAccountsThatNobodyMayAskForAnyMore) {
    ledger.Note("STAGED", "c", {kMark, 0, true});
    for (int time = 0; time < 25000; ++time) {
        ledger.Note("NODE" + std::to_string(time), "c", {kMark, time, false}, time - 100);
    }
    EXPECT_LT(Lines(), 10300);
    EXPECT_FALSE(ledger.Find("NODE15000", "c"));
    EXPECT_TRUE(ledger.Find("NODE24900", "c"));
    EXPECT_EQ(ledger.TakenOverBy("STAGED"), "c");
}

TEST_F(LongLedger, ThatCannotBeWrittenAnewIsWrittenOn) {
    fs::create_directory(path + ".new");
    Note(10001);
    EXPECT_EQ(Lines(), 1 + 10001);
    fs::remove(path + ".new");
    Note(1);
    EXPECT_EQ(Lines(), 1 + 1);
}

// Tells when somebody opens a file.
class Opened {
 public:
    explicit Opened(const std::string& path) : _events(inotify_init1(IN_CLOEXEC)) {
        EXPECT_NE(inotify_add_watch(_events.Number(), path.c_str(), IN_OPEN), -1);
    }

    // False if nobody does for ten seconds.
    bool Await() const {
        pollfd one = {_events.Number(), POLLIN, 0};
        if (poll(&one, 1, 10'000) != 1) return false;
        char event[1024];
        return read(_events.Number(), event, sizeof event) > 0;
    }

 private:
    const kit::Descriptor _events;
};

// A thread that brings an earlier reading of the configuration to its end gives its ledger back while the next is made.
TEST(ApxdLedger, LockThatIsBeingGivenBackIsWaitedFor) {
    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    // It waits for a second, which a busy machine may need to give anything back.
    bool isInTime = false;
    for (int tries = 0; tries < 10 && !isInTime; ++tries) {
        auto first = std::make_unique<Ledger>(path);
        const Opened lock(path + ".lock");
        const auto start = std::chrono::steady_clock::now();
        auto next = std::async(std::launch::async, [&] { Ledger ledger(path); });
        EXPECT_TRUE(lock.Await() && lock.Await()) << "refused, and tried again";
        first.reset();
        isInTime = std::chrono::steady_clock::now() - start < std::chrono::milliseconds(700);
        if (isInTime) {
            EXPECT_NO_THROW(next.get());
        } else {
            next.wait();
        }
    }
    EXPECT_TRUE(isInTime);
}

}  // namespace
}  // namespace nimbrel::apxd::test
