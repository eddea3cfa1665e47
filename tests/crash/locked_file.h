// A file that somebody is at.

#ifndef TESTS_CRASH_LOCKED_FILE_H_
#define TESTS_CRASH_LOCKED_FILE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

namespace nimbrel::crash {

// A file of the name that is locked, as the one who makes it holds it.
class LockedFile {
 public:
    explicit LockedFile(const std::string& path) : _fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        EXPECT_EQ(0, flock(_fd, LOCK_EX | LOCK_NB)) << path;
    }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;
    ~LockedFile() { close(_fd); }

 private:
    int _fd;
};

}  // namespace nimbrel::crash

#endif  // TESTS_CRASH_LOCKED_FILE_H_
