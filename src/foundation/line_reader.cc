#include "foundation/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "authentication/exceptions.h"
#include "internal/no_cancellation.h"

namespace nimbrel::authentication {
namespace {

// With the allocator's own bytes no more than the 8 KiB that a file stream takes; larger reads are no faster.
constexpr std::size_t kInitialCapacity = 8128;

int Open(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    const int error = errno;
    if (descriptor < 0) throw IOError("Unable to open '" + path + "': " + std::strerror(error));
    return descriptor;
}

}  // namespace

// The buffer is made first: if it cannot be, no descriptor is left open.
LineReader::LineReader(const std::string& path)
    : _path(path), _capacity(kInitialCapacity), _buffer(new char[kInitialCapacity]) {
    _descriptor = Open(path);
}

LineReader::~LineReader() {
    const internal::NoCancellation noCancellation;
    close(_descriptor);
}

bool LineReader::Fill() {
    if (_atEnd) return false;
    std::memmove(_buffer.get(), _buffer.get() + _begin, _end - _begin);
    _end -= _begin;
    _begin = 0;
    if (_end == _capacity) {
        std::unique_ptr<char[]> larger(new char[_capacity * 2]);
        std::memcpy(larger.get(), _buffer.get(), _end);
        _buffer = std::move(larger);
        _capacity *= 2;
    }

    ssize_t count = 0;
    do {
        count = read(_descriptor, _buffer.get() + _end, _capacity - _end);
    } while (count < 0 && errno == EINTR);
    const int error = errno;
    if (count < 0) throw IOError("Unable to read '" + _path + "': " + std::strerror(error));
    _end += static_cast<std::size_t>(count);
    _atEnd = count == 0;
    return !_atEnd;
}

bool LineReader::Next(std::string_view& line) {
    std::size_t searched = 0;
    for (;;) {
        const char* const start = _buffer.get() + _begin;
        const std::size_t rest = _end - _begin;
        if (const void* newline = std::memchr(start + searched, '\n', rest - searched)) {
            const auto length = static_cast<std::size_t>(static_cast<const char*>(newline) - start);
            line = std::string_view(start, length);
            _begin += length + 1;
            return true;
        }
        searched = rest;
        if (!Fill()) break;
    }
    if (_begin == _end) return false;
    line = std::string_view(_buffer.get(), _end);  // the rest, which the last `Fill` has moved to the front
    _begin = _end;
    return true;
}

}  // namespace nimbrel::authentication
