// Its queries run out of memory and let the exception pass the C table.
#include "leaving.h"

#include <new>

static void Leave() { throw std::bad_alloc(); }
