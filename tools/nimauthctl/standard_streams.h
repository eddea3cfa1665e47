// The process's three standard descriptors.

#ifndef NIMAUTHCTL_STANDARD_STREAMS_H_
#define NIMAUTHCTL_STANDARD_STREAMS_H_

#include <string_view>

namespace nimbrel::nimauthctl {

// Call it before anything is opened. Puts something in the place of each standard descriptor that the caller closed, so
// that no file of ours can get its number: reading or writing it fails, as on the closed one. Makes a write to a broken
// pipe an error instead of the end of the process.
void GuardStandardStreams();

// Writes all of it, however many steps that takes. Returns 0 or the error number.
int WriteAll(int descriptor, std::string_view text);

// To standard error; what cannot be written there is lost.
void WriteError(std::string_view text);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_STANDARD_STREAMS_H_
