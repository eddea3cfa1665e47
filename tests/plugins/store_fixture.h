// What tests of the directory store share: a store over the provider "scripted" in a private root, its system log, and
// a cache and a request table that are as new.
//
//     TEST_F(StoreQueries, ...) {
//         plugin->setTexts(kGetTrustedDomains, kLabAndSub);
//         EXPECT_EQ(store().GetTrustedDomains().size(), 2u);
//         EXPECT_THAT(log.Take(), IsEmpty());
//     }

#ifndef TESTS_PLUGINS_STORE_FIXTURE_H_
#define TESTS_PLUGINS_STORE_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "authentication/directory_store.h"
#include "plugins/misbehaving/scripted.h"
#include "plugins/provider_root.h"
#include "support/system_log.h"

namespace nimbrel::authentication::test {

// Time-outs of stores: one that never passes in a test, and one that has passed before the wait begins.
inline constexpr int kPatient = 60;
inline constexpr int kImpatient = 0;

// The store with its background side open.
class OpenStore : public ActiveDirectoryStore {
 public:
    using ActiveDirectoryStore::ActiveDirectoryStore;
    using ActiveDirectoryStore::FinishRequest;
    using ActiveDirectoryStore::GetDomainTrustStateInt;
    using ActiveDirectoryStore::StartOrAttachToRequest;

    // The cache, to be filled by a test.
    static ADCache& MutableCache() { return _adCache; }

    // The request under `key`, or null.
    static std::shared_ptr<RequestState> Request(const std::string& key);

    // How many requests are outstanding.
    static std::size_t RequestCount();

    // Returns when all requests that are outstanding now have left the table.
    static void AwaitAllRequests();

    // Makes the cache's contents those of a process that has just started.
    static void ResetCache();
};

// Installs a provider, lets provider.conf name it, and cleans up after the requests of each test.
class StoreTest : public ::testing::Test {
 protected:
    explicit StoreTest(const std::string& builtProvider);
    ~StoreTest() override;

    // A new store on the provider, with this time-out.
    static std::unique_ptr<OpenStore> MakeStore(int timeout) { return std::make_unique<OpenStore>(timeout); }

    SystemLog log;
};

// The same with the provider "scripted" and control over it. Nothing is held any more when the test ends.
class ScriptedStoreTest : public StoreTest {
 protected:
    ScriptedStoreTest();
    ~ScriptedStoreTest() override;

    OpenStore& Patient() { return *_patient; }
    OpenStore& Impatient() { return *_impatient; }

    // Makes the provider say that the host is a member of corp.test, CORP, and the cache know it.
    void BecomeMember();

    // The slots that the provider was called in, in order.
    std::vector<int> Order();

    Plugin<ScriptedControl> plugin;

 private:
    std::unique_ptr<OpenStore> _patient;
    std::unique_ptr<OpenStore> _impatient;
};

inline LogRecord Debug(const std::string& text) { return {LOG_DEBUG, text}; }
inline LogRecord Warning(const std::string& text) { return {LOG_WARNING, text}; }
inline LogRecord Error(const std::string& text) { return {LOG_ERR, text}; }

// A record of this priority whose text is `start` + digits + " ms".
MATCHER_P2(Took, priority, start, "") {
    const std::string& text = arg.text;
    const std::string prefix = start;
    if (arg.priority != priority || text.compare(0, prefix.size(), prefix) != 0) return false;
    std::size_t digits = text.find_first_not_of("0123456789", prefix.size());
    return digits != prefix.size() && digits != std::string::npos && text.substr(digits) == " ms";
}

// What `call` throws: its class by the type of `Error`, and its text.
template <typename Error, typename Call>
std::string TextOf(Call call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "(nothing was thrown)";
}

}  // namespace nimbrel::authentication::test

#endif  // TESTS_PLUGINS_STORE_FIXTURE_H_
