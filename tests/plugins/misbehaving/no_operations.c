/* Exports no operations table. */
#include "parts.h"

ORDINARY_METADATA
