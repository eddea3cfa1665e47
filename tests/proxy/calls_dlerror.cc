#include "proxy/journal.h"

extern "C" {

char* __real_dlerror();

char* __wrap_dlerror() {
    nimbrel::authentication::test::Journal::Add("dlerror");
    return __real_dlerror();
}

}  // extern "C"
