// A provider's parameters for its modules while memory runs out: all of them, or no provider.

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>

#include "authentication/provider.h"
#include "crash/allocations.h"

namespace nimbrel::crash {
namespace {

constexpr char kFolder[] = "/usr/libexec/nimauth";

using authentication::ActiveDirectoryProvider;

std::string Words(const ActiveDirectoryProvider& provider) {
    std::string words;
    for (const std::string& word : provider.PAMModuleParameters()) words += word + '\n';
    for (const std::string& word : provider.NSSModuleParameters()) words += word + '\n';
    return words;
}

TEST(ProviderWords, NoneIsLostWhereMemoryRunsOut) {
    std::filesystem::create_directories(kFolder);
    std::filesystem::copy_file(NIMAUTH_WORDED_PROVIDER, std::string(kFolder) + "/libworded.so");
    const ActiveDirectoryProvider loaded("worded");
    FailAllocation(0);
    const std::string whole = Words(ActiveDirectoryProvider("worded"));
    const long count = StopAllocations();
    ASSERT_EQ(5, std::count(whole.begin(), whole.end(), '\n'));
    int failed = 0;
    for (long number = 1; number <= count; ++number) {
        FailAllocation(number);
        try {
            const ActiveDirectoryProvider provider("worded");
            StopAllocations();
            EXPECT_EQ(whole, Words(provider)) << "allocation " << number;
        } catch (const std::exception&) {  // the loader has a text for it, and no class
            StopAllocations();
            ++failed;
        }
    }
    EXPECT_GT(failed, 0);
}

}  // namespace
}  // namespace nimbrel::crash
