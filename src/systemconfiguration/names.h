// The fixed tables of values and names behind the model's enumerations.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_NAMES_H_
#define NIMAUTH_SYSTEMCONFIGURATION_NAMES_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
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
        // Nearly every other name differs in its size or its first character.
        if (entry.name.size() == name.size() && entry.name.front() == name.front() && entry.name == name) return &entry;
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

// Eight characters of a text, the first in the lowest byte; where the machine does not have them so, they are looked at
// one by one.
constexpr std::size_t kStep = sizeof(std::uint64_t);
constexpr std::uint64_t kOnes = 0x0101010101010101;
constexpr std::uint64_t kHighBits = kOnes << 7U;

inline bool HasStep(std::string_view text, std::size_t position) {
    return std::endian::native == std::endian::little && text.size() - position >= kStep;
}

inline std::uint64_t Step(std::string_view text, std::size_t position) {
    std::uint64_t characters = 0;
    std::memcpy(&characters, text.data() + position, kStep);
    return characters;
}

// The index in a step of the lowest byte that has a bit set.
inline std::size_t FirstByte(std::uint64_t bits) { return static_cast<std::size_t>(std::countr_zero(bits)) / 8; }

// The index of the first white space at or behind `position`, or the size.
inline std::size_t FindSpace(std::string_view text, std::size_t position) {
    while (HasStep(text, position)) {
        const std::uint64_t characters = Step(text, position);
        // Characters up to ' ' leave their high bit; those behind the lowest of them may do so wrongly.
        const std::uint64_t small = (characters - kOnes * (' ' + 1)) & ~characters & kHighBits;
        if (small == 0) {
            position += kStep;
            continue;
        }
        position += FirstByte(small);
        if (IsSpace(text[position])) return position;
        ++position;  // another control character
    }
    while (position < text.size() && !IsSpace(text[position])) ++position;
    return position;
}

// The index of the first character at or behind `position` that is not white space, or the size.
inline std::size_t SkipSpace(std::string_view text, std::size_t position) {
    while (position < text.size() && IsSpace(text[position])) {
        ++position;
        while (HasStep(text, position)) {
            const std::uint64_t others = Step(text, position) ^ (kOnes * ' ');
            position += others == 0 ? kStep : FirstByte(others);
            if (others != 0) break;
        }
    }
    return position;
}

// The words of one text, taken from the front: what stream extraction of strings would give.
class Words {
 public:
    explicit Words(std::string_view text) : _text(text) {}

    // The next word, or an empty view at the end.
    std::string_view Next() {
        const std::size_t start = SkipSpace(_text, _position);
        _position = FindSpace(_text, start);
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
