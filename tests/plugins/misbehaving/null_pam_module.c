/* Names no PAM module. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {.apiVersion = 3, .nssModule = "test"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
