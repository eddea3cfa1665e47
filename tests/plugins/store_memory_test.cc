// A background body for which memory runs out: a failure never passes for an answer, and the request always ends. And what
// needs no memory.

#include <atomic>
#include <functional>
#include <new>
#include <thread>

#include "authentication/background_work.h"
#include "authentication/exceptions.h"
#include "plugins/store_fixture.h"

namespace {

// While true, every allocation of the library fails on the threads of its background work.
std::atomic<bool> memoryIsOut = false;
std::atomic<int> allocations = 0;
thread_local bool isWorker = false;

}  // namespace

// What the compiler calls for `new` of anything with an ordinary alignment.
extern "C" {

void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size);

void* __wrap__Znwm(std::size_t size) {
    ++allocations;
    if (memoryIsOut && isWorker) throw std::bad_alloc();
    return __real__Znwm(size);
}

}  // extern "C"

namespace nimbrel::authentication::test {
namespace {

constexpr char kUnexpected[] = "Thread Error: Unexpected thread termination";
const char* const kLab[] = {"lab.test", "LAB", nullptr};

class StoreMemory : public ScriptedStoreTest {
 protected:
    StoreMemory() {
        NimauthThreadUtil::SetScheduler([](std::function<void()> work) {
            std::thread([work = std::move(work)] {
                isWorker = true;
                work();
            }).detach();
        });
    }
    ~StoreMemory() override {
        memoryIsOut = false;
        NimauthThreadUtil::SetScheduler({});
    }

    // What a caller hears whose query has no memory from the moment on at which the provider has been asked.
    std::string HeardOnceAsked() {
        plugin->hold(kGetTrustedDomains);
        Impatient().GetTrustedDomains();
        const auto request = OpenStore::Request("TrustedDomains");
        plugin->awaitCalls(kGetTrustedDomains, 1);
        memoryIsOut = true;
        plugin->letGo(kGetTrustedDomains);
        const std::string text = TextOf<Exception>([&] { request->WaitResult(kPatient); });
        memoryIsOut = false;
        return text;
    }
};

TEST_F(StoreMemory, AnAnswerThatCannotBeKeptIsAFailure) {
    plugin->setTexts(kGetTrustedDomains, kLab);
    EXPECT_EQ(HeardOnceAsked(), kUnexpected);
    OpenStore::AwaitAllRequests();
}

TEST_F(StoreMemory, AFailureThatCannotBeToldIsTheThreadsOwn) {
    plugin->setStatus(kGetTrustedDomains, 1311);
    EXPECT_EQ(HeardOnceAsked(), kUnexpected);
    OpenStore::AwaitAllRequests();
}

// Not even for the error: that was made when the request was.
TEST_F(StoreMemory, AWorkerWithoutAnyEndsItsRequestWithAnError) {
    OpenStore::MutableCache().SetTrustedDomains({Domain("lab.test", "LAB")});
    plugin->setTexts(kGetTrustedDomains, kLab);
    memoryIsOut = true;
    const std::string text = TextOf<Exception>([&] { Patient().GetTrustedDomains(); });
    memoryIsOut = false;
    EXPECT_EQ(text, kUnexpected);
    OpenStore::AwaitAllRequests();
}

TEST_F(StoreMemory, SmartCardServicesReachTheProviderWithoutAnAllocation) {
    const ActiveDirectoryProvider provider("scripted");
    const std::vector<std::string> services(100, "a service with a name of some length");
    const int before = allocations;
    provider.SetSmartCardEnabledServices(services);
    EXPECT_EQ(allocations, before);
    provider.SetPreferredDomainControllers({"dc1.corp.test"});
    EXPECT_GT(allocations, before) << "nothing is counted";
}

}  // namespace
}  // namespace nimbrel::authentication::test
