// What the benchmarks of the login-file model share.

#ifndef NIMAUTH_BENCHMARKS_SYSTEMCONFIGURATION_CONTENDERS_H_
#define NIMAUTH_BENCHMARKS_SYSTEMCONFIGURATION_CONTENDERS_H_

#include <cstddef>
#include <istream>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

inline void Expect(bool condition) {
    if (!condition) throw std::logic_error("a contender did not do its work");
}

// A text in memory as a stream's buffer, without a copy.
class TextBuffer : public std::streambuf {
 public:
    explicit TextBuffer(const std::string& text) {
        char* const first = const_cast<char*>(text.data());  // only read
        setg(first, first, first + text.size());
    }
};

// The one stream of all contenders, at the start of a buffer: to make a stream is no part of reading.
inline std::istream& StreamOn(std::streambuf& buffer) {
    static std::istream stream(nullptr);
    stream.rdbuf(&buffer);  // resets the state, too
    return stream;
}

// The files in tests/systemconfiguration/corpus/<folder> that `read` reads to their end; of Debian only.
Texts StockFiles(const std::string& folder, bool (*read)(const std::string& text));

// A large file as a real one is laid out, what belongs together together: the lines of each block, over and over, until
// the block has its part of `size` characters.
std::string LargeFile(const std::vector<Texts>& blocks, std::size_t size);

#ifdef HAVE_AUGEAS
// Parses and writes text in memory with one of Augeas' lenses, which is loaded once.
class AugeasParser {
 public:
    explicit AugeasParser(const std::string& lens);  // "Pam"
    AugeasParser(const AugeasParser&) = delete;
    AugeasParser& operator=(const AugeasParser&) = delete;
    ~AugeasParser();

    // Keeps a text to be parsed.
    void Put(std::size_t index, const std::string& text);

    // Builds the tree of the text, and frees it again.
    void Parse(std::size_t index);

    // Builds it and leaves it; `Write` makes text of it once more.
    void Keep(std::size_t index);
    void Write(std::size_t index);

 private:
    struct Handle;
    std::unique_ptr<Handle> _handle;
};
#endif

#endif  // NIMAUTH_BENCHMARKS_SYSTEMCONFIGURATION_CONTENDERS_H_
