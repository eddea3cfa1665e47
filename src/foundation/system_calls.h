// Two calls of the C library by their own names.
//
// A host, or a test, may stand in for the calls that this library makes (`syslog`, `gethostname`, `sleep`, ...) by
// defining functions of these names. With fortification on, the headers would turn these two into `__syslog_chk` and
// `__gethostname_chk`, and the stand-in would never be reached.

#ifndef NIMAUTH_FOUNDATION_SYSTEM_CALLS_H_
#define NIMAUTH_FOUNDATION_SYSTEM_CALLS_H_

#include <syslog.h>

#include <cstddef>

namespace nimbrel::authentication {

extern "C" __attribute__((visibility("default"), format(printf, 2, 3))) void NimauthSyslog(int priority,
                                                                                           const char* format,
                                                                                           ...) __asm__("syslog");

extern "C" __attribute__((visibility("default"))) int NimauthGetHostName(char* name,
                                                                         std::size_t size) __asm__("gethostname");

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_FOUNDATION_SYSTEM_CALLS_H_
