#include "plugins/calls.h"

namespace nimbrel::authentication::test {

CloseCalls& Closes() {
    static CloseCalls calls;
    return calls;
}

extern "C" int __real_dlclose(void* library);
extern "C" int __wrap_dlclose(void* library) {
    int result = __real_dlclose(library);
    Closes().count.Add();
    return result;
}

}  // namespace nimbrel::authentication::test
