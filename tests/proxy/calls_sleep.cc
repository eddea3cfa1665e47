#include "proxy/journal.h"

extern "C" unsigned int __wrap_sleep(unsigned int seconds) {
    nimbrel::authentication::test::Journal::Add("sleep " + std::to_string(seconds));
    return 0;
}
