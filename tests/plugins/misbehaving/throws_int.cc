// Its queries throw something across the C table that is no exception object at all.
#include "leaving.h"

static void Leave() { throw 42; }
