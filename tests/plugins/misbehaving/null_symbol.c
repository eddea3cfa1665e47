/* Its metadata symbol is there and stands at the address 0 (see the link options), so the loader finds nothing to say. */
#include "parts.h"

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
