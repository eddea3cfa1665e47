// How results look where they go: a person's terminal, a pipe, or a program that reads JSON.

#ifndef NIMAUTHCTL_PRESENTATION_H_
#define NIMAUTHCTL_PRESENTATION_H_

#include <string>

#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {

// Whether what is written to the descriptor is coloured: --color, else whether it is a terminal that can, and NO_COLOR
// is unset or empty.
bool UsesColor(const Settings& settings, int descriptor);

// The report as standard output wants it: JSON if asked for; tables and colours for a terminal; else plain lines, which
// never change with the place they go to.
std::string Present(const Report& report, const Settings& settings);

// The report's failures as standard error wants them; nothing with --json.
std::string PresentFailures(const Report& report, const Settings& settings);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_PRESENTATION_H_
