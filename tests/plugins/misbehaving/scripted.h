/* Reaches into the provider scripted. All functions may be called from any thread. */

#ifndef TESTS_PLUGINS_MISBEHAVING_SCRIPTED_H_
#define TESTS_PLUGINS_MISBEHAVING_SCRIPTED_H_

#include "parts.h"

enum Slot {
    kJoinDomain = 1,
    kPartDomain,
    kGetActiveDomain,
    kSetPreferredDomainControllers,
    kGetPreferredDomainControllers,
    kUnused,
    kGetDomainTrustState,
    kGetTrustedDomains,
    kGetMachineAccountDN,
    kGetAnyDomainController,
    kConvertCanonicalUsername,
    kJoinDomainWithMachineAccount,
    kGetHostPrincipalForDomain,
    kGetDomainTrustRelationship,
    kSetSmartCardEnabledServices,
    kGetSmartCardEnabledServices,
    kSlotCount
};

/* Texts and lists that a test sets are kept by reference; they must outlive their use. */
struct ScriptedControl {
    /* Back to the start: every operation there, every status 0, every text null, every list empty, nothing held, no
     * calls counted. Not while calls run. */
    void (*reset)(void);

    /* Takes an operation out of the table or puts it back. Not while the library may read the table. */
    void (*setPresent)(int slot, int present);

    /* What calls of a slot return from now on. */
    void (*setStatus)(int slot, uint32_t status);

    /* What the next calls of a slot return, first one first; the last status stays. */
    void (*setStatuses)(int slot, const uint32_t* statuses, int count);

    /* The answers of slots 7 and 14, the latter for all domains but those set with `setRelationship`. */
    void (*setValue)(int slot, int32_t value);

    /* The answer of slot 14 for one domain. */
    void (*setRelationship)(const char* domain, int32_t value);

    /* The answers of slots 9, 10, 11 and 13. */
    void (*setText)(int slot, const char* text);

    /* The answers of slots 5 and 16, ended by null; and of 3 and 8, as pairs of DNS and NetBIOS names, ended by null. */
    void (*setTexts)(int slot, const char* const* texts);

    /* From now on calls of the slot wait; `letGo` lets those that wait, and all later ones, go on. What a call answers
     * is decided when it goes on. */
    void (*hold)(int slot);
    void (*letGo)(int slot);

    /* Returns when so many calls of the slot have begun. */
    void (*awaitCalls)(int slot, int calls);

    /* How many calls of the slot have begun. */
    int (*calls)(int slot);

    /* The slots of all calls in the order in which they began; at most `capacity`. Returns how many there were. */
    int (*order)(int* slots, int capacity);
};

#endif /* TESTS_PLUGINS_MISBEHAVING_SCRIPTED_H_ */
