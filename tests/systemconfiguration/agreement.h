// Every text up to a length, given to the library's reader and to the literal one.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_AGREEMENT_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_AGREEMENT_H_

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <locale>
#include <string>
#include <string_view>
#include <vector>

#include "systemconfiguration/outcome.h"

// Whole words are symbols too, so that short sequences make whole lines.
using Symbols = std::vector<std::string_view>;

// What stands around each text.
struct Frame {
    std::string_view before;
    std::string_view after;
};

// How many texts there are of that many symbols at most.
constexpr std::size_t CountTexts(std::size_t symbols, std::size_t length) {
    return length == 0 ? 1 : 1 + symbols * CountTexts(symbols, length - 1);
}

// How far a text was read; nothing behind that place can matter.
struct Visited {
    bool goOn;
    std::size_t readUpTo = std::string::npos;
};

// Calls `visit` for the texts of `length` symbols and all shorter ones, the empty one included, until it says not to go on.
// A text whose last two symbols were not read stands for all that begin with it: they would be refused at the same place.
// Returns the number of texts, those stood for included.
class AllTexts {
 public:
    AllTexts(const Symbols& symbols, Frame frame) : _symbols(symbols), _frame(frame), _text(frame.before) {}

    template <typename Visitor>
    std::size_t Visit(std::size_t length, Visitor visit) {
        _count = 0;
        _calls = 0;
        VisitFrom(length, visit, {});
        return _count;
    }
    // How many were visited themselves.
    std::size_t Calls() const { return _calls; }

 private:
    // Where the last symbols begin; 0 for one that is not there.
    struct Last {
        std::size_t two = 0;
        std::size_t one = 0;
    };

    template <typename Visitor>
    bool VisitFrom(std::size_t length, Visitor& visit, Last last) {
        const std::size_t size = _text.size();
        _text += _frame.after;
        const Visited visited = visit(_text);
        ++_calls;
        _text.resize(size);
        const bool standsForMore = last.two != 0 && visited.readUpTo <= last.two;
        _count += standsForMore ? CountTexts(_symbols.size(), length) : 1;
        bool goOn = visited.goOn;
        for (std::size_t index = 0; goOn && !standsForMore && length > 0 && index < _symbols.size(); ++index) {
            _text += _symbols[index];
            goOn = VisitFrom(length - 1, visit, {last.one, size});
            _text.resize(size);
        }
        return goOn;
    }

    const Symbols& _symbols;
    Frame _frame;
    std::string _text;
    std::size_t _count = 0;
    std::size_t _calls = 0;
};

// A change to a stream before it is read.
struct Setting {
    const char* name;
    std::function<void(std::istream&)> prepare;
};

// White space in which a comma counts and a vertical tab does not.
class CommaSpace : public std::ctype<char> {
 public:
    CommaSpace() : std::ctype<char>(Table()) {}

 private:
    static const mask* Table() {
        static const std::vector<mask> table = [] {
            std::vector<mask> changed(classic_table(), classic_table() + table_size);
            changed[','] = static_cast<mask>(changed[','] | space);
            changed['\v'] = static_cast<mask>(changed['\v'] & ~space);
            return changed;
        }();
        return table.data();
    }
};

inline std::locale CommaLocale() { return {std::locale::classic(), new CommaSpace}; }

// The locale of every stream made while it lives.
class GlobalLocale {
 public:
    explicit GlobalLocale(const std::locale& locale) : _previous(std::locale::global(locale)) {}
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;
    ~GlobalLocale() { std::locale::global(_previous); }

 private:
    std::locale _previous;
};

// Settings that change what stream operators do, one after the other.
inline std::vector<Setting> AllSettings() {
    using std::ios_base;
    using std::istream;
    static std::ostream tied(nullptr);
    return {
        {"noskipws", [](istream& stream) { stream.unsetf(ios_base::skipws); }},
        {"width", [](istream& stream) { stream.width(3); }},
        {"tie", [](istream& stream) { stream.tie(&tied); }},
        {"exceptions on failbit", [](istream& stream) { stream.exceptions(ios_base::failbit); }},
        {"exceptions on eofbit", [](istream& stream) { stream.exceptions(ios_base::eofbit); }},
        {"exceptions on badbit", [](istream& stream) { stream.exceptions(ios_base::badbit); }},
        {"all exceptions", [](istream& s) { s.exceptions(ios_base::failbit | ios_base::eofbit | ios_base::badbit); }},
        {"eofbit on entry", [](istream& stream) { stream.setstate(ios_base::eofbit); }},
        {"failbit on entry", [](istream& stream) { stream.setstate(ios_base::failbit); }},
        {"badbit on entry", [](istream& stream) { stream.setstate(ios_base::badbit); }},
        {"comma locale", [](istream& stream) { stream.imbue(CommaLocale()); }},
    };
}

template <typename Library, typename Literal>
class Agreement {
 public:
    // Whole texts, and lines split at every place: the slices do not change what the literal reader gives.
    static void OnSlices(const Symbols& symbols, std::size_t length, Frame frame = {}) {
        AllTexts texts(symbols, frame);
        const std::size_t count = texts.Visit(length, [&](const std::string& text) {
            const Outcome expected = OutcomeOf<Literal>(Source{text});
            for (const Source& source : Sources(text)) {
                if (!Agrees(source, expected, OutcomeOf<Library>(source))) return Visited{false};
            }
            return VisitedOf(expected);
        });
        EXPECT_EQ(count, CountTexts(symbols.size(), length));
        EXPECT_GT(texts.Calls(), count / 4);
    }

    static void OnSettings(const Symbols& symbols, std::size_t length, Frame frame = {}) {
        for (const Setting& setting : AllSettings()) {
            SCOPED_TRACE(setting.name);
            AllTexts(symbols, frame).Visit(length, [&](const std::string& text) {
                for (const Source& source : {Source{text}, Source{text, 5}}) {
                    const Outcome expected = OutcomeOf<Literal>(source, setting.prepare);
                    if (!Agrees(source, expected, OutcomeOf<Library>(source, setting.prepare))) return Visited{false};
                }
                return Visited{true};
            });
        }
    }

    // Every two characters at some distances, between `frame`.
    static void OnPairs(Frame frame) {
        for (const std::size_t distance : {1, 7}) {
            for (int pair = 0; pair < 256 * 256; ++pair) {
                std::string text(frame.before);
                text.append(1, static_cast<char>(pair / 256))
                    .append(distance - 1, 'x')
                    .append(1, static_cast<char>(pair));
                text.append("yz").append(frame.after);
                const Source source{text};
                if (!Agrees(source, OutcomeOf<Literal>(source), OutcomeOf<Library>(source))) return;
            }
        }
    }

    // At every place, the end of the text included.
    static void OnReadErrors(const Symbols& symbols, std::size_t length, Frame frame = {}) {
        AllTexts(symbols, frame).Visit(length, [&](const std::string& text) {
            for (std::size_t place = 0; place <= text.size(); ++place) {
                for (const std::size_t slice : {kNever, std::size_t{1}}) {
                    const Source source{text, slice, place};
                    if (!Agrees(source, OutcomeOf<Literal>(source), OutcomeOf<Library>(source))) return Visited{false};
                }
            }
            return Visited{true};
        });
    }

    static void OnText(const Symbols& symbols, std::size_t length, Frame frame = {}) {
        AllTexts(symbols, frame).Visit(length, [&](const std::string& text) {
            const Source source{text};
            const Outcome expected = OutcomeOf<Literal>(source);
            return Agrees(source, expected, OutcomeOf<Library>(source)) ? VisitedOf(expected) : Visited{false};
        });
    }

 private:
    static Visited VisitedOf(const Outcome& outcome) {
        return {true, outcome.error.empty() ? std::string::npos : outcome.position};
    }

    static std::array<Source, 5> Sources(const std::string& text) {
        return {Source{text}, Source{text, kNever, kNever, false}, Source{text, 1}, Source{text, 2}, Source{text, 7}};
    }

    static bool Agrees(const Source& source, const Outcome& expected, const Outcome& actual) {
        if (actual == expected) return true;
        ADD_FAILURE() << source << "\nliteral " << expected << "\nlibrary " << actual;
        return false;
    }
};

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_AGREEMENT_H_
