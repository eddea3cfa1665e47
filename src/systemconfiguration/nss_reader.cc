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

    // The index behind the last word; nothing once the word has ended the line: the stream tells -1 then.
    std::optional<std::size_t> Position() {
        const auto index = static_cast<std::size_t>(std::streamoff(_stream.tellg()));
        return index < _size ? std::optional(index) : std::nullopt;
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
    // A line of vertical tabs or form feeds only has no word at all, and an empty name is no database's.
    const std::string_view name = words.Next();
    const auto* const entry = FindName(kDatabaseNames, name.substr(0, name.size() - 1));  // the colon, it is hoped
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
// `mayClose` is false where it is known that the line has no ']'.
template <typename LineWords>
void ReadServices(std::string_view line, bool mayClose, ServiceLists& lists) {
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
        const std::size_t close = mayClose ? line.find(']', next) : std::string::npos;
        mayClose = close != std::string::npos;  // where there is none, there is none further on
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
void ReadLine(std::string_view line, bool mayClose, ServiceLists& lists) {
    if (line.starts_with('#')) return;
    while (!line.empty() && IsLineBlank(line.front())) line.remove_prefix(1);
    if (!line.empty()) ReadServices<LineWords>(line, mayClose, lists);
}

// Reads the lines that lie whole in the get area. A line is consumed before anything in it throws.
void ReadReadyLines(std::streambuf& buffer, ServiceLists& lists) {
    GetArea area(buffer);
    const std::string_view text = area.Text();
    std::size_t bracket = text.find(']', area.Position());  // looked for once for all lines before it
    for (;;) {
        const std::size_t start = area.Position();
        const std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) return;
        area.MoveTo(end + 1);
        if (bracket < start) bracket = text.find(']', start);
        ReadLine<PlainWords>(text.substr(start, end - start), bracket < end, lists);
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
            ReadLine<PlainWords>(line, true, lists);
        } else {
            ReadLine<StreamWords>(line, true, lists);
        }
    }
}

}  // namespace SystemConfiguration
