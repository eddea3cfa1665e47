#include "tools/nimauthctl/checks/login_files.h"

#include <glob.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <sstream>

namespace nimbrel::nimauthctl {
namespace {

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

}  // namespace

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

std::vector<std::string> AllMatches(const std::string& root, const std::string& pattern) {
    glob_t matches = {};
    std::vector<std::string> paths;
    if (glob((root + pattern).c_str(), 0, nullptr, &matches) == 0) {
        for (std::size_t i = 0; i < matches.gl_pathc; ++i) paths.emplace_back(matches.gl_pathv[i] + root.size());
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
