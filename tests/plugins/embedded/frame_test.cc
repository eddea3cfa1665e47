// The frame around the operations: exceptions become statuses.

#include <gtest/gtest.h>

#include <new>

#include "call.h"
#include "sandbox.h"

namespace nimbrel::embedded::test {
namespace {

template <class Exception>
std::uint32_t Translate(const Exception& exception) {
    try {
        throw exception;
    } catch (...) {
        return StatusOfCurrentException();
    }
}

TEST(Frame, EveryExceptionHasAStatus) {
    EXPECT_EQ(Translate(DirectoryError(1326, "refused")), 1326U);
    EXPECT_EQ(Translate(std::bad_alloc()), 8U);
    EXPECT_EQ(Translate(std::runtime_error("anything")), 1359U);
    EXPECT_EQ(Translate(42), 1359U);
}

}  // namespace
}  // namespace nimbrel::embedded::test
