#include "pluginkit/cancellation.h"

#include <pthread.h>

namespace nimbrel::kit {

CancellationShield::CancellationShield() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }

CancellationShield::~CancellationShield() { Lower(); }

void CancellationShield::Lower() const { pthread_setcancelstate(_before, nullptr); }

void CancellationShield::Raise() const { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }

}  // namespace nimbrel::kit
