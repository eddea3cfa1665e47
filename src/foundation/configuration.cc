#include "authentication/configuration.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "authentication/atomic_file_stream.h"
#include "authentication/exceptions.h"
#include "foundation/line_reader.h"
#include "internal/no_cancellation.h"

namespace nimbrel::authentication {
namespace {

bool IsBlank(char character) { return character == ' ' || character == '\t'; }
bool IsQuote(char character) { return character == '"' || character == '\''; }

std::string_view WithoutOuterBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// One cleaned field: outer blanks gone, then one pair of like quotes. A field of blanks only stays as it is: only fields
// with content are trimmed.
std::string_view CleanField(std::string_view raw, int lineNumber) {
    const std::string_view text = WithoutOuterBlanks(raw);
    if (text.empty()) return raw;
    if (!IsQuote(text.front()) || text.back() != text.front()) return text;
    if (text.size() == 1) {
        // "at line" here and "on line" for a missing '=': clients match on both texts.
        throw ConfigurationError("Error parsing configuration at line " + std::to_string(lineNumber) +
                                 ": invalid quoting");
    }
    return text.substr(1, text.size() - 2);
}

std::pair<std::string_view, std::string_view> SplitLine(std::string_view line, int lineNumber) {
    const std::size_t delimiter = line.find('=');
    if (delimiter == std::string_view::npos) {
        throw ConfigurationError("Error parsing configuration on line " + std::to_string(lineNumber) +
                                 ": no delimiter found");
    }
    const std::string_view key = CleanField(line.substr(0, delimiter), lineNumber);
    return {key, CleanField(line.substr(delimiter + 1), lineNumber)};
}

void ThrowIfFailed(const AtomicFileStream& stream, const std::string& path, int error) {
    if (!stream) throw IOError("Unable to write '" + path + "': " + std::strerror(error));
}

}  // namespace

std::pair<std::string, std::string> GetKeyValuePair(const std::string& line, int lineNumber) {
    const auto [key, value] = SplitLine(line, lineNumber);
    return {std::string(key), std::string(value)};
}

Configuration::Configuration(const std::string& path) : _path(path) {
    LineReader reader(path);
    std::string_view line;
    for (int lineNumber = 1; reader.Next(line); ++lineNumber) {
        if (std::all_of(line.begin(), line.end(), IsBlank)) continue;
        const auto [key, value] = SplitLine(line, lineNumber);
        // The first of repeated keys wins. Most files are in key order, as `Write` leaves them, so the end is tried first.
        emplace_hint(end(), key, value);
    }
}

Configuration::~Configuration() = default;

const std::string& Configuration::operator[](const std::string& key) const {
    const auto entry = find(key);
    if (entry == end()) throw InvalidKeyException(key);
    return entry->second;
}

std::string& Configuration::operator[](const std::string& key) {
    const auto entry = find(key);
    if (entry == end()) throw InvalidKeyException(key);
    return entry->second;
}

void Configuration::Write() const {
    const internal::NoCancellation noCancellation;
    errno = 0;
    AtomicFileStream stream(_path.c_str(), std::ios_base::out);
    std::string line;
    for (auto entry = begin(); entry != end() && stream; ++entry) {
        line.assign(entry->first).append(" = \"").append(entry->second).append("\"\n");
        stream.write(line.data(), static_cast<std::streamsize>(line.size()));
        stream.flush();
    }
    // A torn file must never replace a whole one: on a full disk the old settings stay. Some file systems tell only at
    // closing time that the disk is full, so the stream is closed before the commit and looked at once more.
    ThrowIfFailed(stream, _path, errno);
    stream.close();
    ThrowIfFailed(stream, _path, errno);
    stream.Commit();
}

}  // namespace nimbrel::authentication
