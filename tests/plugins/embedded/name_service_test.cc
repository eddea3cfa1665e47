// The name-service module as programs of the host call it: root from the directory, others from what was published.

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <nss.h>
#include <pwd.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "embeddeddirectory/host.h"
#include "pluginkit/descriptor.h"
#include "support/files.h"
#include "support/leave_child.h"
#include "support/temporary_folder.h"

namespace nimbrel::embedded::test {
namespace {

constexpr char kPublished[] = "/var/lib/nimbrel/embedded-accounts";
constexpr uid_t kFirstUid = 1'900'000'000;

struct Answer {
    nss_status status = NSS_STATUS_UNAVAIL;
    int error = 0;
    std::string name;
    uid_t uid = 0;
};

template <class Function>
Function* Symbol(const char* name) {
    static void* module = dlopen(NIMAUTH_NAME_SERVICE_MODULE, RTLD_LAZY);
    void* symbol = module ? dlsym(module, name) : nullptr;
    if (!symbol) {
        ADD_FAILURE() << dlerror();
        std::abort();
    }
    return reinterpret_cast<Function*>(symbol);
}

// As the C library asks: with its own errno for the error's number.
template <class Function, class Key>
Answer Ask(const char* function, Key key, std::size_t size) {
    std::array<char, 1024> buffer = {};
    passwd entry = {};
    Answer answer;
    errno = 0;
    answer.status = Symbol<Function>(function)(key, &entry, buffer.data(), size, &errno);
    answer.error = errno;
    if (answer.status == NSS_STATUS_SUCCESS) {
        answer.name = entry.pw_name;
        answer.uid = entry.pw_uid;
    }
    return answer;
}

using ByNameFunction = nss_status(const char*, passwd*, char*, std::size_t, int*);

Answer ByName(const char* name, std::size_t size = 1024) {
    return Ask<ByNameFunction>("_nss_nimembedded_getpwnam_r", name, size);
}
Answer ByNumber(uid_t uid) {
    return Ask<nss_status(uid_t, passwd*, char*, std::size_t, int*)>("_nss_nimembedded_getpwuid_r", uid, 1024);
}

using GroupFunction = nss_status(const char*, struct group*, char*, std::size_t, int*);

nss_status GroupStatus(const char* name) {
    std::array<char, 1024> buffer = {};
    struct group entry = {};
    int error = 0;
    return Symbol<GroupFunction>("_nss_nimembedded_getgrnam_r")(name, &entry, buffer.data(), buffer.size(), &error);
}

// Further lines of a file of the private root, for as long as it lives.
class MoreLines {
 public:
    MoreLines(std::string path, const std::string& lines) : _path(std::move(path)), _before(ReadFile(_path)) {
        WriteFile(_path, _before + lines);
    }
    MoreLines(const MoreLines&) = delete;
    MoreLines& operator=(const MoreLines&) = delete;
    ~MoreLines() { WriteFile(_path, _before); }

 private:
    std::string _path;
    std::string _before;
};

class NameService : public ::testing::Test {
 protected:
    NameService() { Empty(); }
    ~NameService() override { Empty(); }

    static void BeJoined() {
        Directory directory = Directory::Open(kDefaultDirectoryPath, OpenMode::CreateIfMissing);
        directory.AddDomain("corp.test");
        directory.AddUser("corp.test", "Alice", "Secret-1", {.mayJoin = true});
        directory.AddUser("corp.test", "not portable", "Secret-1", {});
        Host().Join("corp.test", "node01", "", {"Alice", "Secret-1"});
    }

 private:
    // Only ever in a private root: the machine's own files are not a test's to remove.
    static void Empty() {
        std::ifstream first("/proc/1/cmdline");
        if (std::string(std::istreambuf_iterator<char>(first), {}).find("private-root") == std::string::npos) {
            ADD_FAILURE() << "this program runs in a private root only";
            std::abort();
        }
        std::filesystem::remove_all("/var/lib/nimbrel");
    }
};

TEST_F(NameService, UsersAreFoundInLowerCaseAndByNumber) {
    EXPECT_EQ(ByName("alice").error, ENOENT) << "nobody is known before the join";
    BeJoined();
    const Answer alice = ByName("alice");
    EXPECT_EQ(alice.status, NSS_STATUS_SUCCESS);
    EXPECT_EQ(alice.name, "alice");
    EXPECT_EQ(alice.uid, kFirstUid + 1);
    EXPECT_EQ(ByNumber(alice.uid).name, "alice");
    for (const char* name : {"not portable", "nobody", "", "-x"}) {
        EXPECT_EQ(ByName(name).status, NSS_STATUS_NOTFOUND) << name;
    }
    for (const uid_t uid : {uid_t{0}, kFirstUid, kFirstUid + 3, uid_t{2'100'000'000}}) {
        EXPECT_EQ(ByNumber(uid).error, ENOENT) << uid;
    }
}

// A second spelling would be an unknown name to the local files, and then be answered with a name that they know.
TEST_F(NameService, NoOtherSpellingIsAnswered) {
    BeJoined();
    for (const char* name : {"Alice", "ALICE", "alicE"}) {
        EXPECT_EQ(ByName(name).status, NSS_STATUS_NOTFOUND) << name;
        EXPECT_EQ(GroupStatus(name), NSS_STATUS_NOTFOUND) << name;
    }
}

TEST_F(NameService, NameThatALocalUserOrGroupHasStaysTheHosts) {
    BeJoined();
    for (const char* path : {"/etc/group", "/etc/passwd"}) {
        for (const char* lines : {"alice:x:999:\n", "alice:x:190000000:\n", "alice:x:19000000011:\n", "alice:x:",
                                  "alice", "  alice:x:999:\n", " \t\v\f\r\n\talice:x:999:\n", "\n \n alice:x:"}) {
            const MoreLines local(path, lines);
            EXPECT_EQ(ByName("alice").status, NSS_STATUS_NOTFOUND) << path << ' ' << lines;
            EXPECT_EQ(ByNumber(kFirstUid + 1).status, NSS_STATUS_NOTFOUND) << path << ' ' << lines;
            EXPECT_EQ(GroupStatus("alice"), NSS_STATUS_NOTFOUND) << path << ' ' << lines;
        }
        for (const char* lines : {"alice:x:1900000001:\n", "  alice:x:1900000001:\n", "alice :x:999:\n# alice:x:999:\n",
                                  "xalice:x:999:\nalicex:x:998:\nx:alice:997:alice\n", "\n  \n   "}) {
            const MoreLines local(path, lines);
            EXPECT_EQ(ByName("alice").status, NSS_STATUS_SUCCESS) << path << ' ' << lines;
            EXPECT_EQ(GroupStatus("alice"), NSS_STATUS_SUCCESS) << path << ' ' << lines;
        }
    }
}

TEST_F(NameService, FilesThatCannotBeReadLeaveItOpenWhoseANameIs) {
    BeJoined();
    std::filesystem::rename("/etc/group", "/etc/group.moved");
    EXPECT_EQ(ByName("alice").status, NSS_STATUS_SUCCESS) << "nobody has it";
    std::filesystem::create_directory_symlink("/etc", "/etc/group");
    const Answer answer = ByName("alice");
    EXPECT_EQ(answer.status, NSS_STATUS_UNAVAIL);
    EXPECT_EQ(answer.error, EIO);
    std::filesystem::remove("/etc/group");
    std::filesystem::rename("/etc/group.moved", "/etc/group");
}

TEST_F(NameService, RoomThatIsTooSmallIsAskedForAgain) {
    BeJoined();
    std::size_t size = 0;
    for (; size < 1024 && ByName("alice", size).status != NSS_STATUS_SUCCESS; ++size) {
        const Answer answer = ByName("alice", size);
        ASSERT_EQ(answer.status, NSS_STATUS_TRYAGAIN) << size;
        ASSERT_EQ(answer.error, ERANGE) << size;
    }
    EXPECT_EQ(size, sizeof("alice") + sizeof("*") + sizeof("alice") + sizeof("/home/alice") + sizeof("/bin/bash"));
}

TEST_F(NameService, RoomForAGroupIsAskedForAgainToo) {
    BeJoined();
    const auto group = Symbol<GroupFunction>("_nss_nimembedded_getgrnam_r");
    alignas(char*) std::array<char, 64> buffer = {};
    struct group entry = {};
    std::size_t size = 0;
    for (; size < buffer.size() && group("alice", &entry, buffer.data(), size, &errno) != NSS_STATUS_SUCCESS; ++size) {
        ASSERT_EQ(errno, ERANGE) << size;
        errno = 0;
    }
    EXPECT_EQ(size, sizeof("alice") + sizeof("*") + sizeof(char*));
    EXPECT_STREQ(entry.gr_name, "alice");
    EXPECT_EQ(entry.gr_gid, kFirstUid + 1);
    EXPECT_EQ(entry.gr_mem[0], nullptr);
}

TEST_F(NameService, DamagedMembershipIsToldApartFromAMissingUser) {
    BeJoined();
    std::ofstream(kDefaultMembershipPath, std::ios::trunc) << std::string(4096, 'x');
    const Answer answer = ByName("alice");
    EXPECT_EQ(answer.status, NSS_STATUS_UNAVAIL);
    EXPECT_EQ(answer.error, EIO);
}

TEST_F(NameService, CallersErrnoIsLeftAlone) {
    BeJoined();
    std::array<char, 1024> buffer = {};
    passwd entry = {};
    for (const char* name : {"alice", "nobody-at-all"}) {
        int error = 0;
        errno = EXDEV;
        Symbol<ByNameFunction>("_nss_nimembedded_getpwnam_r")(name, &entry, buffer.data(), buffer.size(), &error);
        EXPECT_EQ(errno, EXDEV) << name;
    }
}

// How often the text is in this process's memory that can be written; what only a sanitizer asks for so much of is left
// out. Read by way of the kernel, into memory that is not looked through itself.
int InMemory(std::string_view text) {
    constexpr std::size_t kMost = 256 << 20;
    static char* const copy = static_cast<char*>(
        mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    const kit::Descriptor memory(open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
    int count = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        char* end = nullptr;
        const std::uintptr_t from = std::strtoul(line.c_str(), &end, 16);
        const std::size_t size = std::strtoul(end + 1, nullptr, 16) - from;
        if (line.find("rw-p") == std::string::npos || size > kMost) continue;
        const ssize_t read = pread(memory.Number(), copy, size, static_cast<off_t>(from));
        const std::string_view all(copy, read > 0 ? static_cast<std::size_t>(read) : 0);
        for (auto at = all.find(text); at != std::string_view::npos; at = all.find(text, at + 1)) ++count;
    }
    return count;
}

// A page of the file has some twenty users; a sanitizer keeps what is freed for a while.
TEST_F(NameService, PasswordHashesOfOthersAreNotLeftInTheCallersMemory) {
    BeJoined();
    const pid_t child = fork();
    if (child == 0) {
        sqlite3* file = nullptr;
        constexpr char kMany[] =
            "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) INSERT INTO users "
            "(domain_id, name, password_hash, disabled, locked, expired, password_expired, must_change_password, "
            "may_join) SELECT 1, 'user' || i, 'scrypt$15$' || i || substr(password_hash, 11), 0, 0, 0, 0, 0, 0 "
            "FROM n, (SELECT password_hash FROM users LIMIT 1)";
        if (sqlite3_open(kDefaultDirectoryPath, &file) != SQLITE_OK) LeaveChild(1);
        LeaveChild(sqlite3_exec(file, kMany, nullptr, nullptr, nullptr) == SQLITE_OK ? 0 : 2);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(ByName("user5000").status, NSS_STATUS_SUCCESS);
    EXPECT_EQ(ByNumber(kFirstUid + 7500).status, NSS_STATUS_SUCCESS);
    EXPECT_EQ(ByName("nobody-at-all").status, NSS_STATUS_NOTFOUND);
    EXPECT_LT(InMemory("scrypt$15$"), 500);
}

TEST_F(NameService, WhoChangesTheDirectoryPublishesIt) {
    BeJoined();
    EXPECT_EQ(ReadFile(kPublished), "alice:1900000001\n");
    Directory directory = Directory::Open();
    directory.AddUser("corp.test", "bob", "Secret-1");
    EXPECT_EQ(ReadFile(kPublished), "alice:1900000001\nbob:1900000003\n");
    directory.RemoveUser("corp.test", "alice");
    EXPECT_EQ(ReadFile(kPublished), "bob:1900000003\n");
    Host().Part(std::nullopt);
    EXPECT_EQ(ReadFile(kPublished), "");
    const std::string secret = directory.PreStageComputer("corp.test", "node02").oneTimeSecret;
    Host().JoinWithMachineAccount({"node02", "corp.test", "", "", "node02", secret});
    EXPECT_EQ(ReadFile(kPublished), "bob:1900000003\n");
    directory.AddDomain("other.test");
    directory.RemoveDomain("other.test");
    EXPECT_EQ(ReadFile(kPublished), "bob:1900000003\n");
    directory.RemoveDomain("corp.test");
    EXPECT_EQ(ReadFile(kPublished), "") << "the joined domain is gone, and its users with it";
}

TEST_F(NameService, DirectoryThatIsNotTheHostsIsNotPublished) {
    BeJoined();
    const TemporaryFolder folder;
    Directory other = Directory::Open(folder / "other.db", OpenMode::CreateIfMissing);
    other.AddDomain("corp.test");
    std::filesystem::remove(kPublished);
    other.AddUser("corp.test", "mallory", "Secret-1", {.mayJoin = true});
    Host(folder / "other.db", folder / "membership.db").Join("corp.test", "node01", "", {"mallory", "Secret-1"});
    EXPECT_FALSE(std::filesystem::exists(kPublished));
}

TEST_F(NameService, ChangeDoesNotFailForWhatCannotBePublished) {
    BeJoined();
    std::filesystem::create_directory(std::string(kPublished) + ".lock");
    Directory::Open().AddUser("corp.test", "bob", "Secret-1");
    EXPECT_EQ(ByName("bob").status, NSS_STATUS_SUCCESS);
    EXPECT_EQ(ReadFile(kPublished), "alice:1900000001\n");
}

// What the work returns, done by a child in a user namespace of its own. Not with unshare: a process with threads, and
// ThreadSanitizer has one, may not move to another user namespace.
int InAUserNamespace(const std::function<int()>& work) {
    const auto child = static_cast<pid_t>(syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, nullptr, nullptr, 0));
    if (child < 0) return 98;
    if (child == 0) LeaveChild(work());
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 96;
}

// A file that somebody has changed can give nobody the number of another account of the host.
TEST_F(NameService, OthersSeeWhatWasPublishedIfItIsWellFormed) {
    std::filesystem::create_directories("/var/lib/nimbrel");
    std::ofstream(kPublished) << "alice:1900000001\nroot:0\nmallory:1000\nzero:1900000000\nlarge:2000000001\n"
                                 "two words:1900000002\n-x:1900000003\nnothing\nbob:1900000004\n";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto countWrong = [] {
            int wrong = geteuid() == 65534 ? 0 : 80;
            for (const char* name : {"alice", "bob"}) wrong += ByName(name).status == NSS_STATUS_SUCCESS ? 0 : 1;
            for (const char* name : {"root", "mallory", "zero", "large", "two words", "-x", "nothing"}) {
                wrong += ByName(name).status == NSS_STATUS_NOTFOUND ? 0 : 10;
            }
            return wrong + (ByNumber(kFirstUid + 4).name == "bob" ? 0 : 1);
        };
        // An ordinary user's root has no other numbers: without any mapping it is nobody.
        const bool other = setgid(65534) == 0 && setuid(65534) == 0;
        LeaveChild(other ? countWrong() : InAUserNamespace(countWrong));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// As in "unshare --map-root-user" and in containers that ordinary users start.
TEST_F(NameService, RootOfAnOrdinaryUsersNamespaceSeesWhatWasPublished) {
    BeJoined();
    std::ofstream(kPublished) << "alice:1900000001\n";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool other = setgid(65534) == 0 && setuid(65534) == 0;
        if (prctl(PR_SET_DUMPABLE, 1) != 0) LeaveChild(99);
        LeaveChild(InAUserNamespace([other] {
            std::ofstream("/proc/self/uid_map") << "0 " << (other ? 65534 : 0) << " 1";
            if (geteuid() != 0) return 97;
            return ByName("alice").status == NSS_STATUS_SUCCESS && ByNumber(kFirstUid + 1).name == "alice" ? 0 : 1;
        }));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace nimbrel::embedded::test
