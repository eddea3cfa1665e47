#include "pluginkit/directory_names.h"

#include <algorithm>

namespace nimbrel::kit {
namespace {

constexpr std::size_t kMaximumDnsName = 253;
constexpr std::size_t kMaximumLabel = 63;
constexpr std::size_t kMaximumComputerName = 15;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLabelCharacter(char c) { return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z') || c == '-' || c == '_'; }

}  // namespace

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string UpperCase(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Upper);
    return upper;
}

bool SameName(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

std::size_t Utf8SequenceSize(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (length == 0 || first > 0xf4 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xf0 && byte(1) < 0x90);
    const bool noScalar = (first == 0xed && byte(1) > 0x9f) || (first == 0xf4 && byte(1) > 0x8f);
    return overlong || noScalar ? 0 : length;
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = Utf8SequenceSize(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool HasControlCharacters(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

bool IsLabel(std::string_view label) {
    return !label.empty() && label.size() <= kMaximumLabel && label.front() != '-' && label.back() != '-' &&
           std::all_of(label.begin(), label.end(), IsLabelCharacter);
}

bool IsDnsName(std::string_view name) {
    if (name.size() > kMaximumDnsName) {
        return false;
    }
    while (true) {
        const auto dot = name.find('.');
        if (!IsLabel(name.substr(0, dot))) {
            return false;
        }
        if (dot == std::string_view::npos) {
            return true;
        }
        name.remove_prefix(dot + 1);
    }
}

std::string_view WithoutFinalDot(std::string_view name) {
    return name.size() > 1 && name.back() == '.' ? name.substr(0, name.size() - 1) : name;
}

bool IsComputerName(std::string_view name) {
    return name.size() <= kMaximumComputerName && IsLabel(name) && name.find('_') == std::string_view::npos &&
           !std::all_of(name.begin(), name.end(), IsDigit);
}

std::string_view BareComputerName(std::string_view name) {
    name = name.substr(0, name.find('.'));
    return !name.empty() && name.back() == '$' ? name.substr(0, name.size() - 1) : name;
}

std::string HostPrincipalName(const std::string& computer, const std::string& domain) {
    return "host/" + LowerCase(computer) + "." + domain + "@" + UpperCase(domain);
}

bool LooksLikeDistinguishedName(std::string_view unit) {
    const auto equals = unit.find('=');
    if (equals == std::string_view::npos) {
        return false;
    }
    std::string type = LowerCase(unit.substr(0, equals));
    type.erase(std::remove(type.begin(), type.end(), ' '), type.end());
    return type == "ou" || type == "cn" || type == "dc";
}

std::vector<std::string> SplitUnitPath(std::string_view path) {
    std::vector<std::string> names(1);
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '/') {
            names.emplace_back();
        } else if (path[i] == '\\' && i + 1 < path.size() && (path[i + 1] == '/' || path[i + 1] == '\\')) {
            names.back() += path[++i];
        } else {
            names.back() += path[i];
        }
    }
    return names;
}

}  // namespace nimbrel::kit
