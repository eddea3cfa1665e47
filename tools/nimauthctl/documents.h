// The manual page and the shells' completions, made from the command table like the help, so that none can fall behind.

#ifndef NIMAUTHCTL_DOCUMENTS_H_
#define NIMAUTHCTL_DOCUMENTS_H_

#include <string>

namespace nimbrel::nimauthctl {

// nimauthctl(8), for man.
std::string ManPage();

// Each completes commands, their options and the options of every command. Values are left to the person.
std::string BashCompletion();
std::string ZshCompletion();
std::string FishCompletion();

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_DOCUMENTS_H_
