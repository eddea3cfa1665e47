#include "sysnet/hosts_file.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "internal/no_cancellation.h"
#include "names.h"
#include "text_file.h"

namespace SysNet::Network {
namespace {

constexpr char kBlanks[] = " \t\v\f\r";

// A line taken apart: its words (the address and its names), and the comment with the blanks before it.
struct Entry {
    std::vector<std::string> words;
    std::string comment;
};

Entry Parse(const std::string& line) {
    Entry entry;
    const std::size_t end = line.find('#');  // npos lies behind every word
    std::size_t at = line.find_first_not_of(kBlanks);
    std::size_t behindWords = 0;
    while (at < end) {
        behindWords = std::min(line.find_first_of(kBlanks, at), end);
        entry.words.push_back(line.substr(at, behindWords - at));
        at = line.find_first_not_of(kBlanks, behindWords);
    }
    if (end != std::string::npos) entry.comment = line.substr(behindWords);
    return entry;
}

// "address<tab>name alias alias"
std::string Format(const std::vector<std::string>& words) {
    std::string line = words[0] + "\t" + words[1];
    for (std::size_t i = 2; i < words.size(); ++i) line += " " + words[i];
    return line;
}

// Puts the entry of its address into the lines; see the header.
void Replace(std::vector<Line>& lines, const std::vector<std::string>& words) {
    std::vector<Line> changed;
    bool placed = false;
    for (Line& line : lines) {
        const Entry entry = Parse(line.text);
        const bool isOld = !entry.words.empty() && SameAddress(entry.words[0], words[0]);
        if (isOld && !placed) {
            if (entry.words != words) line.text = Format(words) + entry.comment;
            placed = true;
        } else if (isOld && entry.comment.empty()) {
            continue;
        } else if (isOld) {
            line.text = entry.comment;
        }
        changed.push_back(std::move(line));
    }
    if (!placed) AppendLine(changed, Format(words));
    lines = std::move(changed);
}

}  // namespace

HostsFile::HostsFile() : HostsFile("/etc/hosts") {}

HostsFile::HostsFile(std::string path) : _path(std::move(path)) {}

void HostsFile::AddOrReplaceEntry(const std::string& address, const std::string& hostName,
                                  const std::vector<std::string>& aliases) {
    CheckAddress(address);
    std::vector<std::string> words = {address, hostName};
    words.insert(words.end(), aliases.begin(), aliases.end());
    for (std::size_t i = 1; i < words.size(); ++i) CheckHostName(words[i]);

    const nimbrel::internal::NoCancellation noCancellation;
    const std::optional<std::string> old = ReadTextFile(_path);
    std::vector<Line> lines = SplitLines(old.value_or(""));
    Replace(lines, words);
    const std::string content = JoinLines(lines);
    if (content != old) ReplaceTextFile(_path, content);
}

}  // namespace SysNet::Network
