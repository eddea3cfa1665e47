// An edit of any hosts file does what a plain line-by-line retelling of the rule does, every other byte is kept, and
// doing it again changes nothing.
//
// Input: the address, the name, the aliases with a blank between them, the file.

#include <arpa/inet.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "fuzz.h"
#include "sysnet/hosts_file.h"

namespace {

using fuzzing::Require;
using Words = std::vector<std::string>;

Words Split(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// One spelling for each address; empty for what is none.
std::string Canonical(const std::string& text) {
    char address[INET6_ADDRSTRLEN] = {};
    unsigned char bytes[sizeof(in6_addr)] = {};
    if (text.find('\0') != std::string::npos) return "";
    for (const int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, text.c_str(), bytes) == 1) return inet_ntop(family, bytes, address, sizeof address);
    }
    return "";
}

std::string Format(const Words& words) {
    std::string line = words[0] + '\t' + words[1];
    for (std::size_t i = 2; i < words.size(); ++i) line += ' ' + words[i];
    return line;
}

std::string EndOf(const std::string& line) {
    if (line.ends_with("\r\n")) return "\r\n";
    return line.ends_with('\n') ? "\n" : "";
}

// The line of an entry's address: the new entry, or nothing, with the comment that was behind the old one.
std::string Replaced(const std::string& line, const Words& words, bool placed) {
    const std::string data = line.substr(0, line.find('#'));
    const std::string comment = data.size() == line.size() ? "" : line.substr(data.find_last_not_of(" \t\v\f\r") + 1);
    if (!placed) return Split(data) == words ? line : Format(words) + comment;
    return comment;
}

std::string Expected(std::string text, const Words& words) {
    std::string result;
    std::string usualEnd = "\n";
    bool placed = false;
    while (!text.empty()) {
        const std::string raw = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
        text.erase(0, raw.size());
        const std::string end = EndOf(raw);
        const std::string line = raw.substr(0, raw.size() - end.size());
        const Words old = Split(line.substr(0, line.find('#')));
        usualEnd = end.empty() ? usualEnd : end;
        if (old.empty() || Canonical(old[0]) != Canonical(words[0])) {
            result += raw;
            continue;
        }
        const std::string changed = Replaced(line, words, placed);
        if (!placed || !changed.empty()) result += changed + end;
        placed = true;
    }
    if (placed) return result;
    if (!result.empty() && !result.ends_with('\n')) result += usualEnd;
    return result + Format(words) + usualEnd;
}

bool IsName(const std::string& name) {
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](char c) { return c > 0x20 && c < 0x7f && c != '#'; });
}

std::string Edit(const std::string& path, const std::string& address, const std::string& name, const Words& aliases) {
    try {
        SysNet::Network::HostsFile(path).AddOrReplaceEntry(address, name, aliases);
        return "";
    } catch (const HostMgmt::Lib::HostMgmtException& error) {
        return error.what();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzzing::ScratchFolder folder;
    static const std::string path = folder / "hosts";
    fuzzing::Input input(data, size);
    const std::string address = input.Field();
    const std::string name = input.Field();
    const Words aliases = Split(input.Field());
    const std::string text = input.Rest();
    fuzzing::WriteFile(path, text);

    const std::string error = Edit(path, address, name, aliases);
    const std::string edited = fuzzing::ReadFile(path);
    const bool valid =
        !Canonical(address).empty() && IsName(name) && std::all_of(aliases.begin(), aliases.end(), IsName);
    Require(error.empty() == valid, "well-formed entries are taken, and only those");
    if (!valid) {
        Require(edited == text, "a refused entry leaves the file alone");
        return 0;
    }
    Words words = {address, name};
    words.insert(words.end(), aliases.begin(), aliases.end());
    Require(edited == Expected(text, words), "the edit does what the rule says");
    Require(Edit(path, address, name, aliases).empty() && fuzzing::ReadFile(path) == edited, "again changes nothing");
    return 0;
}
