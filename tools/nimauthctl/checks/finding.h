// What one check of `nimauthctl check` found, and what is to be done about it.

#ifndef NIMAUTHCTL_CHECKS_FINDING_H_
#define NIMAUTHCTL_CHECKS_FINDING_H_

#include <string>
#include <utility>

#include "tools/nimauthctl/exit_code.h"

namespace nimbrel::nimauthctl {

// In the order of their gravity.
enum class Verdict { Pass, Warn, Fail };

struct Finding {
    Verdict verdict = Verdict::Pass;
    std::string found;                 // "/etc/krb5.keytab: NODE01$@CORP.TEST"
    std::string remedy = {};           // for all but Pass
    ExitCode exitCode = ExitCode::Ok;  // of the tool, if this is the first of the gravest; not Ok only for Fail
};

inline Finding Pass(std::string found) { return {Verdict::Pass, std::move(found)}; }
inline Finding Warn(std::string found, std::string remedy) {
    return {Verdict::Warn, std::move(found), std::move(remedy)};
}
inline Finding Fail(std::string found, std::string remedy, ExitCode exitCode = ExitCode::Failure) {
    return {Verdict::Fail, std::move(found), std::move(remedy), exitCode};
}

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_CHECKS_FINDING_H_
