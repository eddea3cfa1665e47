// Its queries throw an exception of the library's own class across the C table, as a plug-in that is linked with the
// library may.
#include "authentication/exceptions.h"
#include "leaving.h"

static void Leave() { throw nimbrel::authentication::NoLogonServersException(); }
