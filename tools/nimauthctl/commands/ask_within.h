// Asking the directory what the library asks without a time-out.

#ifndef NIMAUTHCTL_COMMANDS_ASK_WITHIN_H_
#define NIMAUTHCTL_COMMANDS_ASK_WITHIN_H_

#include <optional>
#include <string>
#include <utility>

#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/questions.h"

namespace nimbrel::nimauthctl {

// Calls it and, with --verbose, tells how it went. Unset if there is no answer in time; the call goes on then, so it must
// own what it uses. A failure in time is thrown.
template <typename Call>
auto AskWithinTraced(const Invocation& invocation, const std::string& what, Call call) {
    invocation.Trace("asking for " + what);
    auto answer = AskWithin(invocation.Global().timeoutSeconds, std::move(call));
    invocation.Trace(what + (answer ? ": answered" : ": no answer in time"));
    return answer;
}

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_ASK_WITHIN_H_
