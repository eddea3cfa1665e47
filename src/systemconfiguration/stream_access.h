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

// The characters that a stream buffer holds ready. Reading from here is what its own sbumpc would do next.
class GetArea : private std::streambuf {
 public:
    static std::string_view Ready(std::streambuf& buffer) {
        const char* const first = (buffer.*&GetArea::gptr)();
        const char* const last = (buffer.*&GetArea::egptr)();
        return {first, std::min(static_cast<std::size_t>(last - first), kLargestStep)};
    }

    static void Consume(std::streambuf& buffer, std::size_t count) {
        (buffer.*&GetArea::gbump)(static_cast<int>(count));
    }

 private:
    static constexpr std::size_t kLargestStep = std::numeric_limits<int>::max();
};

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_STREAM_ACCESS_H_
