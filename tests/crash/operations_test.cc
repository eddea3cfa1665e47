// Every operation of the program, cut short at every point. Prints how many there are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>

#include "crash/sweep.h"

namespace nimbrel::crash {
namespace {

// Where every point is wanted, the operations' own strides do not count.
constexpr std::size_t StrideOf(std::size_t ofOperation) {
    return NIMAUTH_CRASH_EVERY_POINT != 0 ? 1 : ofOperation * NIMAUTH_CRASH_STRIDE;
}

class CutShort : public ::testing::TestWithParam<Operation> {
 protected:
    static void Expect(const char* points, const SweepResult& result) {
        std::printf("%s: %zu %s, %zu tried\n", GetParam().name.c_str(), result.points, points, result.tried);
        EXPECT_GT(result.tried, 0U);
        for (const std::string& violation : result.violations) ADD_FAILURE() << violation;
    }
};

TEST_P(CutShort, ByTheEndOfItsProcess) {
    Expect("kill points", KillAtEachCall(GetParam(), StrideOf(GetParam().killStride)));
}

TEST_P(CutShort, ByACallThatFails) {
    Expect("failure points", FailEachCall(GetParam(), StrideOf(GetParam().failureStride)));
}

TEST_P(CutShort, ByAnAllocationThatFails) {
    Expect("allocation points",
           FailEachAllocation(GetParam(), NIMAUTH_CRASH_ALLOCATIONS / StrideOf(GetParam().allocationStride)));
}

class SwitchedOff : public CutShort {};

TEST_P(SwitchedOff, AtEachCallAndAtTheEnd) {
    Expect("points for a power cut", CutPowerAtEachCall(GetParam(), StrideOf(GetParam().powerStride)));
}

std::vector<Operation> SynchronisedOperations() {
    std::vector<Operation> operations = Operations();
    std::erase_if(operations, [](const Operation& operation) { return operation.isLeftToTheKernel; });
    return operations;
}

std::string NameOfRow(const ::testing::TestParamInfo<Operation>& info) {
    std::string name;
    for (const char c : info.param.name) name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Operations, CutShort, ::testing::ValuesIn(Operations()), NameOfRow);
INSTANTIATE_TEST_SUITE_P(Operations, SwitchedOff, ::testing::ValuesIn(SynchronisedOperations()), NameOfRow);

}  // namespace
}  // namespace nimbrel::crash
