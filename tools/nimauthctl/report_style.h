// What the two texts of a report have in common: how single values read, and their colours.

#ifndef NIMAUTHCTL_REPORT_STYLE_H_
#define NIMAUTHCTL_REPORT_STYLE_H_

#include <string>
#include <string_view>

#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {

// "none", "yes", "5", or the text with its control characters shown.
std::string ScalarAsText(const Scalar& value);

// " [stale]" or nothing.
std::string StaleMark(bool stale, bool colors);

// The text of a detail in its colour: "result" is green, yellow or red, what is stale is yellow.
std::string Painted(const std::string& text, std::string_view name, bool colors);

// Text of several lines with its control characters shown; tabs and line ends stay. In colour, lines that a diff takes
// out are red and those that it puts in green.
std::string VerbatimText(std::string_view text, bool colors);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_REPORT_STYLE_H_
