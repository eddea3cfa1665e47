// Memory that the service gives back holds no secret, whatever an answer with one was made of; and where memory runs out,
// a ledger is not read in part.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>

#include "apx/memory_back_end.h"
#include "services/apxd/handler.h"
#include "services/apxd/tls_files.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace {

constexpr char kSecret[] = "what-nobody-may-find-again";
bool watching = false;
bool found = false;

// Allocations left before one fails; below zero none does.
long allocationsLeft = -1;

void Free(void* memory) noexcept {
    if (watching && memory != nullptr) {
        found = found || memmem(memory, malloc_usable_size(memory), kSecret, sizeof kSecret - 1) != nullptr;
    }
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    if (allocationsLeft >= 0 && allocationsLeft-- == 0) throw std::bad_alloc();
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { Free(memory); }

namespace nimbrel::apxd::test {
namespace {

bool IsFoundAfter(const auto& call) {
    found = false;
    watching = true;
    call();
    watching = false;
    return found;
}

class ApxdFreedMemory : public ::testing::Test {
 protected:
    ApxdFreedMemory() {
        config.domain = "corp.test";
        request.method = "POST";
        request.path = "/v1/computers";
        request.contentType = "application/json";
        request.body = R"({"accountName":"node01"})";
        request.client = Address::Parse("192.0.2.10");
    }

    // What the back end hands out begins with the secret.
    bool HoldsSecretOf(const std::string& secret) {
        backEnd.afterCreate = [&] { backEnd.accounts.at("NODE01").secret = secret; };
        const bool isFound = IsFoundAfter([&] { EXPECT_EQ(handler.Handle(request).httpStatus, 201U); });
        EXPECT_EQ(ledger.TakenOverBy("NODE01"), "");
        return isFound;
    }

    const TemporaryFolder folder;
    Config config;
    Request request;
    MemoryBackEnd backEnd;
    Ledger ledger{folder / "ledger"};
    Handler handler{config, backEnd, ledger};
};

TEST_F(ApxdFreedMemory, IsSeenByThisTest) {
    EXPECT_TRUE(IsFoundAfter([] { const std::string text(kSecret); }));
    EXPECT_FALSE(IsFoundAfter([] { const std::string text(sizeof kSecret, 'x'); }));
}

TEST_F(ApxdFreedMemory, HoldsNoSecretOfLetters) { EXPECT_FALSE(HoldsSecretOf(kSecret + std::string(40, 'x'))); }

// Each of those behind it takes six characters in the answer.
TEST_F(ApxdFreedMemory, HoldsNoSecretThatGrowsInTheAnswer) {
    EXPECT_FALSE(HoldsSecretOf(kSecret + std::string(3000, '\1')));
}

TEST_F(ApxdFreedMemory, HoldsNothingOfTheServicesKey) {
    config.certificateFile = folder / "certificate.pem";
    config.keyFile = folder / "key.pem";
    WriteFile(config.certificateFile, "");
    WriteFile(config.keyFile, kSecret + std::string(20000, 'x'));
    EXPECT_FALSE(IsFoundAfter([&] { EXPECT_THROW(TlsFiles::Read(config), ConfigError); }));
    std::filesystem::remove(config.keyFile);
    EXPECT_THROW(TlsFiles::Read(config), ConfigError);
    std::filesystem::create_directory(config.keyFile);
    EXPECT_THROW(TlsFiles::Read(config), ConfigError);
}

// With the allocation after `allocations` failing.
bool IsOpened(const std::string& path, long allocations) {
    allocationsLeft = allocations;
    try {
        const Ledger ledger(path);
        allocationsLeft = -1;
        return true;
    } catch (const std::bad_alloc&) {
        allocationsLeft = -1;
        return false;
    }
}

TEST(ApxdExhaustedMemory, LedgerIsReadWholeOrNotAtAll) {
    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    std::string text = "nimbrel-apxd ledger 1\n";
    for (const char* const kind : {"H", "T"}) {
        text += kind + std::string(" A-HOST-WITH-A-LONG-NAME-") + kind + " a-client-with-a-long-name-" + kind +
                " 0123456789abcdef0123456789abcdef 1767225600\n";
    }
    WriteFile(path, text);
    long allocations = 0;
    while (!IsOpened(path, allocations)) {
        ASSERT_EQ(ReadFile(path), text) << allocations;
        ++allocations;
    }
    EXPECT_EQ(ReadFile(path), text);
    EXPECT_GT(allocations, 10);
}

}  // namespace
}  // namespace nimbrel::apxd::test
