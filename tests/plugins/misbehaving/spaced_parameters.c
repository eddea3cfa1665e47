/* Its module parameters are padded and separated with every kind of white space. */
#include "parts.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {3, "pam_test.so", "  a   b\tc ", "test",
                                                                      "\n x=1\r\n\v y=[z]\f"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2};
