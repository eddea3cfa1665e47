#include "trace.h"

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace nimbrel::testing {
namespace {

bool IsOneOf(const std::string& name, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(), [&](const char* one) { return name == one; });
}

// Text after a marker, and before it.
struct Halves {
    std::string before;
    std::string after;
    bool found = false;
};

Halves Split(const std::string& text, const std::string& marker) {
    const std::size_t at = text.find(marker);
    if (at == std::string::npos) return {text, "", false};
    return {text.substr(0, at), text.substr(at + marker.size()), true};
}

class Parser {
 public:
    explicit Parser(const std::vector<std::string>& own) : _own(own) {}

    // "123 openat(AT_FDCWD, "/x", O_RDONLY|O_CLOEXEC) = 3", or one of its two halves: strace writes what another
    // process does in between.
    void Read(const std::string& line) {
        const std::size_t blank = line.find(' ');
        if (blank == std::string::npos) return;
        const std::string process = line.substr(0, blank);
        std::string rest = line.substr(line.find_first_not_of(' ', blank));
        if (const Halves halves = Split(rest, " <unfinished ...>"); halves.found) {
            _unfinished[process] = halves.before;
            return;
        }
        if (const Halves halves = Split(rest, " resumed>"); halves.found) rest = _unfinished[process] + halves.after;
        Take(process, rest);
    }

    std::vector<Call> Calls() && { return std::move(_calls); }

 private:
    void Take(const std::string& process, const std::string& text) {
        static const std::regex form(R"(([a-z0-9_]+)\((.*)\) += (\d+)(<.*>)?( .*)?)");
        std::smatch match;
        if (!std::regex_match(text, match, form)) return;  // it failed, or is no call
        const Call call{match[1], match[2], std::stoi(match[3])};
        if (IsOneOf(call.name, {"clone", "clone3", "fork", "vfork"})) {
            if (_foreign.contains(process)) _foreign.insert(match[3]);
        } else if (call.name == "execve") {
            const bool isOwn = std::any_of(_own.begin(), _own.end(), [&](const std::string& program) {
                return call.arguments.rfind('"' + program + '"', 0) == 0;
            });
            if (!isOwn) _foreign.insert(process);
        } else if (!_foreign.contains(process)) {
            _calls.push_back(call);
        }
    }

    const std::vector<std::string>& _own;
    std::map<std::string, std::string> _unfinished;  // by process
    std::set<std::string> _foreign;
    std::vector<Call> _calls;
};

}  // namespace

std::vector<Call> ParseTrace(const std::string& text, const std::vector<std::string>& own) {
    Parser parser(own);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) parser.Read(line);
    return std::move(parser).Calls();
}

bool IsInherited(const Call& call) {
    if (call.Has("CLOEXEC") || (call.name == "fcntl" && !call.Has("F_DUPFD"))) return false;
    return call.result > 2 || IsOneOf(call.name, {"pipe", "pipe2", "socketpair"});
}

bool MayUseAnotherFile(const Call& call) {
    if (call.name == "creat") return true;
    return IsOneOf(call.name, {"open", "openat", "openat2"}) && call.Has("O_CREAT") && !call.Has("O_EXCL");
}

}  // namespace nimbrel::testing
