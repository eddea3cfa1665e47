// Memory that is given back while the service is asked, by whatever library, holds nothing of the secret in its answer.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstring>
#include <string>

#include "client.h"
#include "tls_server.h"

namespace {

constexpr char kSecret[] = "what-nobody-may-find-again";
std::atomic<bool> watching = false;
thread_local bool asking = false;  // the server of the test has the secret, too
std::atomic<bool> found = false;

}  // namespace

extern "C" {
void __libc_free(void* memory);

void free(void* memory) {
    if (watching && asking && memory != nullptr) {
        if (memmem(memory, malloc_usable_size(memory), kSecret, sizeof kSecret - 1) != nullptr) found = true;
    }
    __libc_free(memory);
}
}

namespace nimbrel::apxhttps {
namespace {

bool IsFoundAfter(const auto& call) {
    found = false;
    asking = true;
    watching = true;
    call();
    watching = false;
    asking = false;
    return found;
}

TEST(FreedMemory, IsSeenByThisTest) {
    EXPECT_TRUE(IsFoundAfter([] { const std::string text(kSecret); }));
    EXPECT_FALSE(IsFoundAfter([] { const std::string text(sizeof kSecret, 'x'); }));
}

TEST(FreedMemory, HoldsNothingOfTheAnswer) {
    const testing::Certificate certificate = testing::MakeCertificate("proxy.corp.test");
    const std::string body = std::string("{\"oneTimeSecret\":\"") + kSecret + "\"}";
    const std::string answer =
        "HTTP/1.1 201 Created\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    for (const bool verify : {true, false}) {
        testing::TlsServer server(8443, &certificate, answer);
        const bool isFound = IsFoundAfter([&] {
            Body taken;
            EXPECT_EQ(Ask({"127.0.0.1", verify, certificate.thumbprint, ""}, "/v1/computers", "{}", taken), kSuccess);
            EXPECT_EQ(taken.text, body);
        });
        EXPECT_FALSE(isFound) << verify;
    }
}

}  // namespace
}  // namespace nimbrel::apxhttps
