// A realm is taken out of a keytab of any bytes: every other entry stays byte for byte, as a plain reader finds them,
// and a damaged file is left alone.
//
// Input: the realm, the file.

#include <optional>
#include <vector>

#include "addirectory/ad_error.h"
#include "fuzz.h"
#include "keytab.h"

namespace {

using fuzzing::Require;

struct Damaged {};

struct Entry {
    std::string bytes;  // with the length before it
    std::string realm;
};

std::string Take(std::string& from, std::size_t size) {
    if (size > from.size()) throw Damaged();
    std::string taken = from.substr(0, size);
    from.erase(0, size);
    return taken;
}

std::int64_t BigEndian(const std::string& bytes) {
    std::int64_t number = 0;
    for (const char byte : bytes) number = number * 256 + static_cast<unsigned char>(byte);
    return number;
}

std::string TakeText(std::string& from) { return Take(from, static_cast<std::size_t>(BigEndian(Take(from, 2)))); }

std::vector<Entry> Literal(std::string file) {
    std::vector<Entry> entries;
    if (file.empty()) return entries;
    if (Take(file, 2) != "\x05\x02") throw Damaged();
    while (!file.empty()) {
        const std::string length = Take(file, 4);
        std::int64_t size = BigEndian(length);
        if (size == 0) break;
        const bool deleted = size > 0x7fffffff;
        if (deleted) size = 0x100000000 - size;
        std::string entry = Take(file, static_cast<std::size_t>(size));
        if (deleted) continue;
        entries.push_back({length + entry, ""});
        std::int64_t components = BigEndian(Take(entry, 2));
        entries.back().realm = TakeText(entry);
        while (components-- > 0) TakeText(entry);
    }
    return entries;
}

// The file without the realm; unset where it is damaged.
std::optional<std::string> Expected(const std::string& file, const std::string& realm) try {
    std::string kept("\x05\x02", 2);
    bool removed = false;
    for (const Entry& entry : Literal(file)) {
        removed = removed || entry.realm == realm;
        if (entry.realm != realm) kept += entry.bytes;
    }
    if (!removed) return file;
    return kept.size() == 2 ? "" : kept;
} catch (const Damaged&) {
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzzing::ScratchFolder folder;
    static const std::string path = folder / "krb5.keytab";
    fuzzing::Input input(data, size);
    const std::string realm = input.Field();
    const std::string file = input.Rest();
    fuzzing::WriteFile(path, file);
    bool refused = false;
    try {
        nimbrel::ad::RemoveRealmFromKeytab(path, realm);
    } catch (const nimbrel::ad::AdError&) {
        refused = true;
    }
    const auto expected = Expected(file, realm);
    Require(refused == !expected, "the same files are damaged");
    Require(fuzzing::ReadFile(path) == expected.value_or(file), "every other entry stays as it was");
    Require(!std::filesystem::exists(path + ".new"), "nothing is left beside the file");
    return 0;
}
