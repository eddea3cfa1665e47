// Several processes at one configuration store, some of which die in the middle of a write.

#include <atomic>
#include <chrono>
#include <thread>

#include "config_store.h"
#include "host.h"

namespace {

const auto* const kPrivateRoot = host::RequirePrivateRoot();
const std::string kWriter = CONFIG_STORE_WRITER;

std::shared_ptr<ConfigStore> Open() { return ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace); }

class ConfigStoreProcesses : public ::testing::Test {
 protected:
    ~ConfigStoreProcesses() override { std::filesystem::remove_all("/var/lib/nimbrel"); }

    // The stamp of the object that all writers write, after checking that it is whole.
    static std::string Stamp() {
        const auto values = ReadObject(*Open(), ContractId("stamped"));
        if (!values) return "";
        EXPECT_EQ(values->at("a"), values->at("b"));
        EXPECT_EQ(values->at("a"), values->at("c"));
        return values->at("a");
    }
};

TEST_F(ConfigStoreProcesses, TwoWritersOfOneObjectNeverTearIt) {
    host::Child first({kWriter, "stamp", "first", "2000"});
    host::Child second({kWriter, "stamp", "second", "2000"});
    int seen = 0;
    for (int i = 0; i < 2000; ++i) {
        if (!Stamp().empty()) ++seen;
    }
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    EXPECT_GT(seen, 0);
    const std::string last = Stamp();
    EXPECT_TRUE(last == "first-1999" || last == "second-1999") << last;
}

TEST_F(ConfigStoreProcesses, NoWriteOfTwoWritersIsLost) {
    host::Child first({kWriter, "own", "first", "1000"});
    host::Child second({kWriter, "own", "second", "1000"});
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    for (const std::string writer : {"first-", "second-"}) {
        for (int i = 0; i < 1000; ++i) {
            const std::string stamp = writer + std::to_string(i);
            ASSERT_EQ(ReadObject(*Open(), ContractId(stamp)), (Values{{"a", stamp}, {"b", stamp}, {"c", stamp}}));
        }
    }
}

TEST_F(ConfigStoreProcesses, FirstWritersMakeOneStoreBetweenThem) {
    for (int round = 0; round < 20; ++round) {
        std::filesystem::remove_all("/var/lib/nimbrel");
        int start[2];
        ASSERT_EQ(pipe2(start, O_CLOEXEC), 0);
        host::Child first({kWriter, "together", "first"}, start[0]);
        host::Child second({kWriter, "together", "second"}, start[0]);
        host::Child third({kWriter, "together", "third"}, start[0]);
        for (host::Child* child : {&first, &second, &third}) EXPECT_EQ(child->ReadLine(), "ready");
        for (const int end : start) close(end);
        for (host::Child* child : {&first, &second, &third}) EXPECT_EQ(child->Wait(), 0);
        for (const std::string name : {"first", "second", "third"}) {
            EXPECT_NE(ReadObject(*Open(), ContractId(name)), std::nullopt) << name << ", round " << round;
        }
    }
}

TEST_F(ConfigStoreProcesses, KilledWriterLosesNothingItHasWrittenAndTearsNothing) {
    for (int round = 0; round < 60; ++round) {
        host::Child writer({kWriter, "endless"});
        std::string stored;
        for (int i = 0; i <= round; ++i) stored = writer.ReadLine();
        EXPECT_EQ(writer.Kill(), -SIGKILL);
        EXPECT_GE(std::stol(Stamp()), std::stol(stored)) << "round " << round;
    }
}

TEST_F(ConfigStoreProcesses, ForkedChildrenOfABusyProcessUseTheStore) {
    std::atomic<bool> stop = false;
    std::atomic<int> writes = 0;
    std::vector<std::thread> threads;
    for (const std::string name : {"first", "second"}) {
        threads.emplace_back([&, name] {
            for (; !stop; ++writes) WriteObject(*Open(), ContractId(name), {{"n", std::to_string(writes)}});
        });
    }
    for (int i = 0; i < 100; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const Values values = {{"n", std::to_string(i)}};
            WriteObject(*Open(), ContractId("child"), values);
            _exit(ReadObject(*Open(), ContractId("child")) == values ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(ReadObject(*Open(), ContractId("child")), (Values{{"n", std::to_string(i)}}));
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_GT(writes, 0);
}

extern "C" void* WriteUntilCancelled(void*) {
    for (int i = 0;; ++i) {
        WriteObject(*Open(), ContractId("cancelled"), {{"n", std::to_string(i)}});
        pthread_testcancel();
    }
}

TEST_F(ConfigStoreProcesses, CancelledThreadEndsAfterItsOperation) {
    for (int round = 0; round < 50; ++round) {
        pthread_t writer = {};
        ASSERT_EQ(pthread_create(&writer, nullptr, WriteUntilCancelled, nullptr), 0);
        while (!ReadObject(*Open(), ContractId("cancelled"))) {
        }
        std::this_thread::sleep_for(std::chrono::microseconds(round * 50));  // at another point each time
        pthread_cancel(writer);
        void* result = nullptr;
        pthread_join(writer, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        Open()->RemoveObject(ContractId("cancelled"));
        EXPECT_EQ(ReadObject(*Open(), ContractId("cancelled")), std::nullopt);
    }
}

TEST_F(ConfigStoreProcesses, NoFileDescriptorStaysOpen) {
    const auto openFiles = [] {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    };
    const auto before = openFiles();
    WriteObject(*Open(), ContractId("one"), {});
    EXPECT_EQ(openFiles(), before);
}

}  // namespace
