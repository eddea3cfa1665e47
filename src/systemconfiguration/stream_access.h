// Shortcuts around the formatted stream operations, and when they may be taken.
//
// The readers and writers of this model are defined in terms of stream operators, one word at a time. Most lines can be
// handled at once in the stream buffer's get area, with the same result, stream state and unread rest. A stream whose
// settings would change what the operators do is left to them.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_STREAM_ACCESS_H_
#define NIMAUTH_SYSTEMCONFIGURATION_STREAM_ACCESS_H_

#include <algorithm>
#include <cstddef>
#include <istream>
#include <limits>
#include <locale>
#include <ostream>
#include <streambuf>
#include <string_view>

namespace SystemConfiguration {

// Whether words are split as `Words` splits them, by every stream that is made now.
inline bool IsClassicLocale() { return std::locale() == std::locale::classic(); }

// Whether extraction from this stream skips white space, has no width limit, and flushes no other stream.
inline bool HasPlainSettings(const std::istream& stream) {
    return (stream.flags() & std::ios_base::skipws) != 0 && stream.width() == 0 && stream.tie() == nullptr &&
           stream.getloc() == std::locale::classic();
}

// Whether insertion into this stream pads nothing and flushes nothing by itself.
inline bool HasPlainSettings(const std::ostream& stream) {
    return (stream.flags() & std::ios_base::unitbuf) == 0 && stream.width() == 0;
}

// The characters that a stream buffer holds ready. Reading from here is what its own sbumpc would do next; those before
// the position count as read when this ends.
class GetArea {
 public:
    explicit GetArea(std::streambuf& buffer) : _buffer(buffer), _text(Access::Ready(buffer)) {}
    GetArea(const GetArea&) = delete;
    GetArea& operator=(const GetArea&) = delete;
    ~GetArea() { Access::Consume(_buffer, _position); }

    std::string_view Text() const { return _text; }
    std::size_t Position() const { return _position; }
    void MoveTo(std::size_t position) { _position = position; }

 private:
    // Reaches what a stream buffer shows to its own kind.
    class Access : private std::streambuf {
     public:
        static std::string_view Ready(std::streambuf& buffer) {
            const char* const first = (buffer.*&Access::gptr)();
            const char* const last = (buffer.*&Access::egptr)();
            return {first, std::min(static_cast<std::size_t>(last - first), kLargestStep)};
        }

        static void Consume(std::streambuf& buffer, std::size_t count) {
            (buffer.*&Access::gbump)(static_cast<int>(count));
        }

     private:
        static constexpr std::size_t kLargestStep = std::numeric_limits<int>::max();
    };

    std::streambuf& _buffer;
    std::string_view _text;
    std::size_t _position = 0;
};

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_STREAM_ACCESS_H_
