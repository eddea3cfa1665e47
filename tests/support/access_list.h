// A user on a file's access list (acl(5)), as the kernel keeps it.

#ifndef TESTS_SUPPORT_ACCESS_LIST_H_
#define TESTS_SUPPORT_ACCESS_LIST_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdint>
#include <string>

namespace nimbrel::testing {

// Gives a user these rights (4 to read, 2 to write, 1 to search) besides those of the mode, whose group has none. False
// if the file system has no such lists. The user stands for any: a number that every user namespace has.
inline bool PutOnAccessList(const std::string& path, std::uint16_t rights) {
    struct Entry {
        std::uint16_t tag, rights;
        std::uint32_t id;
    };
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    const auto owner = static_cast<std::uint16_t>(status.st_mode >> 6U & 7U);
    const struct {
        std::uint32_t version;
        Entry entries[5];
    } list = {2, {{0x01, owner, ~0U}, {0x02, rights, 0}, {0x04, 0, ~0U}, {0x10, rights, ~0U}, {0x20, 0, ~0U}}};
    const bool listed = setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof list, 0) == 0;
    const int error = errno;
    EXPECT_TRUE(listed || error == ENOTSUP) << error;
    return listed;
}

}  // namespace nimbrel::testing

#endif  // TESTS_SUPPORT_ACCESS_LIST_H_
