#include "tools/nimauthctl/exit_code.h"

namespace nimbrel::nimauthctl {

const char* Meaning(ExitCode code) {
    switch (code) {
        case ExitCode::Ok:
            return "success";
        case ExitCode::Failure:
            return "failure that has no code of its own, or output that could not be written";
        case ExitCode::Usage:
            return "wrong command line, or no way to read the password";
        case ExitCode::OtherState:
            return "in another state already, for example joined, or busy with another change";
        case ExitCode::NotJoined:
            return "the host is not joined";
        case ExitCode::Permission:
            return "permission denied";
        case ExitCode::Stale:
            return "a time-out struck, a stale answer is shown";
        case ExitCode::Authentication:
            return "user name, password or account refused";
        case ExitCode::HostName:
            return "the host's name is unfit";
        case ExitCode::Network:
            return "network failure, or no domain controller";
    }
    return "";
}

}  // namespace nimbrel::nimauthctl
