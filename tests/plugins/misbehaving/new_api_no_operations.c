/* Too new, and without an operations table. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = 4, .pamModule = "pam_test.so", .nssModule = "test"};
