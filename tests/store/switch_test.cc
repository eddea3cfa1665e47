// Switching between the two stores with a real provider: which effects happen, in which order, and what a failing
// provider changes.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "authentication/configuration.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "store/journal.h"
#include "store/root.h"
#include "store/scripted_control.h"
#include "store/thrown.h"

namespace nimbrel::authentication::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

// How often the provider is open. A worker that has just ended a request may be the last to let go of it, a moment after
// the store is gone, so a test waits for the number that it expects.
class OpenProviders {
 public:
    static int Count() {
        const std::lock_guard lock(_mutex);
        return _count;
    }
    static void Add(int difference) {
        const std::lock_guard lock(_mutex);
        _count += difference;
        _changed.notify_all();
    }
    static void Await(int count) {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [count] { return _count == count; });
    }

 private:
    static inline std::mutex _mutex;
    static inline std::condition_variable _changed;
    static inline int _count = 0;
};

// What dlopen has answered for the provider.
std::atomic<void*> openedProvider = nullptr;

extern "C" void* __real_dlopen(const char* path, int flags);
extern "C" int __real_dlclose(void* library);

extern "C" void* __wrap_dlopen(const char* path, int flags) {
    void* const library = __real_dlopen(path, flags);
    if (library != nullptr && std::string(path) == kScriptedPath) {
        Journal::Add(flags == (RTLD_LAZY | RTLD_GLOBAL) ? "provider opened" : "provider opened with other flags");
        openedProvider = library;
        OpenProviders::Add(1);
    }
    return library;
}

extern "C" int __wrap_dlclose(void* library) {
    const bool isProvider = library == openedProvider;
    if (isProvider) Journal::Add("provider closed");
    const int result = __real_dlclose(library);
    if (isProvider) OpenProviders::Add(-1);
    return result;
}

std::string Recorded() { return AuthenticationConfiguration()["remote-authentication-store"]; }

// Ends each test, its stores gone, with the provider closed.
class ProviderClosedAtEnd : public ::testing::Test {
 protected:
    ~ProviderClosedAtEnd() override {
        OpenProviders::Await(0);
        Journal::Clear();
    }
};

class StoreSwitch : public ProviderClosedAtEnd {
 protected:
    ~StoreSwitch() override {
        OpenProviders::Await(2);
        Journal::WhenAdded(nullptr);
    }

    // Sets the record and begins a new journal.
    void StartWith(const std::string& record) {
        Record(record);
        OpenProviders::Await(2);  // this fixture's own and the directory store's
        Journal::Clear();
        _records.clear();
        Journal::WhenAdded([this](const std::string&) { _records.push_back(Recorded()); });
    }

    // What the record said at each entry of the journal.
    const std::vector<std::string>& Records() const { return _records; }

    ScriptedControl provider;
    ActiveDirectoryStore directory{60};
    NoRemoteAuthenticationStore none;

 private:
    std::vector<std::string> _records;
};

// A refresh on a host that is no member, and the calls that it makes.
const std::vector<std::string> kRefreshCalls = {"active domain", "preferred controllers", "machine account DN"};
constexpr const char* kRefreshed = "debug: AD cache updated in [0-9]+ ms";
constexpr const char* kRefreshedPartially = "warning: AD cache updated partially in [0-9]+ ms";

TEST_F(StoreSwitch, ToNoneRecordsFirstThenRefreshesThroughAStoreOfItsOwn) {
    StartWith("Active Directory");
    none.MakeActive();
    OpenProviders::Await(2);
    EXPECT_THAT(Journal::Entries(), ElementsAre("provider opened", kRefreshCalls[0], kRefreshCalls[1], kRefreshCalls[2],
                                                MatchesRegex(kRefreshed), "provider closed"));
    EXPECT_THAT(Records(), ElementsAreArray(std::vector<std::string>(6, "None")));
}

TEST_F(StoreSwitch, ToTheDirectoryRecordsFirstThenRefreshesThroughTheStoreItself) {
    StartWith("None");
    directory.MakeActive();
    EXPECT_THAT(Journal::Entries(),
                ElementsAre(kRefreshCalls[0], kRefreshCalls[1], kRefreshCalls[2], MatchesRegex(kRefreshed)));
    EXPECT_THAT(Records(), ElementsAreArray(std::vector<std::string>(4, "Active Directory")));
}

TEST_F(StoreSwitch, ToTheDirectoryRewritesARecordThatNamesItAlready) {
    StartWith("Active Directory");
    const ino_t before = StatusOfFile(kRecordFile).st_ino;
    directory.MakeActive();
    EXPECT_NE(StatusOfFile(kRecordFile).st_ino, before);
    EXPECT_THAT(Journal::Entries(), ElementsAre(kRefreshCalls[0], kRefreshCalls[1], kRefreshCalls[2], testing::_));
}

TEST_F(StoreSwitch, ToTheDirectoryAsksNothingOfTheEarlierStore) {
    for (const char* record : {"None", "none", "LDAP", ""}) {
        StartWith(record);
        directory.MakeActive();
        EXPECT_EQ(Recorded(), "Active Directory") << record;
        EXPECT_EQ(Journal::Entries().size(), 4u) << record;
    }
}

TEST_F(StoreSwitch, AndBackLeavesOneActiveStoreEachTime) {
    StartWith("None");
    directory.MakeActive();
    EXPECT_TRUE(directory.IsActive());
    EXPECT_FALSE(none.IsActive());
    none.MakeActive();
    EXPECT_FALSE(directory.IsActive());
    EXPECT_TRUE(none.IsActive());
    EXPECT_EQ(ReadFile(kRecordFile), "remote-authentication-store = \"None\"\n");
}

TEST_F(StoreSwitch, ToNoneWhenNoneIsActiveMakesNoStore) {
    StartWith("None");
    none.MakeActive();
    EXPECT_THAT(Journal::Entries(), IsEmpty());
}

TEST_F(StoreSwitch, MakingTheDirectoryInactiveRefreshesAndLeavesRecordAndDomain) {
    for (const char* record : {"Active Directory", "None", "LDAP"}) {
        StartWith(record);
        const ino_t before = StatusOfFile(kRecordFile).st_ino;
        directory.MakeInactive();
        EXPECT_THAT(Journal::Entries(), ElementsAre(kRefreshCalls[0], kRefreshCalls[1], kRefreshCalls[2], testing::_));
        EXPECT_EQ(StatusOfFile(kRecordFile).st_ino, before);
        EXPECT_EQ(directory.IsActive(), std::string("Active Directory") == record);
    }
}

TEST_F(StoreSwitch, MakingTheDirectoryInactiveDoesNotReadTheRecord) {
    Remove(kRecordFile);
    Journal::Clear();
    directory.MakeInactive();
    EXPECT_EQ(Journal::Entries().size(), 4u);
    EXPECT_THAT(Names(kSettingsFolder), ElementsAre("provider.conf"));
}

TEST_F(StoreSwitch, RefreshesAMemberWhole) {
    StartWith("None");
    provider.BecomeMember("corp.test", "CORP");
    directory.MakeActive();
    const std::vector<std::string> calls = {"active domain",
                                            "preferred controllers",
                                            "machine account DN",
                                            "trusted domains",
                                            "trust state",
                                            "trusted domains",
                                            "trust relationship(corp.test)",
                                            "trust relationship(lab.test)",
                                            "smart-card services"};
    std::vector<std::string> entries = Journal::Entries();
    ASSERT_EQ(entries.size(), calls.size() + 1);
    EXPECT_THAT(entries.back(), MatchesRegex(kRefreshed));
    entries.pop_back();
    EXPECT_EQ(entries, calls);
}

TEST_F(StoreSwitch, RefreshesTheCacheThatAllStoresShare) {
    StartWith("Active Directory");
    provider.BecomeMember("corp.test", "CORP");
    none.MakeActive();
    EXPECT_EQ(ActiveDirectoryStore::Cache().GetConfiguration().DomainDNSName(), "corp.test");
    EXPECT_EQ(ActiveDirectoryStore::Cache().GetDomainTrustRelationship("lab.test"), 3);
    provider.BecomeMember("", "");
    directory.MakeInactive();
    EXPECT_FALSE(ActiveDirectoryStore::Cache().IsDomainMember());
}

TEST_F(StoreSwitch, SucceedsWithALogLineWhenTheRefreshFails) {
    StartWith("None");
    provider.BecomeMember("corp.test", "CORP");
    provider.Answer(SCRIPTED_SMART_CARD_SERVICES, {5});
    EXPECT_NO_THROW(directory.MakeActive());
    EXPECT_TRUE(directory.IsActive());
    EXPECT_THAT(Journal::Logged(), ElementsAre("error: Failed to get smart card enabled services: "
                                               "Exception 0x00000005: Access is denied.",
                                               MatchesRegex(kRefreshedPartially)));
}

TEST_F(StoreSwitch, ToNoneSucceedsWhenTheDirectoryCannotBeReached) {
    StartWith("Active Directory");
    provider.Answer(SCRIPTED_ACTIVE_DOMAIN, {1355});
    EXPECT_NO_THROW(none.MakeActive());
    EXPECT_TRUE(none.IsActive());
    EXPECT_THAT(Journal::Logged().front(), StartsWith("error: Failed to get AD config: Exception 0x0000054b: "));
    OpenProviders::Await(2);
    EXPECT_EQ(Journal::Entries().back(), "provider closed");
}

TEST_F(StoreSwitch, ToNonePassesOnThatTheProviderCannotBeLoadedAndStaysNone) {
    StartWith("Active Directory");
    WriteSystemFile(kProviderFile, "provider = \"nosuch\"\n");
    EXPECT_EQ(TextOf<InvalidActiveDirectoryProviderException>([this] { none.MakeActive(); }),
              "The specified Active Directory provider 'nosuch' is invalid");
    EXPECT_TRUE(none.IsActive());
}

TEST_F(StoreSwitch, ToNonePassesOnThatNoProviderIsInstalledAndStaysNone) {
    StartWith("Active Directory");
    Remove(kProviderFile);
    EXPECT_EQ(TextOf<InvalidActiveDirectoryProviderException>([this] { none.MakeActive(); }),
              "The specified Active Directory provider '(none installed)' is invalid");
    EXPECT_TRUE(none.IsActive());
    EXPECT_NO_THROW(none.MakeActive());
}

TEST_F(StoreSwitch, WorksWithAProviderWithoutOperations) {
    InstallProvider("empty", STORE_EMPTY_PROVIDER);
    WriteSystemFile(kProviderFile, "provider = \"empty\"\n");
    StartWith("Active Directory");
    EXPECT_NO_THROW(none.MakeActive());
    EXPECT_THAT(Journal::Entries(), ElementsAre(MatchesRegex(kRefreshed)));
}

TEST_F(StoreSwitch, TouchesNoLoginFile) {
    StartWith("None");
    const std::string nameService = ReadFile("/etc/nsswitch.conf");
    const auto before = StatusOfFile("/etc/nsswitch.conf").st_mtim;
    const std::vector<std::string> services = Names("/etc/pam.d");
    directory.MakeActive();
    none.MakeActive();
    EXPECT_EQ(ReadFile("/etc/nsswitch.conf"), nameService);
    EXPECT_EQ(StatusOfFile("/etc/nsswitch.conf").st_mtim.tv_nsec, before.tv_nsec);
    EXPECT_EQ(Names("/etc/pam.d"), services);
}

}  // namespace
}  // namespace nimbrel::authentication::test
