// Organizational units: "Hosts/Sub" and "OU=Sub,OU=Hosts,DC=corp,DC=test" are the same unit.

#include <algorithm>
#include <utility>

#include "embeddeddirectory/directory_error.h"
#include "hex.h"
#include "names.h"

namespace nimbrel::embedded {
namespace {

constexpr std::size_t kMaximumText = 2048;
constexpr std::size_t kMaximumUnitName = 64;
constexpr char kDefaultContainer[] = "Computers";

[[noreturn]] void FailMalformed() {
    throw DirectoryError(kStatusInvalidUnitName, "The organizational unit is malformed");
}

struct Rdn {
    std::string type;  // lower case
    std::string value;
};

// Reads a distinguished name from the front. Escapes are a backslash before a special character or two hexadecimal
// digits; blanks around "=" and "," do not count.
class DnReader {
 public:
    explicit DnReader(std::string_view text) : _text(text) {}

    std::vector<Rdn> ReadAll() {
        std::vector<Rdn> names;
        do {
            names.push_back(ReadOne());
        } while (Take(','));
        return names;
    }

 private:
    Rdn ReadOne() {
        SkipBlanks();
        const auto equals = _text.find('=', _at);
        if (equals == std::string_view::npos) {
            FailMalformed();
        }
        std::string type = LowerCase(_text.substr(_at, equals - _at));
        type.erase(type.find_last_not_of(' ') + 1);
        _at = equals + 1;
        return {std::move(type), ReadValue()};
    }

    std::string ReadValue() {
        SkipBlanks();
        std::string value;
        std::size_t keep = 0;  // up to and including the last character that is no unescaped blank
        while (_at < _text.size() && _text[_at] != ',') {
            const bool escaped = _text[_at] == '\\';
            const bool blank = _text[_at] == ' ';
            value += escaped ? ReadEscape() : ReadPlain();
            if (!blank) {
                keep = value.size();
            }
        }
        value.resize(keep);
        return value;
    }

    char ReadPlain() {
        const char c = _text[_at++];
        if (c == '+' || c == '"' || c == '<' || c == '>' || c == ';') {
            FailMalformed();
        }
        return c;
    }

    char ReadEscape() {
        ++_at;
        if (_at + 1 < _text.size() && HexDigit(_text[_at]) >= 0 && HexDigit(_text[_at + 1]) >= 0) {
            const int value = HexDigit(_text[_at]) * 16 + HexDigit(_text[_at + 1]);
            _at += 2;
            return static_cast<char>(value);
        }
        if (_at == _text.size()) {
            FailMalformed();
        }
        return _text[_at++];
    }

    void SkipBlanks() {
        while (_at < _text.size() && _text[_at] == ' ') {
            ++_at;
        }
    }

    bool Take(char c) {
        if (_at < _text.size() && _text[_at] == c) {
            ++_at;
            return true;
        }
        return false;
    }

    std::string_view _text;
    std::size_t _at = 0;
};

UnitNames ParseDistinguishedName(std::string_view text, const std::string& domainDnsName) {
    UnitNames units;
    std::string domain;
    std::string container;
    for (auto& [type, value] : DnReader(text).ReadAll()) {
        if (type == "dc") {
            domain += domain.empty() ? "" : ".";
            domain += value;
        } else if (type == "ou" && domain.empty() && container.empty()) {
            units.push_back(std::move(value));
        } else if (type == "cn" && domain.empty() && units.empty() && container.empty()) {
            container = std::move(value);
        } else {
            FailMalformed();
        }
    }
    const bool elsewhere = !domain.empty() && !SameName(domain, domainDnsName);
    if (elsewhere || (!container.empty() && !SameName(container, kDefaultContainer))) {
        throw DirectoryError(kStatusFileNotFound, "The organizational unit is not in the domain");
    }
    std::reverse(units.begin(), units.end());
    return units;
}

std::string EscapePathName(const std::string& name) {
    std::string escaped;
    for (const char c : name) {
        if (c == '/' || c == '\\') {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

std::string EscapeDnValue(const std::string& value) {
    static constexpr std::string_view kSpecial = ",+\"\\<>;=";
    std::string escaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const bool edge =
            (i == 0 && (value[i] == ' ' || value[i] == '#')) || (i + 1 == value.size() && value[i] == ' ');
        if (edge || kSpecial.find(value[i]) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += value[i];
    }
    return escaped;
}

std::string DomainDistinguishedName(const std::string& domainDnsName) {
    std::string name = "DC=";
    for (const char c : domainDnsName) {
        name += c == '.' ? std::string(",DC=") : std::string(1, c);
    }
    return name;
}

}  // namespace

UnitNames ParseUnit(std::string_view unit, const std::string& domainDnsName) {
    if (unit.empty()) {
        return {};
    }
    if (unit.size() > kMaximumText || !IsUtf8(unit)) {
        FailMalformed();
    }
    UnitNames names =
        kit::LooksLikeDistinguishedName(unit) ? ParseDistinguishedName(unit, domainDnsName) : kit::SplitUnitPath(unit);
    const auto wellFormed = [](const std::string& name) { return IsPlainText(name, kMaximumUnitName); };
    if (names.size() > kMaximumUnitDepth || !std::all_of(names.begin(), names.end(), wellFormed)) {
        FailMalformed();
    }
    return names;
}

std::string UnitPath(const UnitNames& names) {
    std::string path;
    for (const auto& name : names) {
        path += path.empty() ? "" : "/";
        path += EscapePathName(name);
    }
    return path;
}

std::string UnitDistinguishedName(const UnitNames& names, const std::string& domainDnsName) {
    std::string distinguishedName;
    for (std::size_t i = names.size(); i-- > 0;) {
        distinguishedName += "OU=" + EscapeDnValue(names[i]) + ",";
    }
    return distinguishedName + DomainDistinguishedName(domainDnsName);
}

std::string ComputerDistinguishedName(const std::string& computer, const UnitNames& names,
                                      const std::string& domainDnsName) {
    if (names.empty()) {
        return "CN=" + computer + ",CN=" + kDefaultContainer + "," + DomainDistinguishedName(domainDnsName);
    }
    return "CN=" + computer + "," + UnitDistinguishedName(names, domainDnsName);
}

}  // namespace nimbrel::embedded
