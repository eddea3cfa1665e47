#include "tools/nimauthctl/checks/keytab.h"

#include <algorithm>
#include <cstdint>

namespace nimbrel::nimauthctl {
namespace {

// Takes numbers and texts from the front; asked for more than there is, it gives nothing from then on.
class Bytes {
 public:
    explicit Bytes(std::string_view bytes) : _bytes(bytes) {}

    bool IsGood() const { return _good; }
    bool IsEmpty() const { return _bytes.empty(); }

    std::string_view Take(std::size_t size) {
        _good = _good && size <= _bytes.size();
        if (!_good) return {};
        const auto taken = _bytes.substr(0, size);
        _bytes.remove_prefix(size);
        return taken;
    }
    std::uint32_t Number(std::size_t size) {
        std::uint32_t number = 0;
        for (const char c : Take(size)) number = number << 8 | static_cast<unsigned char>(c);
        return number;
    }
    std::string Text() { return std::string(Take(Number(2))); }

 private:
    std::string_view _bytes;
    bool _good = true;
};

std::optional<std::string> PrincipalOf(std::string_view entry) {
    Bytes bytes(entry);
    const std::uint32_t parts = bytes.Number(2);
    const std::string realm = bytes.Text();
    std::string name;
    for (std::uint32_t part = 0; part < parts && bytes.IsGood(); ++part) name += (part == 0 ? "" : "/") + bytes.Text();
    if (!bytes.IsGood()) return std::nullopt;
    return name + '@' + realm;
}

}  // namespace

std::optional<std::vector<std::string>> KeytabPrincipals(std::string_view bytes) {
    Bytes rest(bytes);
    if (rest.Number(2) != 0x0502) return std::nullopt;
    std::vector<std::string> principals;
    while (!rest.IsEmpty()) {
        const auto size = static_cast<std::int32_t>(rest.Number(4));
        const auto entry =
            rest.Take(size < 0 ? std::size_t{0} - static_cast<std::size_t>(size) : static_cast<std::size_t>(size));
        if (!rest.IsGood()) return std::nullopt;
        if (size == 0) break;  // what follows is padding
        if (size < 0) continue;
        const auto principal = PrincipalOf(entry);
        if (!principal) return std::nullopt;
        if (std::find(principals.begin(), principals.end(), *principal) == principals.end()) {
            principals.push_back(*principal);
        }
    }
    return principals;
}

}  // namespace nimbrel::nimauthctl
