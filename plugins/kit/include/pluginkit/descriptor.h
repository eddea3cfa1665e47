#ifndef NIMBREL_PLUGINKIT_DESCRIPTOR_H_
#define NIMBREL_PLUGINKIT_DESCRIPTOR_H_

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace nimbrel::kit {

// An open file descriptor, closed by its last owner, or none (a negative number). Leaves `errno` alone when it closes, so
// that the reason of a failure outlives it.
//
//     const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
//     if (!file) ThrowFileError("open", path, errno);
class Descriptor {
 public:
    explicit Descriptor(int number = -1) noexcept : _number(number) {}
    Descriptor(Descriptor&& other) noexcept : _number(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        const Descriptor old(std::exchange(_number, other.Release()));
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        const int error = errno;
        Close();
        errno = error;
    }

    int Number() const noexcept { return _number; }
    explicit operator bool() const noexcept { return _number >= 0; }

    // The number, which is the caller's to close from now on.
    int Release() noexcept { return std::exchange(_number, -1); }
    // False, with the reason in `errno`, for a failed write of earlier that the file system tells only here.
    bool Close() noexcept { return _number < 0 || close(Release()) == 0; }

 private:
    int _number;
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_DESCRIPTOR_H_
