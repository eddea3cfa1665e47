// The PAM module in a program whose conversation does what conversations may do: end their thread, or be cancelled.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <security/pam_appl.h>
#include <semaphore.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>

#include "embeddeddirectory/host.h"
#include "support/files.h"

namespace nimbrel::embedded::test {
namespace {

constexpr char kService[] = "nimauth-test";

enum class Does { Answer, EndTheThread, BlockForEver };

// One attempt to log in, in a thread of its own.
struct Attempt {
    const char* user;  // null: the module asks for it
    Does does;
    sem_t asked = {};
    int result = -1;
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
    pam_handle_t* handle = nullptr;
    if (pam_start(kService, attempt.user, &conversation, &handle) != PAM_SUCCESS) return nullptr;
    attempt.result = pam_authenticate(handle, 0);
    pam_end(handle, attempt.result);
    return nullptr;
}

class PamModule : public ::testing::Test {
 protected:
    static void SetUpTestSuite() {
        if (ReadFile("/proc/1/cmdline").find("private-root") == std::string::npos) {
            ADD_FAILURE() << "this program runs in a private root only";
            std::abort();
        }
        std::filesystem::copy_file(NIMAUTH_NAME_SERVICE_MODULE,
                                   "/usr/lib/" NIMAUTH_MULTIARCH "/libnss_nimembedded.so.2");
        WriteFile("/etc/nsswitch.conf", "passwd: files nimembedded\ngroup: files nimembedded\n");
        WriteFile(std::string("/etc/pam.d/") + kService,
                  "auth required " NIMAUTH_PAM_MODULE "\naccount required " NIMAUTH_PAM_MODULE "\n");
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
    static bool Ends(pthread_t thread) {
        struct timespec end = {};
        clock_gettime(CLOCK_REALTIME, &end);
        end.tv_sec += 30;
        return pthread_timedjoin_np(thread, nullptr, &end) == 0;
    }
};

TEST_F(PamModule, AskedForPasswordIsChecked) {
    Attempt attempt{"alice", Does::Answer};
    ASSERT_TRUE(Ends(Begin(attempt)));
    EXPECT_EQ(attempt.result, PAM_SUCCESS);
}

TEST_F(PamModule, ConversationMayEndItsThread) {
    for (const char* user : {static_cast<const char*>(nullptr), "alice"}) {
        Attempt attempt{user, Does::EndTheThread};
        ASSERT_TRUE(Ends(Begin(attempt)));
        EXPECT_EQ(attempt.result, -1) << "nothing came back";
    }
}

TEST_F(PamModule, ConversationMayBeCancelled) {
    for (const char* user : {static_cast<const char*>(nullptr), "alice"}) {
        Attempt attempt{user, Does::BlockForEver};
        const pthread_t thread = Begin(attempt);
        sem_wait(&attempt.asked);
        ASSERT_EQ(pthread_cancel(thread), 0);
        ASSERT_TRUE(Ends(thread));
        EXPECT_EQ(attempt.result, -1) << "nothing came back";
    }
}

}  // namespace
}  // namespace nimbrel::embedded::test
