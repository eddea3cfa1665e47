/* Nothing is wrong with it but that there are several: the build gives the name of its PAM module. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = 3, .pamModule = PLUGIN_NAME, .nssModule = "test"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
