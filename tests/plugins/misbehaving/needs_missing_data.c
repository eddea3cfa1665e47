/* Refers to a variable that exists nowhere, so that it cannot be loaded at all. */
#include "parts.h"

ORDINARY_METADATA

extern int nimauth_test_missing_variable;

static int32_t GetTrustState(void) { return nimauth_test_missing_variable; }

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2,
                                                                          .getDomainTrustState = GetTrustState};
