// Stream buffers that show what a reader or a writer does with them.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_STREAM_BUFFERS_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_STREAM_BUFFERS_H_

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

constexpr std::size_t kNever = static_cast<std::size_t>(-1);

// The medium could not be read.
class ReadError : public std::runtime_error {
 public:
    ReadError() : std::runtime_error("read error") {}
};

// A text, of which `slice` characters at a time come into the get area; the character at `errorAt` cannot be read. The
// first slice is there from the start, as in a string's buffer, or only once it is asked for, as in a file's.
class SlicedInput : public std::streambuf {
 public:
    SlicedInput(std::string text, std::size_t slice, std::size_t errorAt, bool startsFilled)
        : _text(std::move(text)), _slice(slice), _errorAt(errorAt) {
        if (startsFilled && errorAt != 0) Fill();
    }

    // The index of the first character that has not been read.
    std::size_t Position() const { return _loaded - static_cast<std::size_t>(egptr() - gptr()); }

 protected:
    int_type underflow() override {
        if (_loaded == _errorAt) throw ReadError();
        return Fill() ? traits_type::to_int_type(*gptr()) : traits_type::eof();
    }

 private:
    bool Fill() {
        const std::size_t end = std::min(_text.size(), _errorAt);
        const std::size_t count = std::min(_slice, end - _loaded);
        char* const first = _text.data() + _loaded;
        setg(first, first, first + count);
        _loaded += count;
        return count > 0;
    }

    std::string _text;
    std::size_t _slice;
    std::size_t _errorAt;
    std::size_t _loaded = 0;
};

// Keeps what is written and when it was flushed; takes `room` characters at most.
class RecordingOutput : public std::streambuf {
 public:
    explicit RecordingOutput(std::size_t room = kNever) : _room(room) {}

    // All that was written.
    const std::string& Text() const { return _text; }

    // What each flush found new.
    const std::vector<std::string>& Flushed() const { return _flushed; }

 protected:
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        if (_text.size() == _room) return traits_type::eof();
        _text += traits_type::to_char_type(character);
        return character;
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override {
        const std::size_t count = std::min(static_cast<std::size_t>(size), _room - _text.size());
        _text.append(text, count);
        return static_cast<std::streamsize>(count);
    }

    int sync() override {
        _flushed.push_back(_text.substr(_flushedSize));
        _flushedSize = _text.size();
        return 0;
    }

 private:
    std::string _text;
    std::size_t _room;
    std::vector<std::string> _flushed;
    std::size_t _flushedSize = 0;
};

// A text with the bytes that do not print as \xHH.
inline std::string Shown(std::string_view text) {
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7F) {
            shown += character;
        } else {
            shown.append("\\x").append(1, "0123456789abcdef"[byte >> 4U]).append(1, "0123456789abcdef"[byte & 0xFU]);
        }
    }
    return shown;
}

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_STREAM_BUFFERS_H_
