// What the process tells its caller by its exit status. Scripts depend on these numbers.

#ifndef NIMAUTHCTL_EXIT_CODE_H_
#define NIMAUTHCTL_EXIT_CODE_H_

namespace nimbrel::nimauthctl {

enum class ExitCode : int {
    Ok = 0,
    Failure = 1,         // none of the below, or the output could not be written
    Usage = 2,           // the command line, or a password that cannot be read as asked
    OtherState = 3,      // the host or the directory is in another state already, or busy
    NotJoined = 4,       //
    Permission = 5,      //
    Stale = 6,           // a time-out struck; the answer shown is the last known one
    Authentication = 7,  // the user, the password or the account
    HostName = 8,        //
    Network = 9,         //
};

// The meaning in one line, as the help shows it.
const char* Meaning(ExitCode code);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_EXIT_CODE_H_
