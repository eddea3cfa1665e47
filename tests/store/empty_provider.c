/* A provider without a single operation: every slot of its table is null. */

#include "authentication/provider_abi.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = NIMAUTH_PROVIDER_API_VERSION, .pamModule = "pam_empty.so", .nssModule = "empty"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion =
                                                                              NIMAUTH_PROVIDER_TABLE_VERSION};
