/* The metadata record carries the API version that the build gives: too new, or older than any that was published. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = PLUGIN_VERSION, .pamModule = "pam_test.so", .nssModule = "test"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
