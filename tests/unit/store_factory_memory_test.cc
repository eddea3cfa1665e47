// A factory for which memory runs out half-way.

#include <gtest/gtest.h>

#include <memory>
#include <new>

#include "authentication/store_factory.h"

namespace {

long allocationsLeft = -1;  // fails the next one when 0; below 0 nothing fails

}  // namespace

// What the compiler calls for `new` of anything with an ordinary alignment.
extern "C" {

void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size);

void* __wrap__Znwm(std::size_t size) {
    if (allocationsLeft == 0) throw std::bad_alloc();
    if (allocationsLeft > 0) --allocationsLeft;
    return __real__Znwm(size);
}

}  // extern "C"

namespace {

using nimbrel::authentication::AuthenticationStore;
using nimbrel::authentication::AuthenticationStoreFactory;
using nimbrel::authentication::Singleton;

using Factory = AuthenticationStoreFactory;

class StoreFactoryMemory : public ::testing::Test {
 protected:
    ~StoreFactoryMemory() override { Singleton<Factory>::_instance = _library; }

    // Whether `action` succeeds although only so many allocations do.
    template <typename Action>
    static bool SucceedsWith(long allocations, const Action& action) {
        allocationsLeft = allocations;
        bool succeeded = true;
        try {
            action();
        } catch (const std::bad_alloc&) {
            succeeded = false;
        }
        allocationsLeft = -1;
        return succeeded;
    }

    Factory* const _library = Singleton<Factory>::_instance;
};

TEST_F(StoreFactoryMemory, FactoryThatRunsOutOfMemoryIsNotPublished) {
    long allocations = 0;
    while (!SucceedsWith(allocations, [] {
        const Factory factory;
        EXPECT_EQ(Singleton<Factory>::_instance, &factory);
    })) {
        EXPECT_EQ(Singleton<Factory>::_instance, nullptr) << allocations;
        Singleton<Factory>::_instance = _library;
        ++allocations;
    }
    EXPECT_GE(allocations, 2) << "each registration allocates";
}

TEST_F(StoreFactoryMemory, FailedRegistrationLeavesTheRegistryAsItWas) {
    const std::string name(100, 'n');
    EXPECT_FALSE(SucceedsWith(0, [&] { _library->RegisterType(name, nullptr); }));
    EXPECT_EQ(_library->GetRegisteredStores().size(), 2U);
}

TEST_F(StoreFactoryMemory, FailedCreationThrowsTheAllocationFailure) {
    const std::string name = "None";
    EXPECT_FALSE(SucceedsWith(0, [&] { _library->CreateInstance(name); }));
    EXPECT_TRUE(SucceedsWith(1, [&] { EXPECT_NE(_library->CreateInstance(name), nullptr); }));
}

}  // namespace
