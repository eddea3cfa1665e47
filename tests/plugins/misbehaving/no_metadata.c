/* Exports no metadata record. */
#include "parts.h"

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
