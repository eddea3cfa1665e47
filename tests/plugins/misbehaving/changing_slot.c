/* Replaces its join operation while the library is retrying: the first one always asks for another attempt. */
#include "changing_slot.h"

#define ActiveDirectoryClientOperations DeclaredConstant /* must be writable here */
#include "parts.h"
#undef ActiveDirectoryClientOperations

ORDINARY_METADATA

static int firstCalls, secondCalls;

NIMAUTH_EXPORT struct NimauthProviderOperations ActiveDirectoryClientOperations;

static uint32_t SecondJoin(const char* domain, const char* unit, const struct Credentials* credentials) {
    (void)domain, (void)unit, (void)credentials;
    ++secondCalls;
    return 0;
}

static uint32_t FirstJoin(const char* domain, const char* unit, const struct Credentials* credentials) {
    (void)domain, (void)unit, (void)credentials;
    if (++firstCalls == 2) ActiveDirectoryClientOperations.joinDomain = SecondJoin;
    return 1326;
}

static int FirstCalls(void) { return firstCalls; }
static int SecondCalls(void) { return secondCalls; }

struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2, .joinDomain = FirstJoin};

NIMAUTH_EXPORT const struct ChangingSlotControl control = {FirstCalls, SecondCalls};
