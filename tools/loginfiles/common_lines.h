// What two texts have in common, line by line.

#ifndef NIMBREL_LOGINS_COMMON_LINES_H_
#define NIMBREL_LOGINS_COMMON_LINES_H_

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace nimbrel::logins {

// The positions (from 0) in both of the longest sequence of lines that stands in both in this order; of several that are
// as long, the first. Time and memory grow with the product of the sizes: for files that people write.
std::vector<std::pair<std::size_t, std::size_t>> CommonLines(const std::vector<std::string_view>& a,
                                                             const std::vector<std::string_view>& b);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_COMMON_LINES_H_
