#include <istream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "systemconfiguration/names.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/nss_names.h"
#include "systemconfiguration/stream_access.h"

namespace SystemConfiguration {
namespace {

constexpr std::string_view kLineBlanks = " \t\r\n";

// The words of a line as a string stream reads them, with its positions.
class StreamWords {
 public:
    // Memory that runs out must not look like the end of the line.
    explicit StreamWords(const std::string& line) : _stream(line), _size(line.size()) {
        _stream.exceptions(std::ios_base::badbit);
    }

    bool Next(std::string& word) { return static_cast<bool>(_stream >> word); }

    // The index behind the last word; nothing once the word has ended the line.
    std::optional<std::size_t> Position() {
        const std::istream::pos_type position = _stream.tellg();
        const auto index = static_cast<std::size_t>(std::streamoff(position));
        if (position == std::istream::pos_type(-1) || index >= _size) return std::nullopt;
        return index;
    }

    void MoveTo(std::size_t position) { _stream.seekg(std::istream::pos_type(static_cast<std::streamoff>(position))); }

 private:
    std::istringstream _stream;
    std::size_t _size;
};

// The same without a stream, for the C locale.
class PlainWords {
 public:
    explicit PlainWords(const std::string& line) : _words(line), _size(line.size()) {}

    bool Next(std::string& word) {
        const std::string_view next = _failed ? std::string_view() : _words.Next();
        word.assign(next);
        return !next.empty();
    }

    std::optional<std::size_t> Position() const {
        return _words.Position() < _size ? std::optional(_words.Position()) : std::nullopt;
    }

    // A position behind the end cannot be reached, and nothing more is read.
    void MoveTo(std::size_t position) {
        if (position > _size) {
            _failed = true;
        } else {
            _words.MoveTo(position);
        }
    }

 private:
    Words _words;
    std::size_t _size;
    bool _failed = false;
};

template <typename LineWords>
std::optional<NSSDatabase::Database> ReadDatabase(LineWords& words) {
    std::string name;
    // A line of vertical tabs or form feeds only has no word at all.
    if (!words.Next(name)) return std::nullopt;
    name.pop_back();  // the colon, it is hoped
    const auto* const entry = FindName(kDatabaseNames, name);
    return entry == nullptr ? std::nullopt : std::optional(entry->value);
}

// The criteria in the bracket at index `open`, up to the ']' at `close` or the end of the line.
void ReadCriteria(const std::string& line, std::size_t open, std::size_t close, std::list<std::string>& criteria) {
    const std::size_t length = close == std::string::npos ? close : close - open - 1;
    if (IsClassicLocale()) {
        Words words(std::string_view(line).substr(open + 1, length));
        for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) criteria.emplace_back(word);
    } else {
        std::istringstream words(line.substr(open + 1, length));
        words.exceptions(std::ios_base::badbit);
        for (std::string word; words >> word;) criteria.push_back(word);
    }
}

// One line, without its leading blanks. After each service but the last on the line:
//
//   - the character behind the one that ended the service is looked at, bounds checked: a line that ends in one blank
//     has none, and std::out_of_range leaves;
//   - "[" there starts criteria;
//   - reading goes on at the sum of that character's index and the index of the next ']'. Without a further ']' the sum
//     wraps around to the place behind the service, so reading simply goes on. With one it mostly lies behind the end,
//     and the rest of the line is lost; on a line long enough it lands inside, and reading goes on there.
//
// Configurations in the field are read this way, so it stays. Example: "hosts: files [NOTFOUND=return] dns" has the one
// service "files" with the criteria "NOTFOUND=return".
template <typename LineWords>
void ReadServices(const std::string& line, NSSConfiguration& configuration) {
    LineWords words(line);
    const std::optional<NSSDatabase::Database> database = ReadDatabase(words);
    if (!database.has_value()) return;

    std::size_t close = 0;  // the next ']'; where there is none, there is none further on
    for (std::string word; words.Next(word);) {
        NSSService service(word);
        if (const std::optional<std::size_t> position = words.Position()) {
            const std::size_t next = *position + 1;
            const char first = line.at(next);
            if (close != std::string::npos) close = line.find(']', next);
            if (first == '[') ReadCriteria(line, next, close, service.parameters());
            words.MoveTo(next + close);
        }
        configuration[*database].push_back(std::move(service));
    }
}

}  // namespace

std::istream& operator>>(std::istream& stream, NSSConfiguration& configuration) {
    const bool classic = IsClassicLocale();
    for (std::string line; std::getline(stream, line);) {
        if (line.empty() || line.front() == '#') continue;
        const std::size_t first = line.find_first_not_of(kLineBlanks);
        if (first == std::string::npos) continue;
        line.erase(0, first);
        if (classic) {
            ReadServices<PlainWords>(line, configuration);
        } else {
            ReadServices<StreamWords>(line, configuration);
        }
    }
    return stream;
}

}  // namespace SystemConfiguration
