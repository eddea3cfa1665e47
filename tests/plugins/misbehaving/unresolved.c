/* Calls a function that exists nowhere, in an operation that nobody calls. */
#include "parts.h"

ORDINARY_METADATA

extern uint32_t nimauth_test_exists_nowhere(void);

static uint32_t Part(const struct Credentials* credentials) {
    (void)credentials;
    return nimauth_test_exists_nowhere();
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2, .partDomain = Part};
