/* Exports no table. */

#include "proxy/script.h"

static __attribute__((constructor)) void Loaded(void) { ScriptWrite("proxy loaded"); }
static __attribute__((destructor)) void Closed(void) { ScriptWrite("proxy closed"); }
