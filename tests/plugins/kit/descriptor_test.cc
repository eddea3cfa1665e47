#include "pluginkit/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace nimbrel::kit {
namespace {

Descriptor OpenNull() { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

bool IsOpen(int number) { return fcntl(number, F_GETFD) >= 0; }

TEST(Descriptors, AreClosedByTheirLastOwner) {
    int number = -1;
    {
        Descriptor first = OpenNull();
        ASSERT_TRUE(first);
        number = first.Number();
        const Descriptor second(std::move(first));
        EXPECT_FALSE(first);
        EXPECT_EQ(second.Number(), number);
        EXPECT_TRUE(IsOpen(number));
    }
    EXPECT_FALSE(IsOpen(number));
}

TEST(Descriptors, AssignmentClosesWhatWasHeld) {
    Descriptor held = OpenNull();
    Descriptor other = OpenNull();
    const int first = held.Number();
    const int second = other.Number();
    held = std::move(other);
    EXPECT_FALSE(IsOpen(first));
    EXPECT_EQ(held.Number(), second);
    EXPECT_TRUE(IsOpen(second));
}

TEST(Descriptors, ReleasedOnesAreTheCallersToClose) {
    int number = -1;
    {
        Descriptor released = OpenNull();
        number = released.Release();
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(IsOpen(number));
    close(number);
}

TEST(Descriptors, CloseTellsAFailureOnce) {
    Descriptor closed = OpenNull();
    close(closed.Number());
    EXPECT_FALSE(closed.Close());
    EXPECT_EQ(errno, EBADF);
    EXPECT_TRUE(closed.Close()) << "there is nothing left to close";
}

TEST(Descriptors, LeaveTheReasonOfAFailureAlone) {
    {
        const Descriptor invalid(12345);
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace nimbrel::kit
