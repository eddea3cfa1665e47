// Runs another program of the host to its end.

#ifndef NIMBREL_LOGINS_RUN_H_
#define NIMBREL_LOGINS_RUN_H_

#include <string>
#include <vector>

namespace nimbrel::logins {

struct RunResult {
    int status = -1;     // -1 if a signal ended it
    std::string output;  // both streams together
};

// `words[0]` is the program's absolute path. It gets a small, fixed environment (PATH, LC_ALL=C) and `environment` on
// top, nothing to read, a session of its own, and no descriptor of ours. Throws `LoginsError` (kind System) if it cannot
// be started.
RunResult Run(const std::vector<std::string>& words, const std::vector<std::string>& environment = {});

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_RUN_H_
