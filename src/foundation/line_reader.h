// Reads a file line by line, straight from the descriptor into one buffer.

#ifndef NIMAUTH_FOUNDATION_LINE_READER_H_
#define NIMAUTH_FOUNDATION_LINE_READER_H_

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace nimbrel::authentication {

// Threads: one thread per reader.
class LineReader {
 public:
    // Throws `IOError` "Unable to open '<path>': <system's text>".
    explicit LineReader(const std::string& path);
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;
    ~LineReader();

    // The next line without its '\n', or false at the end of the file. The view is good until the next call. A last line
    // without '\n' counts; nothing after a final '\n' does not.
    //
    // Throws `IOError` "Unable to read '<path>': <system's text>", also for a directory.
    bool Next(std::string_view& line);

 private:
    // Reads more behind the unread rest; false at the end of the file.
    bool Fill();

    std::string _path;
    int _descriptor = -1;
    std::size_t _capacity;
    std::unique_ptr<char[]> _buffer;
    std::size_t _begin = 0;  // the unread rest is [_begin, _end)
    std::size_t _end = 0;
    bool _atEnd = false;
};

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_FOUNDATION_LINE_READER_H_
