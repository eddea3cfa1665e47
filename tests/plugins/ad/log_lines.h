// What is written to the system's log, kept instead of sent. The program is linked with --wrap for `syslog` and for
// `__syslog_chk`, which it becomes where the headers check formats.
//
// Threads: any.

#ifndef NIMBREL_TESTS_PLUGINS_AD_LOG_LINES_H_
#define NIMBREL_TESTS_PLUGINS_AD_LOG_LINES_H_

#include <string>
#include <vector>

namespace nimbrel::ad::test {

// The lines since the last call, in order.
std::vector<std::string> TakeLogLines();

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_LOG_LINES_H_
