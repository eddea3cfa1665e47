#include "tools/loginfiles/unified_diff.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "tools/loginfiles/common_lines.h"

namespace nimbrel::logins {
namespace {

constexpr std::size_t kContext = 3;

// One line of the output: ' ', '-' or '+', and where it stands in both texts (from 0, before the line).
struct Step {
    char mark;
    std::string_view line;
    std::size_t before;
    std::size_t after;
};

// Lines with their ends; the last one may have none.
std::vector<std::string_view> Lines(const std::string* text) {
    std::vector<std::string_view> lines;
    if (text == nullptr) return lines;
    std::string_view rest = *text;
    while (!rest.empty()) {
        const std::size_t size = std::min(rest.find('\n'), rest.size() - 1) + 1;
        lines.push_back(rest.substr(0, size));
        rest.remove_prefix(size);
    }
    return lines;
}

std::vector<Step> Steps(const std::vector<std::string_view>& a, const std::vector<std::string_view>& b) {
    std::vector<Step> steps;
    std::size_t i = 0;
    std::size_t j = 0;
    const auto goTo = [&](std::size_t nextI, std::size_t nextJ) {
        for (; i < nextI; ++i) steps.push_back({'-', a[i], i, j});
        for (; j < nextJ; ++j) steps.push_back({'+', b[j], i, j});
    };
    for (const auto& [sameI, sameJ] : CommonLines(a, b)) {
        goTo(sameI, sameJ);
        steps.push_back({' ', a[i], i, j});
        ++i, ++j;
    }
    goTo(a.size(), b.size());
    return steps;
}

// "12,7": the first line, from 1, and how many; an empty range names the line before it.
std::string Range(std::size_t first, std::size_t count) {
    return std::to_string(count == 0 ? first : first + 1) + ',' + std::to_string(count);
}

std::string Hunk(const std::vector<Step>& steps, std::size_t begin, std::size_t end) {
    std::string body;
    std::size_t before = 0;
    std::size_t after = 0;
    for (std::size_t index = begin; index < end; ++index) {
        const Step& step = steps[index];
        before += step.mark == '+' ? 0 : 1;
        after += step.mark == '-' ? 0 : 1;
        body += step.mark;
        body += step.line;
        if (!step.line.ends_with('\n')) body += "\n\\ No newline at end of file\n";
    }
    return "@@ -" + Range(steps[begin].before, before) + " +" + Range(steps[begin].after, after) + " @@\n" + body;
}

// Where the hunk that begins with the change at `first` ends: changes closer than twice the context share one.
std::size_t HunkEnd(const std::vector<Step>& steps, std::size_t first) {
    std::size_t last = first;
    for (std::size_t index = first; index < steps.size() && index <= last + 2 * kContext + 1; ++index) {
        if (steps[index].mark != ' ') last = index;
    }
    return std::min(last + 1 + kContext, steps.size());
}

}  // namespace

std::string UnifiedDiff(const std::string& path, const std::string* before, const std::string* after) {
    const std::vector<std::string_view> a = Lines(before);
    const std::vector<std::string_view> b = Lines(after);
    const std::vector<Step> steps = Steps(a, b);
    std::string hunks;
    for (std::size_t index = 0; index < steps.size();) {
        if (steps[index].mark == ' ') {
            ++index;
            continue;
        }
        const std::size_t end = HunkEnd(steps, index);
        hunks += Hunk(steps, index - std::min(index, kContext), end);
        index = end;
    }
    const bool same = hunks.empty() && (before == nullptr) == (after == nullptr);
    if (same) return "";
    return "--- " + (before == nullptr ? "/dev/null" : path) + "\n+++ " + (after == nullptr ? "/dev/null" : path) +
           "\n" + hunks;
}

}  // namespace nimbrel::logins
