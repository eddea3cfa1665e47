// Making the directory store by name, which loads its provider.

#include "authentication/store_factory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <functional>
#include <memory>
#include <utility>

#include "authentication/background_work.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "store/journal.h"
#include "store/root.h"
#include "store/scripted_control.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;

// How long the last wait was to be; no wait lasts.
long waitedSeconds = -1;

extern "C" int __wrap_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec* deadline) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    waitedSeconds = deadline->tv_sec - now.tv_sec;
    return ETIMEDOUT;
}

using Factory = AuthenticationStoreFactory;

Factory& TheFactory() { return *Singleton<Factory>::_instance; }

TEST(StoreFactory, CreatesTheDirectoryStoreWithItsProvider) {
    const ScriptedControl provider;
    const auto store = TheFactory().CreateInstance("Active Directory");
    ASSERT_NE(dynamic_cast<ActiveDirectoryStore*>(store.get()), nullptr);
    EXPECT_EQ(store->GetDisplayName(), "Active Directory");
}

TEST(StoreFactory, GivesTheDirectoryStoreSixtySecondsToAnswer) {
    Journal::Clear();
    const ScriptedControl provider;
    std::function<void()> held;
    NimauthThreadUtil::SetScheduler([&held](std::function<void()> work) { held = std::move(work); });
    const auto store = TheFactory().CreateInstance("Active Directory");
    const std::unique_ptr<StoreConfiguration> stale(store->GetStoreConfiguration());
    held();
    NimauthThreadUtil::SetScheduler(nullptr);
    EXPECT_TRUE(waitedSeconds > 40 && waitedSeconds <= 60) << waitedSeconds;
    EXPECT_THAT(Journal::Logged(),
                ElementsAre("warning: GetStoreConfiguration call timedout. Returning cached value."));
}

TEST(StoreFactory, PassesOnWhatADamagedProviderSettingThrows) {
    WriteSystemFile(kProviderFile, "provider = \"nosuch\"\n");
    EXPECT_THROW(TheFactory().CreateInstance("Active Directory"), InvalidActiveDirectoryProviderException);
}

TEST(StoreFactory, HasAConstructorForTheDirectoryStore) {
    const ScriptedControl provider;
    EXPECT_EQ(Constructor<ActiveDirectoryStore>()->GetDisplayName(), "Active Directory");
}

}  // namespace
}  // namespace nimbrel::authentication::test
