#include "pluginkit/log_text.h"

#include <algorithm>

#include "pluginkit/directory_names.h"

namespace nimbrel::kit {
namespace {

// A character that moves the line or the terminal: C0 and C1 controls, U+2028 and U+2029.
bool IsControl(std::string_view character) {
    return HasControlCharacters(character) ||
           (character.size() == 2 && character[0] == '\xc2' && static_cast<unsigned char>(character[1]) < 0xa0) ||
           character == "\xe2\x80\xa8" || character == "\xe2\x80\xa9";
}

}  // namespace

LogText::LogText(std::string_view text) noexcept {
    std::size_t size = 0;
    const auto append = [&](std::string_view part) {
        std::copy(part.begin(), part.end(), _text.begin() + static_cast<std::ptrdiff_t>(size));
        size += part.size();
    };
    while (!text.empty()) {
        const std::size_t length = Utf8SequenceSize(text);
        const auto character = text.substr(0, std::max<std::size_t>(length, 1));
        if (size + character.size() > kMaximumSize) {
            append("...");
            break;
        }
        append(length == 0 || IsControl(character) ? "?" : character);
        text.remove_prefix(character.size());
    }
    _text[size] = '\0';
}

}  // namespace nimbrel::kit
