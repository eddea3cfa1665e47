#include "tools/loginfiles/common_lines.h"

#include <algorithm>
#include <cstdint>

namespace nimbrel::logins {
namespace {

// The lengths of the longest common rest from each pair of positions on.
class CommonRests {
 public:
    CommonRests(const std::vector<std::string_view>& a, const std::vector<std::string_view>& b)
        : _columns(b.size() + 1), _lengths((a.size() + 1) * _columns) {
        for (std::size_t i = a.size(); i-- > 0;) {
            for (std::size_t j = b.size(); j-- > 0;) {
                Cell(i, j) = a[i] == b[j] ? Cell(i + 1, j + 1) + 1 : std::max(Cell(i + 1, j), Cell(i, j + 1));
            }
        }
    }
    std::uint32_t& Cell(std::size_t i, std::size_t j) { return _lengths[i * _columns + j]; }

 private:
    std::size_t _columns;
    std::vector<std::uint32_t> _lengths;
};

}  // namespace

std::vector<std::pair<std::size_t, std::size_t>> CommonLines(const std::vector<std::string_view>& a,
                                                             const std::vector<std::string_view>& b) {
    CommonRests rests(a, b);
    std::vector<std::pair<std::size_t, std::size_t>> common;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (a[i] == b[j]) {
            common.emplace_back(i++, j++);
        } else if (rests.Cell(i + 1, j) >= rests.Cell(i, j + 1)) {
            ++i;
        } else {
            ++j;
        }
    }
    return common;
}

}  // namespace nimbrel::logins
