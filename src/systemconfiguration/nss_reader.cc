#include <istream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "systemconfiguration/names.h"
#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/nss_names.h"
#include "systemconfiguration/stream_access.h"

namespace SystemConfiguration {
namespace {

// The words of a line as a string stream reads them, with its positions.
class StreamWords {
 public:
    // Memory that runs out must not look like the end of the line.
    explicit StreamWords(std::string_view line) : _stream(std::string(line)), _size(line.size()) {
        _stream.exceptions(std::ios_base::badbit);
    }

    // The next word, or an empty view at the end.
    std::string_view Next() { return _stream >> _word ? std::string_view(_word) : std::string_view(); }

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
    std::string _word;
};

// The same without a stream, for the C locale.
class PlainWords {
 public:
    explicit PlainWords(std::string_view line) : _words(line), _size(line.size()) {}

    std::string_view Next() { return _failed ? std::string_view() : _words.Next(); }

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

// The service lists that have been filled so far, found without a look-up in the configuration's map.
class ServiceLists {
 public:
    explicit ServiceLists(NSSConfiguration& configuration) : _configuration(configuration) {}

    std::deque<NSSService>& operator[](NSSDatabase::Database database) {
        std::deque<NSSService>*& list = _lists[static_cast<std::size_t>(database)];
        if (list == nullptr) list = &_configuration[database];
        return *list;
    }

 private:
    NSSConfiguration& _configuration;
    std::deque<NSSService>* _lists[NSSDatabase::Aliases + 1] = {};
};

template <typename LineWords>
std::optional<NSSDatabase::Database> ReadDatabase(LineWords& words) {
    std::string_view name = words.Next();
    // A line of vertical tabs or form feeds only has no word at all.
    if (name.empty()) return std::nullopt;
    name.remove_suffix(1);  // the colon, it is hoped
    const auto* const entry = FindName(kDatabaseNames, name);
    return entry == nullptr ? std::nullopt : std::optional(entry->value);
}

// A service with the criteria that start behind the '[' at index `open` and end at the ']' at `close`, or at the end of
// the line.
template <typename LineWords>
NSSService ServiceWithCriteria(std::string_view module, std::string_view line, std::size_t open, std::size_t close) {
    NSSService service{std::string(module)};
    LineWords words(line.substr(open + 1, close == std::string::npos ? close : close - open - 1));
    for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) {
        service.parameters().emplace_back(word);
    }
    return service;
}

// Throws, behind the end, what a bounds-checked access to a string throws.
char CharacterAt(std::string_view line, std::size_t index) {
    return index < line.size() ? line[index] : std::string(line).at(index);
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
//
// `close` is npos where it is known that the line has no ']', and 0 otherwise.
template <typename LineWords>
void ReadServices(std::string_view line, std::size_t close, ServiceLists& lists) {
    LineWords words(line);
    const std::optional<NSSDatabase::Database> database = ReadDatabase(words);
    if (!database.has_value()) return;

    for (std::string_view word = words.Next(); !word.empty(); word = words.Next()) {
        const std::optional<std::size_t> position = words.Position();
        if (!position.has_value()) {
            lists[*database].emplace_back(std::string(word));
            continue;
        }
        const std::size_t next = *position + 1;
        const char first = CharacterAt(line, next);
        if (close != std::string::npos) close = line.find(']', next);  // where there is none, there is none further on
        if (first == '[') {
            NSSService service = ServiceWithCriteria<LineWords>(word, line, next, close);
            lists[*database].push_back(std::move(service));
        } else {
            lists[*database].emplace_back(std::string(word));
        }
        words.MoveTo(next + close);
    }
}

// What is taken off a line's front. Other white space is not.
constexpr bool IsLineBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

template <typename LineWords>
void ReadLine(std::string_view line, std::size_t close, ServiceLists& lists) {
    if (line.empty() || line.front() == '#') return;
    while (!line.empty() && IsLineBlank(line.front())) line.remove_prefix(1);
    if (!line.empty()) ReadServices<LineWords>(line, close, lists);
}

// Reads the lines that lie whole in the get area. A line is consumed before anything in it throws.
void ReadReadyLines(std::streambuf& buffer, ServiceLists& lists) {
    GetArea area(buffer);
    const std::string_view text = area.Text();
    std::size_t bracket = 0;  // the next ']', looked for once for all lines before it
    for (;;) {
        const std::size_t start = area.Position();
        const std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) return;
        area.MoveTo(end + 1);
        if (bracket <= start) bracket = text.find(']', start);
        ReadLine<PlainWords>(text.substr(start, end - start), bracket < end ? 0 : std::string::npos, lists);
    }
}

}  // namespace

std::istream& operator>>(std::istream& stream, NSSConfiguration& configuration) {
    const bool classic = IsClassicLocale();
    const bool plain = classic && stream.tie() == nullptr && stream.rdbuf() != nullptr;
    ServiceLists lists(configuration);
    std::string line;
    for (;;) {
        if (plain && stream.good()) ReadReadyLines(*stream.rdbuf(), lists);
        if (!std::getline(stream, line)) return stream;
        if (classic) {
            ReadLine<PlainWords>(line, 0, lists);
        } else {
            ReadLine<StreamWords>(line, 0, lists);
        }
    }
}

}  // namespace SystemConfiguration
