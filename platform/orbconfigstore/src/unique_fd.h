// A file descriptor that closes itself.

#ifndef ORBCONFIGSTORE_SRC_UNIQUE_FD_H_
#define ORBCONFIGSTORE_SRC_UNIQUE_FD_H_

#include <unistd.h>

namespace OrbConfigStore {

class UniqueFd {
 public:
    explicit UniqueFd(int fd) : _fd(fd) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (_fd >= 0) close(_fd);
    }

    int Get() const { return _fd; }

 private:
    const int _fd;
};

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_UNIQUE_FD_H_
