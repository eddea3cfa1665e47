// A file descriptor that closes itself.

#ifndef ORBCONFIGSTORE_SRC_UNIQUE_FD_H_
#define ORBCONFIGSTORE_SRC_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace OrbConfigStore {

class UniqueFd {
 public:
    explicit UniqueFd(int fd) : _fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
    UniqueFd& operator=(UniqueFd&&) = delete;
    ~UniqueFd() {
        if (_fd >= 0) close(_fd);
    }

    int Get() const { return _fd; }

 private:
    int _fd;
};

}  // namespace OrbConfigStore

#endif  // ORBCONFIGSTORE_SRC_UNIQUE_FD_H_
