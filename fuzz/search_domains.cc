// Search domains added to any resolv.conf or drop-in: a plain reader finds them behind those that were there, each
// once; every byte of the old text is still there, with one insertion; adding them again changes nothing.
//
// Input: the domains with a blank between them, the text.

#include <algorithm>
#include <sstream>
#include <vector>

#include "fuzz.h"
#include "hostmgmt/exceptions.h"
#include "names.h"
#include "search_domains.h"

namespace {

using fuzzing::Require;
using Words = std::vector<std::string>;

Words Split(const std::string& text) {
    Words words(1);
    for (const char c : text) {
        if (std::string_view(" \t\r").find(c) == std::string_view::npos) {
            words.back() += c;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) words.pop_back();
    return words;
}

// Up to the first word that starts a comment.
Words Values(const std::string& text) {
    Words words = Split(text);
    const auto comment = std::find_if(words.begin(), words.end(),
                                      [](const std::string& word) { return word[0] == '#' || word[0] == ';'; });
    words.erase(comment, words.end());
    return words;
}

Words SearchList(const std::string& text) {
    Words list;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string keyword = line.substr(0, 7);
        const bool search = keyword == "search " || keyword == "search\t";
        if (!search && keyword != "domain " && keyword != "domain\t") continue;
        const Words values = Values(line.substr(7));
        if (!values.empty()) list = search ? values : Words{values[0]};
    }
    return list;
}

// A text's lines; those that end with a backslash are joined with the next ones, comments between them left out.
Words LogicalLines(const std::string& text) {
    Words logical;
    bool goesOn = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r') && !lines.eof()) line.pop_back();
        const std::size_t first = line.find_first_not_of(" \t\r");
        const bool comment = first != std::string::npos && (line[first] == '#' || line[first] == ';');
        if (comment) continue;
        if (!goesOn) logical.emplace_back();
        goesOn = false;
        for (const char c : line) goesOn = c == '\\' && !goesOn;
        logical.back() += ' ' + line.substr(0, line.size() - (goesOn ? 1 : 0));
    }
    return logical;
}

Words DropInList(const std::string& text) {
    Words list;
    bool inside = false;
    for (const std::string& line : LogicalLines(text)) {
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos) continue;
        if (line[first] == '[') inside = Split(line) == Words{"[Resolve]"};
        const std::size_t equals = line.find('=');
        if (!inside || equals == std::string::npos || Split(line.substr(0, equals)) != Words{"Domains"}) continue;
        const Words values = Split(line.substr(equals + 1));
        if (values.empty()) list.clear();
        list.insert(list.end(), values.begin(), values.end());
    }
    return list;
}

std::string Folded(std::string domain) {
    if (domain.ends_with('.')) domain.pop_back();
    for (char& c : domain) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return domain;
}

Words With(Words list, const Words& domains) {
    for (const std::string& domain : domains) {
        const auto same = [&](const std::string& other) { return Folded(other) == Folded(domain); };
        if (std::none_of(list.begin(), list.end(), same)) list.push_back(domain);
    }
    return list;
}

bool HasOneInsertionAtMost(const std::string& before, const std::string& after) {
    const auto front = std::mismatch(before.begin(), before.end(), after.begin(), after.end()).first;
    const auto back = std::mismatch(before.rbegin(), before.rend(), after.rbegin(), after.rend()).first;
    return (front - before.begin()) + (back - before.rbegin()) >= static_cast<std::ptrdiff_t>(before.size());
}

using Add = std::string (*)(std::string_view text, const Words& domains);
using Read = Words (*)(const std::string& text);

void Check(Add add, Read read, const std::string& text, const Words& domains) {
    const std::string edited = add(text, domains);
    Require(read(edited) == With(read(text), domains), "the domains stand behind the old ones, each once");
    Require(HasOneInsertionAtMost(text, edited), "every old byte is kept");
    Require(add(edited, domains) == edited, "again changes nothing");
}

bool IsDomain(const std::string& word) {
    try {
        SysNet::Network::CheckSearchDomain(word);
        return true;
    } catch (const HostMgmt::Lib::HostMgmtException&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::Input input(data, size);
    Words domains = Split(input.Field());
    std::erase_if(domains, [](const std::string& word) { return !IsDomain(word); });
    std::string text = input.Rest();
    if (text.ends_with('\r')) text += '\n';  // or the "\r" would become part of the line end that an addition makes
    Check(SysNet::Network::AddToResolvConf, SearchList, text, domains);
    Check(SysNet::Network::AddToResolvedDropIn, DropInList, text, domains);
    return 0;
}
