// The fixed tables of values and names behind the model's enumerations.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_NAMES_H_
#define NIMAUTH_SYSTEMCONFIGURATION_NAMES_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace SystemConfiguration {

template <typename Value>
struct NamedValue {
    Value value;
    std::string_view name;
};

// The entry with exactly this name, or null.
template <typename Value, std::size_t Size>
const NamedValue<Value>* FindName(const NamedValue<Value> (&table)[Size], std::string_view name) {
    for (const NamedValue<Value>& entry : table) {
        if (entry.name == name) return &entry;
    }
    return nullptr;
}

// The name of a value; empty for a value without one.
template <typename Value, std::size_t Size>
std::string_view FindValue(const NamedValue<Value> (&table)[Size], Value value) {
    for (const NamedValue<Value>& entry : table) {
        if (entry.value == value) return entry.name;
    }
    return {};
}

// The message for a value without a name starts `value` characters into the prefix; the number itself is not appended.
// Clients match on these texts, so they stay. Outside the prefix nothing is left of it.
inline std::string AdvancedPrefix(std::string_view prefix, int value) {
    const auto advance = static_cast<std::size_t>(value);
    return std::string(value >= 0 && advance <= prefix.size() ? prefix.substr(advance) : std::string_view());
}

// White space as isspace(3) knows it in the C locale.
constexpr bool IsSpace(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

// The words of one text, taken from the front: what stream extraction of strings would give.
class Words {
 public:
    explicit Words(std::string_view text) : _text(text) {}

    // The next word, or an empty view at the end.
    std::string_view Next() {
        while (_position < _text.size() && IsSpace(_text[_position])) ++_position;
        const std::size_t start = _position;
        while (_position < _text.size() && !IsSpace(_text[_position])) ++_position;
        return _text.substr(start, _position - start);
    }

    // The index of the character behind the last word.
    std::size_t Position() const { return _position; }
    void MoveTo(std::size_t position) { _position = position; }

 private:
    std::string_view _text;
    std::size_t _position = 0;
};

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_NAMES_H_
