/* Exports neither record: an ordinary shared object that got into the folder. */
#include "parts.h"

NIMAUTH_EXPORT int unrelated(void);
int unrelated(void) { return 1; }
