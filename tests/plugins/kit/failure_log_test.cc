// What leaves a provider over the C border in place of an exception.

#include "pluginkit/failure_log.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <stdexcept>

#include "pluginkit/status_error.h"

namespace nimbrel::kit {
namespace {

template <class Exception>
std::uint32_t Translate(const Exception& exception) {
    try {
        throw exception;
    } catch (...) {
        return StatusOfCurrentException("test");
    }
}

TEST(Failures, EveryExceptionHasAStatus) {
    EXPECT_EQ(Translate(StatusError(1326, "refused")), 1326U);
    EXPECT_EQ(Translate(std::bad_alloc()), 8U);
    EXPECT_EQ(Translate(std::runtime_error("anything")), 1359U);
    EXPECT_EQ(Translate(42), 1359U);
}

TEST(Failures, OfFileCallsHaveTheStatusOfTheirReason) {
    const struct {
        int error;
        std::uint32_t status;
    } reasons[] = {{EACCES, 5},   {EPERM, 5},         {EROFS, 5},  {ELOOP, 5},    {ENOSPC, 112},
                   {EDQUOT, 112}, {EWOULDBLOCK, 170}, {EIO, 1359}, {ENOENT, 1359}};
    for (const auto& reason : reasons) {
        EXPECT_EQ(StatusOfFileError(reason.error), reason.status) << reason.error;
    }
}

TEST(Failures, OfFileCallsTellTheActionThePathAndTheReason) {
    try {
        ThrowFileError("write", "/etc/x", ENOSPC);
    } catch (const StatusError& error) {
        EXPECT_EQ(error.Status(), 112U);
        EXPECT_STREQ(error.what(), "Unable to write '/etc/x': No space left on device");
    }
}

}  // namespace
}  // namespace nimbrel::kit
