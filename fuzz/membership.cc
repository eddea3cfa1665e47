// Any membership file that is taken can be written, and reads the same again; line by line nothing else was in it.

#include <algorithm>

#include "addirectory/ad_error.h"
#include "fuzz.h"
#include "host_state.h"

namespace {

using fuzzing::Require;
using nimbrel::ad::HostState;

bool Same(const HostState& a, const HostState& b) {
    if (a.preferredControllers != b.preferredControllers || a.membership.has_value() != b.membership.has_value()) {
        return false;
    }
    return !a.membership ||
           (a.membership->domain == b.membership->domain && a.membership->netbiosName == b.membership->netbiosName &&
            a.membership->sid == b.membership->sid && a.membership->computer == b.membership->computer &&
            a.membership->distinguishedName == b.membership->distinguishedName);
}

std::size_t LineCount(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzzing::Input(data, size).Rest();
    HostState state;
    try {
        state = HostState::Parse(text);
    } catch (const nimbrel::ad::AdError& error) {
        Require(error.Status() == nimbrel::ad::kStatusInternalError, "damage is status 1359");
        return 0;
    }
    std::string written;
    try {
        written = state.Format();
    } catch (const nimbrel::ad::AdError&) {
        Require(false, "what was read can be written");
    }
    Require(LineCount(written) == LineCount(text) && written.size() == text.size(), "nothing is lost");
    Require(Same(HostState::Parse(written), state), "it reads the same again");
    return 0;
}
