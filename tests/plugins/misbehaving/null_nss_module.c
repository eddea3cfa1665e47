/* Names no NSS service. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {.apiVersion = 3, .pamModule = "pam_test.so"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
