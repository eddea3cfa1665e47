/* Its module parameters hold nothing but white space, or nothing at all, and its module names are empty. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {3, "", " \t\n ", "", ""};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
