// Exits with status 7 while detached threads are inside the plug-in.
//
//     exit_helper MODULE trust-state|trusted-domains|part MILLISECONDS
//
// Four threads repeat the operation; once each has begun, the main thread goes on for so many milliseconds of work of
// its own and then returns from `main`, so that exit handlers run under the threads' feet.

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "authentication/provider_abi.h"

namespace {

constexpr int kThreads = 4;

void Call(const NimauthProviderOperations& table, const std::string_view operation) {
    if (operation == "trust-state") {
        table.getDomainTrustState();
    } else if (operation == "part") {
        const Credentials wrong = {"admin1", "wrong"};
        table.partDomain(&wrong);
    } else {
        NimauthDomainRecord** domains = nullptr;
        NimauthRelease release = nullptr;
        if (table.getTrustedDomains(&domains, &release) == 0) {
            release(domains);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    void* module = dlopen(argv[1], RTLD_LAZY | RTLD_GLOBAL);
    const void* symbol = module ? dlsym(module, "ActiveDirectoryClientOperations") : nullptr;
    if (!symbol) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 3;
    }
    const auto& table = *static_cast<const NimauthProviderOperations*>(symbol);
    const char* operation = argv[2];
    static std::atomic<int> begun = 0;  // the threads outlive the frame of `main`
    for (int i = 0; i < kThreads; ++i) {
        std::thread([&table, operation] {
            ++begun;
            while (true) {
                Call(table, operation);
            }
        }).detach();
    }
    const auto work = std::chrono::milliseconds(std::strtol(argv[3], nullptr, 10));
    while (begun < kThreads) {
        std::this_thread::yield();
    }
    const auto end = std::chrono::steady_clock::now() + work;
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    return 7;
}
