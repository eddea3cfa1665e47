#include "call.h"

#include "gate.h"
#include "log_in_software.h"
#include "pluginkit/failure_log.h"

namespace nimbrel::ad {

std::uint32_t StatusOfCurrentException() noexcept { return kit::StatusOfCurrentException<AdError>("ad"); }

void RunWithHost(HostWork run, void* work) {
    const InsideGate gate;
    const Settings settings = Settings::Load();
    DomainLogInSoftware logIns(settings);
    run(work, Host(settings, logIns));
}

}  // namespace nimbrel::ad
