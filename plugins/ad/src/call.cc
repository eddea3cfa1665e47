#include "call.h"

#include <exception>
#include <new>

#include "gate.h"
#include "log_in_software.h"
#include "pluginkit/failure_log.h"

namespace nimbrel::ad {

std::uint32_t StatusOfCurrentException() noexcept {
    try {
        throw;
    } catch (const AdError& error) {
        kit::LogFailure("ad", error.Status(), error.what());
        return error.Status();
    } catch (const std::bad_alloc& error) {
        kit::LogFailure("ad", kStatusNotEnoughMemory, error.what());
        return kStatusNotEnoughMemory;
    } catch (const std::exception& error) {
        kit::LogFailure("ad", kStatusInternalError, error.what());
        return kStatusInternalError;
    } catch (...) {
        kit::LogFailure("ad", kStatusInternalError, "an unknown exception");
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
