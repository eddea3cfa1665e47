// The built plug-in in a private root, which has no domain and a name server that refuses.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "addirectory/host.h"
#include "authentication/provider_abi.h"
#include "files.h"
#include "host_state.h"
#include "sandbox.h"

namespace nimbrel::ad::test {
namespace {

void* LoadModule() {
    void* module = dlopen(NIMAUTH_AD_MODULE, RTLD_LAZY | RTLD_GLOBAL);
    if (!module) {
        ADD_FAILURE() << dlerror();
        std::abort();
    }
    return module;
}

template <class Record>
const Record& Symbol(const char* name) {
    static void* module = LoadModule();
    const void* symbol = dlsym(module, name);
    if (!symbol) {
        ADD_FAILURE() << dlerror();
        std::abort();
    }
    return *static_cast<const Record*>(symbol);
}

const NimauthProviderOperations& Table() {
    return Symbol<NimauthProviderOperations>("ActiveDirectoryClientOperations");
}

template <class Call>
std::uint32_t TextStatus(const Call& call, std::string* answer = nullptr) {
    char* text = nullptr;
    NimauthRelease release = nullptr;
    const std::uint32_t status = call(&text, &release);
    EXPECT_EQ(text != nullptr, status == 0);
    EXPECT_EQ(release != nullptr, status == 0);
    if (text) {
        if (answer) {
            *answer = text;
        }
        release(text);
    }
    return status;
}

std::uint32_t Join(const char* domain = "corp.test", const char* unit = nullptr) {
    const Credentials credentials = {"admin1", "Very-Secret-77"};
    return Table().joinDomain(domain, unit, &credentials);
}

// Each test on a host that has not joined.
class AdProvider : public ::testing::Test {
 protected:
    AdProvider() { Empty(); }
    ~AdProvider() override { Empty(); }

    static void BeJoined() {
        HostState state;
        state.membership = Membership{"corp.test", "CORP", "S-1-5-21-1-2-3", "NODE01", "CN=NODE01,DC=corp,DC=test"};
        state.Save("/var/lib/nimbrel/ad/membership");
    }

 private:
    // Only ever in a private root: the machine's own files are not a test's to remove.
    static void Empty() {
        if (ReadFile("/proc/1/cmdline").find("private-root") == std::string::npos) {
            ADD_FAILURE() << "this program runs in a private root only";
            std::abort();
        }
        std::filesystem::remove_all("/var/lib/nimbrel");
        std::filesystem::remove("/etc/nimbrel/nimauth/ad.conf");
        std::filesystem::remove("/etc/krb5.keytab");
        std::filesystem::create_directories("/etc/nimbrel/nimauth");
    }
};

TEST_F(AdProvider, MetadataAndVersions) {
    const auto& metadata = Symbol<NimauthProviderMetadata>("ActiveDirectoryClientMetadata");
    EXPECT_EQ(metadata.apiVersion, 3);
    EXPECT_STREQ(metadata.pamModule, "pam_sss.so");
    EXPECT_EQ(metadata.pamModuleParameters, nullptr);
    EXPECT_STREQ(metadata.nssModule, "sss");
    EXPECT_EQ(metadata.nssModuleParameters, nullptr);
    EXPECT_EQ(Table().tableVersion, 2);
    EXPECT_EQ(Table().unused, nullptr);
}

TEST_F(AdProvider, NothingElseIsExported) {
    void* module = LoadModule();
    EXPECT_NE(dlsym(module, "ActiveDirectoryClientOperations"), nullptr);
    EXPECT_EQ(dlsym(module, "_ZN7nimbrel2ad6Secret6RandomEv"), nullptr);
    EXPECT_EQ(dlsym(module, "ReleaseResult"), nullptr);
}

TEST_F(AdProvider, MissingArguments) {
    NimauthRelease release = nullptr;
    char* text = nullptr;
    char** texts = nullptr;
    NimauthDomainRecord domain = {};
    NimauthDomainRecord** domains = nullptr;
    const Credentials incomplete = {"admin1", nullptr};
    const NimauthDirectoryDomainRecord directory = {"", "", "corp.test", ""};
    const NimauthMachineAccountRecord account = {"node01", "", "", "NODE01$", nullptr};
    EXPECT_EQ(Table().joinDomain(nullptr, nullptr, &incomplete), 87U);
    EXPECT_EQ(Table().joinDomain("corp.test", nullptr, nullptr), 87U);
    EXPECT_EQ(Table().joinDomain("corp.test", nullptr, &incomplete), 87U);
    EXPECT_EQ(Table().partDomain(&incomplete), 87U);
    EXPECT_EQ(Table().getActiveDomain(nullptr, &release), 87U);
    EXPECT_EQ(Table().getActiveDomain(&domain, nullptr), 87U);
    EXPECT_EQ(Table().setPreferredDomainControllers(nullptr), 87U);
    EXPECT_EQ(Table().getPreferredDomainControllers(&texts, nullptr), 87U);
    EXPECT_EQ(Table().getTrustedDomains(nullptr, &release), 87U);
    EXPECT_EQ(Table().getTrustedDomains(&domains, nullptr), 87U);
    EXPECT_EQ(Table().getMachineAccountDN(&text, nullptr), 87U);
    EXPECT_EQ(Table().getAnyDomainController(nullptr, nullptr, &text, &release), 87U);
    EXPECT_EQ(Table().convertCanonicalUsername(nullptr, &text, &release), 87U);
    EXPECT_EQ(Table().joinDomainWithMachineAccount(&directory, nullptr), 87U);
    EXPECT_EQ(Table().joinDomainWithMachineAccount(&directory, &account), 87U);
    EXPECT_EQ(Table().getHostPrincipalForDomain(nullptr, &text, &release), 87U);
    EXPECT_EQ(Table().setSmartCardEnabledServices(nullptr), 87U);
    EXPECT_EQ(Table().getSmartCardEnabledServices(nullptr, &release), 87U);
    EXPECT_EQ(Table().getDomainTrustRelationship(nullptr), kRelationshipNotMember);
}

TEST_F(AdProvider, NotJoined) {
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNotMember);
    EXPECT_EQ(Table().partDomain(nullptr), 2692U);
    std::string text = "x";
    EXPECT_EQ(TextStatus(Table().getMachineAccountDN, &text), 0U);
    EXPECT_EQ(text, "");
    NimauthDomainRecord domain = {};
    NimauthRelease release = nullptr;
    ASSERT_EQ(Table().getActiveDomain(&domain, &release), 0U);
    EXPECT_STREQ(domain.dnsName, "");
    EXPECT_STREQ(domain.netbiosName, "");
    release(domain.dnsName);
    release(domain.netbiosName);
}

TEST_F(AdProvider, JoinWithoutADomainEndsSoon) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Join(), 1355U);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30)) << "half of what a join has";
    EXPECT_EQ(Join("no good"), 1212U);
    EXPECT_EQ(Join("corp.test", "a//b"), 267U);
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNotMember);
    EXPECT_FALSE(std::filesystem::exists("/etc/krb5.keytab"));
}

TEST_F(AdProvider, JoinedHostIsNotJoinedAgainAndForgetsWithoutADomain) {
    BeJoined();
    EXPECT_EQ(Join("no good"), 2691U);
    EXPECT_EQ(Table().getDomainTrustRelationship("CORP"), kRelationshipOwnDomain);
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNoController);
    std::string text;
    EXPECT_EQ(
        TextStatus([](char** out,
                      NimauthRelease* release) { return Table().getHostPrincipalForDomain("corp.test", out, release); },
                   &text),
        0U);
    EXPECT_EQ(text, "host/node01.corp.test@CORP.TEST");
    EXPECT_EQ(Table().partDomain(nullptr), 0U);
    EXPECT_EQ(Table().partDomain(nullptr), 2692U);
}

TEST_F(AdProvider, MalformedSettingsAreAnErrorOfEveryCall) {
    WriteFile("/etc/nimbrel/nimauth/ad.conf", "query_second = 5\n");
    EXPECT_EQ(Join(), 1610U);
    EXPECT_EQ(TextStatus(Table().getMachineAccountDN), 1610U);
    EXPECT_EQ(Table().getDomainTrustState(), kTrustStateUnreadable);
    EXPECT_EQ(Table().getDomainTrustRelationship("corp.test"), kRelationshipUnreadable);
}

TEST_F(AdProvider, ManyThreadsAtOnce) {
    BeJoined();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 5; ++round) {
                const char* controllers[] = {"dc1.corp.test", nullptr};
                EXPECT_EQ(Table().setPreferredDomainControllers(controllers), 0U);
                EXPECT_EQ(TextStatus(Table().getMachineAccountDN), 0U);
                EXPECT_EQ(Table().getDomainTrustRelationship("corp.test"), kRelationshipOwnDomain);
                EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNoController);
                EXPECT_EQ(Join(), 2691U);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

// Runs `work` in a process of its own, which ends by exit(7) while the work's threads are still in calls.
template <class Work>
void ExpectCleanExit(const Work& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        std::exit(7);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

// A name server of loopback that never answers.
class SilentNameServer {
 public:
    SilentNameServer() : _socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(53);
        EXPECT_EQ(bind(_socket.Number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    void AwaitQuestion() const {
        char byte = 0;
        EXPECT_EQ(recv(_socket.Number(), &byte, 1, 0), 1);
    }

 private:
    kit::Descriptor _socket;
};

TEST_F(AdProvider, ProcessExitsWhileACallWaits) {
    BeJoined();
    WriteFile("/etc/nimbrel/nimauth/ad.conf", "name_servers = 127.0.0.1\nname_seconds = 60\nquery_seconds = 60\n");
    const SilentNameServer nameServer;
    const auto start = std::chrono::steady_clock::now();
    ExpectCleanExit([&nameServer] {
        std::thread([] { Table().getDomainTrustState(); }).detach();
        nameServer.AwaitQuestion();
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST_F(AdProvider, ProcessExitsInTheMiddleOfManyCalls) {
    BeJoined();
    for (int round = 0; round < 10; ++round) {
        ExpectCleanExit([] {
            static std::atomic<int> answers = 0;
            for (int i = 0; i < 4; ++i) {
                std::thread([] {
                    while (true) {
                        Table().getDomainTrustState();
                        ++answers;
                    }
                }).detach();
            }
            while (answers < 50) {
                std::this_thread::yield();
            }
        });
    }
}

// A child made while other threads wait in calls can use the provider itself.
TEST_F(AdProvider, ForkWaitsForNobodyWhoWaits) {
    BeJoined();
    WriteFile("/etc/nimbrel/nimauth/ad.conf", "name_servers = 127.0.0.1\nname_seconds = 2\n");
    const SilentNameServer nameServer;
    std::thread asking([] { EXPECT_EQ(Table().getDomainTrustState(), kTrustStateNoController); });
    nameServer.AwaitQuestion();
    const pid_t child = fork();
    if (child == 0) {
        _exit(Table().getDomainTrustRelationship("corp.test") == kRelationshipOwnDomain ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    asking.join();
}

}  // namespace
}  // namespace nimbrel::ad::test
