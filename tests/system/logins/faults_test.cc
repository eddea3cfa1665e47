// Files and disks that get in the way: whatever it is, all files change or none.

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "logins_host.h"
#include "tools/loginfiles/journal.h"
#include "tools/loginfiles/logins_error.h"

namespace nimbrel::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::HasSubstr;

constexpr char kNsswitch[] = "/etc/nsswitch.conf";

class LoginsFaultsTest : public LoginsHost {
 protected:
    // A file system of its own over a folder, with the folder's files in it.
    static void MountOver(const std::string& folder, const std::string& options) {
        const std::string copy = "/tmp/copy";
        fs::remove_all(copy);
        fs::copy(folder, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        ASSERT_EQ(0, mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()));
        fs::copy(copy, folder, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    static void Unmount(const std::string& path) { ASSERT_EQ(0, umount2(path.c_str(), MNT_DETACH)) << path; }

    static bool SetImmutable(const char* path, bool immutable) {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        int flags = 0;
        bool done = ioctl(file, FS_IOC_GETFLAGS, &flags) == 0;
        flags = immutable ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
        done = done && ioctl(file, FS_IOC_SETFLAGS, &flags) == 0;
        close(file);
        return done;
    }
};

TEST_F(LoginsFaultsTest, ReadOnlyFileSystemChangesNothing) {
    MountOver("/var/lib/pam", "mode=0755");
    ASSERT_EQ(0, mount(nullptr, "/var/lib/pam", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    const LoginFiles before = ReadLoginFiles();
    EXPECT_THAT(Ctl({"logins", "enable"}),
                ::testing::AllOf(::testing::Field(&ProgramResult::exitStatus, 1),
                                 ::testing::Field(&ProgramResult::errors, HasSubstr("Read-only file system"))));
    EXPECT_THAT(Differences(before, ReadLoginFiles()), ::testing::IsEmpty());
    Unmount("/var/lib/pam");
}

TEST_F(LoginsFaultsTest, FullDiskChangesNothing) {
    MountOver("/etc/pam.d", "mode=0755,size=160k");
    std::string filler(1 << 20, 'x');
    const int file = open("/etc/pam.d/.filler~", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    while (write(file, filler.data(), filler.size()) > 0) {
    }
    close(file);
    const LoginFiles before = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("No space left on device"));
    EXPECT_THAT(Differences(before, ReadLoginFiles()), ::testing::IsEmpty());
    EXPECT_EQ("restored", StateOf(1));
    Unmount("/etc/pam.d");
}

// One small file system for the files and the journal, as on a host with a single one.
class FullDiskTest : public LoginsFaultsTest {
 protected:
    void SetUp() override {
        LoginsFaultsTest::SetUp();
        fs::create_directories(kDisk);
        ASSERT_EQ(0, mount("tmpfs", kDisk, "tmpfs", 0, "mode=0755,size=200k"));
        fs::create_directory(kDisk + std::string("/etc"));
        for (const std::string& path : {a, b}) WriteFile(path, "old\n");
    }
    void TearDown() override {
        Unmount(kDisk);
        LoginsFaultsTest::TearDown();
    }
    // Leaves room for this many pages.
    static void Fill(int pages) {
        const std::string page(4096, 'x');
        const std::string path = kDisk + std::string("/filler");
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        off_t size = 0;
        for (ssize_t count = 0; (count = write(file, page.data(), page.size())) > 0; size += count) {
        }
        ASSERT_EQ(0, ftruncate(file, size - pages * 4096));
        close(file);
    }
    logins::Record NewRecord() const {
        logins::Record record;
        record.action = "enable";
        record.bootId = logins::Journal::BootId();
        record.deadline = 1;
        for (const std::string& path : {a, b}) {
            const logins::FileState now = logins::ReadState(path);
            record.changes.push_back({path, now, now.With(std::string(9000, 'n'))});
        }
        return record;
    }
    void ExpectOld(logins::Journal& journal) const {
        for (const std::string& path : {a, b}) EXPECT_EQ("old\n", ReadFile(path));
        EXPECT_EQ(logins::Progress::Restored, journal.Find(1)->progress);
        EXPECT_EQ(2, std::distance(fs::directory_iterator(kDisk + std::string("/etc")), fs::directory_iterator()));
    }

    static constexpr char kDisk[] = "/srv/disk";
    const std::string a = kDisk + std::string("/etc/a");
    const std::string b = kDisk + std::string("/etc/b");
};

TEST_F(FullDiskTest, ChangeThatFindsNoRoomLeavesNothingBehind) {
    for (int pages = 0; pages < 10; ++pages) {
        SCOPED_TRACE(pages);
        logins::Journal journal(kDisk + std::string("/journal"));
        try {
            journal.Apply(NewRecord(), [&](int) { Fill(pages); });
            break;  // room enough
        } catch (const logins::LoginsError& error) {
            EXPECT_THAT(error.what(), ::testing::Not(HasSubstr("could not all be put back")));
        }
        for (const std::string& path : {a, b}) EXPECT_EQ("old\n", ReadFile(path));
        fs::remove(kDisk + std::string("/filler"));
        journal.Recover();  // has room for the record of it
        ExpectOld(journal);
        fs::remove_all(kDisk + std::string("/journal"));
    }
    fs::remove_all(kDisk + std::string("/journal"));
}

TEST_F(FullDiskTest, FilesGoBackWithoutRoom) {
    logins::Journal journal(kDisk + std::string("/journal"));
    journal.Apply(NewRecord(), [](int) {});
    Fill(0);
    EXPECT_EQ(1U, journal.Recover().size());
    ExpectOld(journal);
}

TEST_F(LoginsFaultsTest, FullJournalChangesNothing) {
    fs::create_directories("/var/lib/nimbrel/logins");
    ASSERT_EQ(0, mount("tmpfs", "/var/lib/nimbrel/logins", "tmpfs", 0, "mode=0700,size=100k"));
    EXPECT_THAT(Ctl({"logins", "enable"}), ExitsWith(1));
    ExpectUntouched();
    EXPECT_EQ("changes: none\n", Done({"logins", "history"}));
    Unmount("/var/lib/nimbrel/logins");
}

// Where the machine lets nobody set the flag (an ordinary user's namespaces), the file is made a mount point, which
// nobody can replace either.
TEST_F(LoginsFaultsTest, FileThatCannotBeReplacedTakesTheOthersBack) {
    const bool immutable = SetImmutable(kNsswitch, true);
    ASSERT_TRUE(immutable || mount(kNsswitch, kNsswitch, nullptr, MS_BIND, nullptr) == 0);
    EXPECT_THAT(Refused({"logins", "enable"}),
                AnyOf(HasSubstr("Operation not permitted"), HasSubstr("Device or resource busy")));
    ExpectUntouched();
    EXPECT_EQ("restored", StateOf(1));
    if (immutable) {
        ASSERT_TRUE(SetImmutable(kNsswitch, false));
    } else {
        Unmount(kNsswitch);
    }
    Enable();
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
}

TEST_F(LoginsFaultsTest, MountPointTakesTheOthersBack) {
    ASSERT_EQ(0, mount(kNsswitch, kNsswitch, nullptr, MS_BIND, nullptr));
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("Device or resource busy"));
    ExpectUntouched();
    Unmount(kNsswitch);
}

TEST_F(LoginsFaultsTest, LinkIsFollowedAndItsFileReplaced) {
    fs::create_directories("/etc/real");
    fs::rename(kNsswitch, "/etc/real/nsswitch");
    fs::create_symlink("real/nsswitch", kNsswitch);
    const logins::FileState before = logins::ReadState("/etc/real/nsswitch");
    Enable();
    EXPECT_EQ("real/nsswitch", fs::read_symlink(kNsswitch));
    EXPECT_THAT(ReadFile("/etc/real/nsswitch"), HasSubstr("files nimembedded"));
    EXPECT_TRUE(LogsIn("login", "alice", kPassword));
    Disable();
    EXPECT_EQ("real/nsswitch", fs::read_symlink(kNsswitch));
    EXPECT_TRUE(before == logins::ReadState("/etc/real/nsswitch"));
}

TEST_F(LoginsFaultsTest, LinkToNowhereAndHardLinkAreRefused) {
    const std::string text = ReadFile(kNsswitch);
    fs::create_hard_link(kNsswitch, "/etc/second-name");
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("has further names (hard links)"));
    fs::remove("/etc/second-name");
    fs::remove(kNsswitch);
    fs::create_symlink("/nowhere/at/all", kNsswitch);
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("is a link that leads to no file"));
    fs::remove(kNsswitch);
    WriteFile(kNsswitch, text);
}

TEST_F(LoginsFaultsTest, ModeOwnerAndAttributesAreKept) {
    constexpr char kAttribute[] = "security.nimauth-test";
    ASSERT_EQ(0, chmod(kNsswitch, 0444));
    ASSERT_EQ(0, chmod("/etc/pam.d/common-auth", 0640));
    ASSERT_EQ(0, chown("/etc/pam.d/common-auth", 0, 0));
    // What an ordinary user's namespace may set on a file of its own.
    const bool labelled = setxattr(kNsswitch, kAttribute, "label", 5, 0) == 0 ||
                          setxattr(kNsswitch, "user.nimauth-test", "label", 5, 0) == 0;
    EXPECT_TRUE(labelled);
    const logins::FileState before = logins::ReadState(kNsswitch);
    Enable();
    const logins::FileState after = logins::ReadState(kNsswitch);
    EXPECT_EQ(0444U, after.mode);
    EXPECT_EQ(before.attributes, after.attributes);
    EXPECT_EQ(0640U, logins::ReadState("/etc/pam.d/common-auth").mode);
    Disable();
    EXPECT_TRUE(before == logins::ReadState(kNsswitch));
}

TEST_F(LoginsFaultsTest, MissingNsswitchIsTheVendorsOrRefused) {
    const std::string text = ReadFile("/etc/nsswitch.conf");
    ASSERT_EQ(0, std::remove("/etc/nsswitch.conf"));
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("there is no /etc/nsswitch.conf"));
    mkdir("/usr/etc", 0755);
    WriteFile("/usr/etc/nsswitch.conf", "passwd: files vendor\ngroup: files\nhosts: files dns vendor\n");
    Enable();
    EXPECT_EQ("passwd: files vendor nimembedded\ngroup: files nimembedded\nhosts: files dns vendor\n",
              ReadFile("/etc/nsswitch.conf"));
    ASSERT_EQ(0, std::remove("/usr/etc/nsswitch.conf"));
    Disable();
    EXPECT_NE(0, access("/etc/nsswitch.conf", F_OK)) << "as it was";
    EXPECT_THAT(Done({"logins", "disable"}), HasSubstr("changed: no\n"));
    WriteFile("/etc/nsswitch.conf", text);
}

TEST_F(LoginsFaultsTest, ModuleThatKeepsLocalAccountsApartHasToBeThere) {
    const std::string guard = "/usr/lib/" NIMAUTH_MULTIARCH "/security/pam_localuser.so";
    const std::string moved = guard + ".moved";
    ASSERT_EQ(0, std::rename(guard.c_str(), moved.c_str()));
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("'pam_localuser.so' is not installed"));
    ASSERT_EQ(0, std::rename(moved.c_str(), guard.c_str()));
    ExpectUntouched();
}

TEST_F(LoginsFaultsTest, NsswitchThatCannotBeReadIsRefusedWithItsLine) {
    WriteFile(kNsswitch, ReadFile(kNsswitch) + "= nonsense\n");
    const LoginFiles before = ReadLoginFiles();
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("'/etc/nsswitch.conf' cannot be edited: libaugeas cannot read "
                                                         "the file, line 21"));
    EXPECT_THAT(Differences(before, ReadLoginFiles()), ::testing::IsEmpty());
}

TEST_F(LoginsFaultsTest, DamagedJournalIsToldAndNothingChanges) {
    Enable();
    const LoginFiles enabled = ReadLoginFiles();
    WriteFile("/var/lib/nimbrel/logins/1/record", "garbage");
    EXPECT_THAT(Refused({"logins", "disable"}),
                ::testing::AllOf(HasSubstr("change 1 cannot be read: the journal holds a record that is damaged"),
                                 HasSubstr("mv /var/lib/nimbrel/logins/1 ")));
    EXPECT_THAT(Differences(enabled, ReadLoginFiles()), ::testing::IsEmpty());
    EXPECT_THAT(Done({"logins", "history"}), HasSubstr("note: change 1 cannot be read: "));
    EXPECT_THAT(Refused({"logins", "undo"}), HasSubstr("change 1 cannot be read: "));
}

// An old entry that nobody needs is no reason for a change to stay that nobody confirmed.
TEST_F(LoginsFaultsTest, DamagedEntryDoesNotKeepALaterChange) {
    Enable();
    Done({"logins", "undo"});
    WriteFile("/var/lib/nimbrel/logins/1/record", "garbage");
    Enable({"--confirm-within", "1"});
    AwaitState(3, "restored");
    ExpectUntouched();
    WriteFile("/var/lib/nimbrel/logins/2/state", "garbage");
    EXPECT_THAT(Refused({"logins", "enable"}), HasSubstr("error: change 2 cannot be read: ")) << "1 is over";
    ExpectUntouched();
}

TEST_F(LoginsFaultsTest, DamagedEntryThatIsInTheWayIsNamedAndNotAnOlderOne) {
    Enable();
    Done({"logins", "undo"});
    Enable();
    Disable();
    WriteFile("/var/lib/nimbrel/logins/1/record", "garbage");
    WriteFile("/var/lib/nimbrel/logins/4/record", "garbage");
    EXPECT_THAT(Refused({"logins", "undo"}),
                ::testing::AllOf(HasSubstr("error: change 4 cannot be read: "),
                                 HasSubstr("mv /var/lib/nimbrel/logins/4 /var/lib/nimbrel/logins/damaged")));
}

}  // namespace
}  // namespace nimbrel::testing
