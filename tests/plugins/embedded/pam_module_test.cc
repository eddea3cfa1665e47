// The PAM module in a program whose conversation does what conversations may do: end their thread, or be cancelled.

#include <gtest/gtest.h>
#include <pthread.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <semaphore.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "embeddeddirectory/host.h"
#include "support/files.h"
#include "support/leave_child.h"
#include "support/run_program.h"

namespace nimbrel::embedded::test {
namespace {

constexpr char kService[] = "nimauth-test";
constexpr uid_t kNobody = 65534;

enum class Does { Answer, EndTheThread, BlockForEver };

// One attempt to log in, in a thread of its own.
struct Attempt {
    const char* user;  // null: the module asks for it
    Does does;
    sem_t asked = {};
    int result = -1;
    pam_handle_t* handle = nullptr;
};

int Converse(int count, const struct pam_message**, struct pam_response** responses, void* data) {
    auto& attempt = *static_cast<Attempt*>(data);
    sem_post(&attempt.asked);
    if (attempt.does == Does::EndTheThread) pthread_exit(nullptr);
    while (attempt.does == Does::BlockForEver) pause();
    *responses = static_cast<struct pam_response*>(std::calloc(static_cast<std::size_t>(count), sizeof **responses));
    for (int i = 0; i < count; ++i) (*responses)[i].resp = strdup("Secret-1");
    return PAM_SUCCESS;
}

void* LogIn(void* data) {
    auto& attempt = *static_cast<Attempt*>(data);
    const struct pam_conv conversation = {Converse, data};
    if (pam_start(kService, attempt.user, &conversation, &attempt.handle) != PAM_SUCCESS) return nullptr;
    attempt.result = pam_authenticate(attempt.handle, 0);
    return nullptr;
}

class PamModule : public ::testing::Test {
 protected:
    // Once for all suites: a password's hash is slow by design.
    static void SetUpTestSuite() {
        if (ReadFile("/proc/1/cmdline").find("private-root") == std::string::npos) {
            ADD_FAILURE() << "this program runs in a private root only";
            std::abort();
        }
        if (std::filesystem::exists(kDefaultMembershipPath)) return;
        std::filesystem::copy_file(NIMAUTH_NAME_SERVICE_MODULE, "/usr/lib/libnss_nimembedded.so.2");
        WriteFile("/etc/nsswitch.conf", "passwd: files nimembedded\ngroup: files nimembedded\n");
        // An ordinary user's root cannot write in the machine's own folder.
        ASSERT_EQ(mount("tmpfs", "/etc/pam.d", "tmpfs", 0, "mode=0755"), 0);
        WriteFile(std::string("/etc/pam.d/") + kService,
                  "auth required " NIMAUTH_PAM_MODULE "\naccount required " NIMAUTH_PAM_MODULE
                  "\nsession required " NIMAUTH_PAM_MODULE "\n");
        Directory directory = Directory::Open(kDefaultDirectoryPath, OpenMode::CreateIfMissing);
        directory.AddDomain("corp.test");
        directory.AddUser("corp.test", "alice", "Secret-1", {.mayJoin = true});
        Host().Join("corp.test", "node01", "", {"alice", "Secret-1"});
    }

    static pthread_t Begin(Attempt& attempt) {
        sem_init(&attempt.asked, 0, 0);
        pthread_t thread = {};
        EXPECT_EQ(pthread_create(&thread, nullptr, LogIn, &attempt), 0);
        return thread;
    }
    // False if the thread still runs after half a minute.
    static bool Ends(Attempt& attempt, pthread_t thread) {
        struct timespec end = {};
        clock_gettime(CLOCK_REALTIME, &end);
        end.tv_sec += 30;
        if (pthread_timedjoin_np(thread, nullptr, &end) != 0) return false;
        pam_end(attempt.handle, PAM_SUCCESS);
        return true;
    }
    static bool Ends(Attempt& attempt) { return Ends(attempt, Begin(attempt)); }
};

TEST_F(PamModule, AskedForPasswordIsChecked) {
    Attempt attempt{"alice", Does::Answer};
    ASSERT_TRUE(Ends(attempt));
    EXPECT_EQ(attempt.result, PAM_SUCCESS);
}

// In a process of its own: libpam takes a handle whose module never came back for one in use, and keeps it.
int InAChild(const std::function<bool()>& holds) {
    const pid_t child = fork();
    if (child == 0) LeaveChild(holds() ? 0 : 1);
    int result = 0;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    return result;
}

TEST_F(PamModule, ConversationMayEndItsThread) {
    for (const char* user : {static_cast<const char*>(nullptr), "alice"}) {
        const auto endsWithoutAResult = [user] {
            Attempt attempt{user, Does::EndTheThread};
            return Ends(attempt) && attempt.result == -1;
        };
        EXPECT_EQ(InAChild(endsWithoutAResult), 0);
    }
}

TEST_F(PamModule, ConversationMayBeCancelled) {
    for (const char* user : {static_cast<const char*>(nullptr), "alice"}) {
        const auto endsWithoutAResult = [user] {
            Attempt attempt{user, Does::BlockForEver};
            const pthread_t thread = Begin(attempt);
            sem_wait(&attempt.asked);
            return pthread_cancel(thread) == 0 && Ends(attempt, thread) && attempt.result == -1;
        };
        EXPECT_EQ(InAChild(endsWithoutAResult), 0);
    }
}

// --- Publishing ---

constexpr char kPublished[] = "/var/lib/nimbrel/embedded-accounts";

void OpenSession() {
    const struct pam_conv conversation = {Converse, nullptr};
    pam_handle_t* handle = nullptr;
    ASSERT_EQ(pam_start(kService, "alice", &conversation, &handle), PAM_SUCCESS);
    EXPECT_EQ(pam_open_session(handle, 0), PAM_SUCCESS);
    EXPECT_EQ(pam_end(handle, PAM_SUCCESS), PAM_SUCCESS);
}

// Without hashing passwords.
void AddUsers(int count) {
    const std::string many =
        "WITH RECURSIVE n (i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < " + std::to_string(count) +
        ") INSERT INTO users (domain_id, name, password_hash, disabled, locked, expired, password_expired, "
        "must_change_password, may_join) SELECT 1, 'user' || i, '', 0, 0, 0, 0, 0, 0 FROM n";
    sqlite3* file = nullptr;
    ASSERT_EQ(sqlite3_open(kDefaultDirectoryPath, &file), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(file, many.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(file);
}

TEST_F(PamModule, SessionPublishesWhatWasChangedBeforeIt) {
    constexpr int kThreads = 8;
    constexpr int kEach = 10;
    AddUsers(kThreads * kEach);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i] {
            for (int user = i * kEach; user < (i + 1) * kEach; ++user) {
                const std::string name = "user" + std::to_string(user);
                Directory::Open().RemoveUser("corp.test", name);
                OpenSession();
                EXPECT_EQ(ReadFile(kPublished).find(name + ':'), std::string::npos) << name;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(ReadFile(kPublished), "alice:1900000001\n");
    for (const auto& entry : std::filesystem::directory_iterator("/var/lib/nimbrel")) {
        const std::string file = entry.path().filename();
        EXPECT_TRUE(file == "embedded-accounts" || file.find("embedded-accounts") == std::string::npos) << file;
    }
}

TEST_F(PamModule, WhatAKilledPublisherLeftIsTakenOver) {
    std::filesystem::remove(kPublished);
    std::filesystem::create_symlink("/var/lib/nimbrel/victim", std::string(kPublished) + ".new");
    OpenSession();
    EXPECT_EQ(ReadFile(kPublished).substr(0, 17), "alice:1900000001\n");
    EXPECT_FALSE(std::filesystem::exists("/var/lib/nimbrel/victim"));
    struct stat status = {};
    ASSERT_EQ(stat(kPublished, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

// --- Programs with other rights than their starter's ---

// What the helper prints that this user starts, from a file with these rights.
std::string LogInBy(uid_t starter, uid_t owner, gid_t group, mode_t mode) {
    const std::string program = "/usr/bin/log-in-helper";
    std::filesystem::copy_file(NIMAUTH_LOG_IN_HELPER, program, std::filesystem::copy_options::overwrite_existing);
    // An ordinary user's root has no numbers but its own, and no program with a group's rights.
    const bool given = chown(program.c_str(), owner, group) == 0;
    EXPECT_TRUE(given || errno == EINVAL) << errno;
    EXPECT_EQ(chmod(program.c_str(), mode), 0);
    return nimbrel::testing::RunProgram(program, {.arguments = {kService, "alice"}, .user = starter}).output;
}

bool HasAllNumbers() { return ReadFile("/proc/self/uid_map").find("4294967295") != std::string::npos; }

// As one in another SELinux domain, which the kernel takes for unsafe as well.
TEST_F(PamModule, ProgramThatRootStartedIsRootsOwnWhateverItsFileAdds) {
    std::filesystem::remove(kPublished);
    const std::string secure = HasAllNumbers() ? "secure 1\n" : "secure 0\n";
    EXPECT_EQ(LogInBy(0, 0, kNobody, 02755), secure + "user 1900000001\naccount 0\nsession 0\n");
    EXPECT_EQ(ReadFile(kPublished).substr(0, 17), "alice:1900000001\n");
}

TEST_F(PamModule, ProgramThatAnOrdinaryUserStartedPublishesNothing) {
    WriteFile(kPublished, "alice:1900000001\nold:1900000077\n");
    const std::string secure = "secure 1\nuser 1900000001\naccount " + std::to_string(PAM_SUCCESS) + "\nsession 0\n";
    // Without any rights, where files cannot give them.
    const std::string plain =
        "secure 0\nuser 1900000001\naccount " + std::to_string(PAM_AUTHINFO_UNAVAIL) + "\nsession 0\n";
    EXPECT_EQ(LogInBy(kNobody, 0, 0, 06755), HasAllNumbers() ? secure : plain);
    EXPECT_EQ(ReadFile(kPublished), "alice:1900000001\nold:1900000077\n");
}

// --- Disks that take nothing ---

constexpr char kFolder[] = "/var/lib/nimbrel";

// Another file system over the folder, for as long as it lives.
class Mounted {
 public:
    Mounted() = default;
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;
    ~Mounted() { EXPECT_EQ(umount2(kFolder, MNT_DETACH), 0); }
};

class PamModuleOnADiskThatTakesNothing : public PamModule, public ::testing::WithParamInterface<const char*> {
 protected:
    // With the log and the index as the last one to close the files leaves them, or not.
    static void Prepare() {
        for (const char* path : {kDefaultDirectoryPath, kDefaultMembershipPath}) {
            for (const char* companion : {"-wal", "-shm"}) {
                const std::string file = std::string(path) + companion;
                std::filesystem::remove(file);
                if (std::strcmp(GetParam(), "WithLogs") == 0) WriteFile(file, "");
            }
        }
    }

    // Both modules, as root.
    static void ExpectAlice() {
        Attempt attempt{"alice", Does::Answer};
        ASSERT_TRUE(Ends(attempt));
        EXPECT_EQ(attempt.result, PAM_SUCCESS);
        const struct passwd* alice = getpwnam("alice");
        ASSERT_NE(alice, nullptr);
        EXPECT_EQ(alice->pw_uid, 1'900'000'001U);
    }
};

TEST_P(PamModuleOnADiskThatTakesNothing, LogsInOnAReadOnlyOne) {
    Prepare();
    ASSERT_EQ(mount(kFolder, kFolder, nullptr, MS_BIND, nullptr), 0);
    const Mounted mounted;
    ASSERT_EQ(mount(nullptr, kFolder, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | MS_NOSUID | MS_NODEV, nullptr), 0);
    ASSERT_EQ(mkdir((std::string(kFolder) + "/new").c_str(), 0700), -1);
    ExpectAlice();
}

// As many files as there are, and no room for a byte or a name more.
TEST_P(PamModuleOnADiskThatTakesNothing, LogsInOnAFullOne) {
    Prepare();
    const std::filesystem::path copy = "/srv/copy";
    std::filesystem::copy(kFolder, copy);
    const long files = std::distance(std::filesystem::directory_iterator(copy), {});
    const std::string options = "size=1m,mode=0755,nr_inodes=" + std::to_string(files + 2);
    ASSERT_EQ(mount("tmpfs", kFolder, "tmpfs", 0, options.c_str()), 0);
    const Mounted mounted;
    for (const auto& entry : std::filesystem::directory_iterator(copy)) {
        std::filesystem::copy_file(entry.path(), kFolder / entry.path().filename());
    }
    std::filesystem::remove_all(copy);
    std::ofstream(std::string(kFolder) + "/filling") << std::string(2 << 20, 'x');
    ASSERT_EQ(std::filesystem::space(kFolder).available, 0U);
    ASSERT_EQ(mkdir((std::string(kFolder) + "/new").c_str(), 0700), -1);
    ExpectAlice();
}

INSTANTIATE_TEST_SUITE_P(Files, PamModuleOnADiskThatTakesNothing, ::testing::Values("WithLogs", "WithoutLogs"),
                         [](const auto& row) { return std::string(row.param); });

}  // namespace
}  // namespace nimbrel::embedded::test
