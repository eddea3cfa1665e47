#include "trace.h"

#include <algorithm>
#include <map>
#include <optional>
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
    // "name(arguments)   = 3" and perhaps more after a blank or in angle brackets; unset if it failed, or is no call. A
    // regular expression would take longer for all of them than the programs run.
    static std::optional<Call> CallIn(const std::string& text) {
        const std::size_t open = text.find('(');
        const std::size_t name = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_");
        if (open == 0 || open == std::string::npos || name != open) return std::nullopt;
        for (std::size_t close = text.rfind(')'); close != std::string::npos && close > open;
             close = text.rfind(')', close - 1)) {
            const std::size_t sign = text.find_first_not_of(' ', close + 1);
            if (sign == close + 1 || sign == std::string::npos || text.compare(sign, 2, "= ") != 0) continue;
            const std::size_t end = std::min(text.find_first_not_of("0123456789", sign + 2), text.size());
            if (end == sign + 2 || (end < text.size() && text[end] != ' ' && text[end] != '<')) continue;
            return Call{text.substr(0, open), text.substr(open + 1, close - open - 1),
                        std::stoi(text.substr(sign + 2))};
        }
        return std::nullopt;
    }

    void Take(const std::string& process, const std::string& text) {
        const std::optional<Call> taken = CallIn(text);
        if (!taken) return;
        const Call& call = *taken;
        if (IsOneOf(call.name, {"clone", "clone3", "fork", "vfork"})) {
            if (_foreign.contains(process)) _foreign.insert(std::to_string(call.result));
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
