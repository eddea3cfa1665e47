#include "call.h"

#include <pthread.h>
#include <syslog.h>

#include <new>

#include "gate.h"
#include "log_in_software.h"

namespace nimbrel::ad {

CancellationShield::CancellationShield() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }

CancellationShield::~CancellationShield() { pthread_setcancelstate(_before, nullptr); }

std::uint32_t StatusOfCurrentException() noexcept {
    try {
        throw;
    } catch (const AdError& error) {
        // The number is all that the caller gets.
        syslog(LOG_NOTICE, "ad: status %u: %s", error.Status(), error.what());
        return error.Status();
    } catch (const std::bad_alloc&) {
        return kStatusNotEnoughMemory;
    } catch (...) {
        return kStatusInternalError;
    }
}

void RunWithHost(HostWork run, void* work) {
    const InsideGate gate;
    const Settings settings = Settings::Load();
    DomainLogInSoftware logIns(settings);
    run(work, Host(settings, logIns));
}

}  // namespace nimbrel::ad
