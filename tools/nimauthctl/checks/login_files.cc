#include "tools/nimauthctl/checks/login_files.h"

#include <glob.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>

namespace nimbrel::nimauthctl {
namespace {

constexpr int kDeepestInclude = 32;

std::vector<std::string> Words(const std::string& line) {
    std::istringstream stream(line.substr(0, line.find('#')));
    return {std::istream_iterator<std::string>(stream), {}};
}

// Without criteria, as in "files [NOTFOUND=return] sss".
std::string WithoutBrackets(const std::string& line) {
    std::string text;
    bool inside = false;
    for (const char c : line) {
        inside = inside || c == '[';
        if (!inside) text += c;
        if (c == ']') inside = false;
    }
    return text;
}

// One line of a PAM service: what it does, or which file it goes on in.
struct PamLine {
    std::string type;    // empty for all
    std::string module;  // or the included file
    bool isInclude = false;
};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::optional<PamLine> ParsePamLine(const std::string& line) {
    // A control in brackets holds blanks; its content does not matter here.
    std::string text = line;
    const auto open = text.find('[');
    const auto close = text.find(']', open == std::string::npos ? text.size() : open);
    if (close != std::string::npos) text.replace(open, close - open + 1, " [] ");
    const auto words = Words(text);
    if (words.size() >= 2 && words[0] == "@include") return PamLine{"", words[1], true};
    if (words.size() < 3) return std::nullopt;
    const std::string type = LowerCase(words[0][0] == '-' ? words[0].substr(1) : words[0]);
    return PamLine{type, words[2], words[1] == "include" || words[1] == "substack"};
}

std::vector<PamLine> ReadPamLines(const std::string& path) {
    std::vector<PamLine> lines;
    std::istringstream stream(ReadText(path).value_or(""));
    std::string whole;
    for (std::string line; std::getline(stream, line);) {
        whole += line;
        if (!whole.empty() && whole.back() == '\\') {
            whole.back() = ' ';
            continue;
        }
        if (const auto parsed = ParsePamLine(whole)) lines.push_back(*parsed);
        whole.clear();
    }
    return lines;
}

std::string FileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool Reaches(const std::string& folder, const std::string& service, const std::string& type, const std::string& module,
             int depth) {
    if (depth > kDeepestInclude) return false;
    const auto lines = ReadPamLines(folder + '/' + FileName(service));
    return std::any_of(lines.begin(), lines.end(), [&](const PamLine& line) {
        if (!line.type.empty() && line.type != type) return false;
        if (line.isInclude) return Reaches(folder, line.module, type, module, depth + 1);
        return FileName(line.module) == FileName(module);
    });
}

}  // namespace

std::optional<std::string> ReadText(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) return std::nullopt;
    std::string text(std::istreambuf_iterator<char>(stream), {});
    if (stream.bad()) return std::nullopt;
    return text;
}

bool NamesService(const std::string& nsswitch, const std::string& database, const std::string& service) {
    std::istringstream stream(nsswitch);
    for (std::string line; std::getline(stream, line);) {
        const auto colon = line.find(':');
        const auto name = Words(line.substr(0, colon));
        if (colon == std::string::npos || name.size() != 1 || name[0] != database) continue;
        const auto services = Words(WithoutBrackets(line.substr(colon + 1)));
        return std::find(services.begin(), services.end(), service) != services.end();
    }
    return false;
}

bool ReachesModule(const std::string& folder, const std::string& service, const std::string& type,
                   const std::string& module) {
    return Reaches(folder, service, type, module, 0);
}

std::vector<std::string> AllMatches(const std::string& root, const std::string& pattern) {
    glob_t matches = {};
    std::vector<std::string> paths;
    if (glob((root + pattern).c_str(), 0, nullptr, &matches) == 0) {
        for (std::size_t i = 0; i < matches.gl_pathc; ++i) paths.push_back(matches.gl_pathv[i] + root.size());
    }
    globfree(&matches);
    return paths;
}

std::string FirstMatch(const std::string& root, const std::vector<std::string>& patterns) {
    for (const auto& pattern : patterns) {
        const auto paths = AllMatches(root, pattern);
        if (!paths.empty()) return paths.front();
    }
    return "";
}

}  // namespace nimbrel::nimauthctl
