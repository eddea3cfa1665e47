/* Has not one operation. */
#include "parts.h"

ORDINARY_METADATA

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
