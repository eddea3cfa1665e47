// Look-ups for log-ins: whoever can stop the program that makes one holds nobody up.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>

#include "database_file.h"
#include "embeddeddirectory/host.h"
#include "pluginkit/descriptor.h"
#include "sandbox.h"
#include "support/leave_child.h"
#include "support/umask.h"

namespace nimbrel::embedded::test {
namespace {

class LookUps : public Sandbox, public ::testing::WithParamInterface<OpenMode> {
 protected:
    Directory LookUp() const { return Directory::Open(directoryPath, GetParam()); }
};

class StoppableLookUps : public Sandbox {
 protected:
    Directory LookUp() const { return Directory::Open(directoryPath, OpenMode::StoppableLookUp); }

    // The access of each descriptor that this process has of the database's files, by the file's end.
    std::map<std::string, int> Descriptors() const {
        std::map<std::string, int> modes;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
            if (target.rfind(directoryPath, 0) != 0) continue;
            const int flags = fcntl(std::stoi(entry.path().filename().string()), F_GETFL);
            modes[target.substr(directoryPath.size())] = flags & O_ACCMODE;
        }
        return modes;
    }
};

// The kernel gives no lock that keeps others out on a descriptor that is open for reading only.
TEST_F(StoppableLookUps, NoLockCanBeTakenThatKeepsOthersOut) {
    const Directory reader = LookUp();
    EXPECT_EQ(reader.ListUsers().size(), 3U);
    const auto modes = Descriptors();
    ASSERT_TRUE(modes.contains("") && modes.contains("-shm"));
    EXPECT_EQ(modes.at(""), O_RDONLY);
    EXPECT_EQ(modes.at("-shm"), O_RDONLY);
}

TEST_F(StoppableLookUps, StoppedReaderHoldsUpNobody) {
    const pid_t child = fork();
    if (child == 0) {
        const Directory reader = LookUp();
        reader.ListUsers();
        raise(SIGSTOP);
        LeaveChild(reader.ListDomains().size() == 2 ? 0 : 1);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(result));
    const auto begin = std::chrono::steady_clock::now();
    Open().AddDomain("two.test");
    EXPECT_EQ(Open().ListDomains().size(), 2U);
    EXPECT_EQ(LookUp().ListDomains().size(), 2U);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9)) << "less than a change waits";
    kill(child, SIGCONT);
    ASSERT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0) << "it goes on with what is committed now";
}

TEST_P(LookUps, SeeWhatIsCommittedAtOnce) {
    Directory writer = Open();
    const Directory reader = LookUp();
    writer.AddDomain("two.test");
    EXPECT_EQ(reader.ListDomains().size(), 2U);
    EXPECT_EQ(LookUp().ListDomains().size(), 2U);
}

TEST_P(LookUps, SeeWhatAKilledWriterCommitted) {
    const pid_t child = fork();
    if (child == 0) {
        Directory writer = Open();
        writer.AddDomain("two.test");
        raise(SIGKILL);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    ASSERT_NE(std::filesystem::file_size(directoryPath + "-wal"), 0U);
    EXPECT_EQ(LookUp().ListDomains().size(), 2U);
    EXPECT_EQ(Open().ListDomains().size(), 2U);
}

TEST_P(LookUps, ChangeNothing) {
    EXPECT_EQ(StatusOf([&] { LookUp().AddDomain("two.test"); }), 5U);
    EXPECT_EQ(StatusOf([&] { LookUp().SetRehearsal({"join-domain", 0, 5U, std::nullopt, std::nullopt}); }), 5U);
    EXPECT_EQ(Open().ListDomains().size(), 1U);
}

TEST_P(LookUps, WaitAFractionOfASecondForALockedFile) {
    const kit::Descriptor file(open(directoryPath.c_str(), O_RDWR | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(fcntl(file.Number(), F_OFD_SETLK, &lock), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(StatusOf([&] { LookUp(); }), 1359U);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9)) << "less than a change waits";
}

TEST_P(LookUps, MissingAndRefusedFilesAreToldAsEver) {
    EXPECT_EQ(StatusOf([&] { Directory::Open(folder / "no.db", GetParam()); }), 1355U);
    EXPECT_FALSE(Membership::Open(folder / "no.db", GetParam()).Current());
    EXPECT_FALSE(std::filesystem::exists(folder / "no.db"));
    WriteFile(directoryPath, std::string(8192, 'x'));
    EXPECT_EQ(StatusOf([&] { LookUp(); }), 1359U);
}

TEST_P(LookUps, PathsMayHoldWhatMeansSomethingInAUri) {
    const std::string odd = folder / "a?b#c%41.db";
    std::filesystem::copy_file(directoryPath, odd);
    EXPECT_EQ(Directory::Open(odd, GetParam()).ListUsers().size(), 3U);
}

TEST_P(LookUps, FilesTheyMakeArePrivateUnderAnyUmask) {
    for (const mode_t mask : {0000, 0777}) {
        const Umask set(mask);
        std::filesystem::remove(directoryPath + "-wal");
        std::filesystem::remove(directoryPath + "-shm");
        EXPECT_EQ(LookUp().ListUsers().size(), 3U);
        EXPECT_EQ(ModeOf(directoryPath + "-wal"), 0600U);
        EXPECT_EQ(ModeOf(directoryPath + "-shm"), 0600U);
    }
}

TEST_P(LookUps, HostIsAskedThroughThem) {
    const Host host(directoryPath, membershipPath);
    host.Join(kDomain, "node01", "", kAdmin);
    const Host asked(directoryPath, membershipPath, GetParam());
    EXPECT_EQ(asked.ActiveDomain().dnsName, kDomain);
    EXPECT_EQ(asked.TrustState(), kTrustStateHealthy);
    EXPECT_EQ(LookUp().Authenticate(kDomain, kNobody).name, "user1");
}

// The index of a log is one for all connections of a process.
TEST_P(LookUps, DoNotTakeAwayTheRightToChangeFromTheirProcess) {
    if (GetParam() == OpenMode::StoppableLookUp) {
        const Directory reader = LookUp();
        EXPECT_EQ(StatusOf([&] { Open().AddDomain("two.test"); }), 5U) << "as its contract says";
    }
    const Directory reader = Directory::Open(directoryPath, OpenMode::LookUp);
    EXPECT_EQ(StatusOf([&] { Open().AddDomain("two.test"); }), 0U);
    EXPECT_EQ(reader.ListDomains().size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(Modes, LookUps, ::testing::Values(OpenMode::LookUp, OpenMode::StoppableLookUp),
                         [](const auto& row) { return row.param == OpenMode::LookUp ? "Plain" : "Stoppable"; });

}  // namespace
}  // namespace nimbrel::embedded::test
