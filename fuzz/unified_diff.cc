// The difference of any two texts, applied to the first one, gives the second one, and shows no more context than it
// has to.
//
// Input: a byte that says which of the texts are there at all, the two texts.

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "fuzz.h"
#include "tools/loginfiles/unified_diff.h"

namespace {

using fuzzing::Require;

std::string TakeLine(std::string& text) {
    std::string line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
    text.erase(0, line.size());
    return line;
}

// Takes one line of a hunk: its mark and the line, without a line end where a remark says so.
std::string TakeStep(std::string& diff) {
    static const std::string kNoEnd = "\\ No newline at end of file\n";
    std::string step = TakeLine(diff);
    if (!diff.starts_with(kNoEnd)) return step;
    diff.erase(0, kNoEnd.size());
    step.pop_back();
    return step;
}

struct Header {
    std::size_t first = 0;
    std::size_t removed = 0;
    std::size_t added = 0;
};

Header TakeHeader(std::string& diff) {
    Header header;
    std::size_t other = 0;
    const int fields = std::sscanf(TakeLine(diff).c_str(), "@@ -%zu,%zu +%zu,%zu @@", &header.first, &header.removed,
                                   &other, &header.added);
    Require(fields == 4, "a hunk begins with its ranges");
    return header;
}

// Applies the hunks to `before`.
std::string Patched(std::string before, std::string diff) {
    std::string after;
    std::size_t line = 1;
    while (!diff.empty()) {
        const Header header = TakeHeader(diff);
        for (; line < header.first + (header.removed == 0 ? 1 : 0); ++line) after += TakeLine(before);
        std::size_t removed = 0;
        std::size_t added = 0;
        while (removed < header.removed || added < header.added) {
            const std::string step = TakeStep(diff);
            Require(step.size() > 0, "a hunk is whole");
            if (step[0] != '+') {
                Require(TakeLine(before) == step.substr(1), "what is taken away is there");
                ++line, ++removed;
            }
            if (step[0] != '-') {
                after += step.substr(1);
                ++added;
            }
        }
    }
    return after + before;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::Input input(data, size);
    const unsigned there = input.Byte();
    const std::string before = (there & 1U) != 0 ? "" : input.Field();
    const std::string after = (there & 2U) != 0 ? "" : input.Field();
    const std::string* const a = (there & 1U) != 0 ? nullptr : &before;
    const std::string* const b = (there & 2U) != 0 ? nullptr : &after;
    std::string diff = nimbrel::logins::UnifiedDiff("/f", a, b);
    Require(diff.empty() == (before == after && (a == nullptr) == (b == nullptr)), "equal texts have no difference");
    if (diff.empty()) return 0;
    Require(TakeLine(diff) == (a == nullptr ? "--- /dev/null\n" : "--- /f\n"), "the old file is named");
    Require(TakeLine(diff) == (b == nullptr ? "+++ /dev/null\n" : "+++ /f\n"), "the new file is named");
    Require(Patched(before, diff) == after, "the difference leads from one text to the other");
    return 0;
}
