/*
 * The remote control of the directory provider "scripted".
 *
 * The provider does no directory work. It reports each call with its arguments to an observer, in the thread that made
 * the call, and answers with the status and values that it was told. A test finds the functions below in the loaded
 * plug-in with dlsym.
 *
 * A call is reported as one line, null as `null`:
 *
 *     join(corp.test, OU=Hosts/Sub, administrator, secret)
 *     part(null)
 *     any domain controller(null, corp.test)
 */

#ifndef TESTS_STORE_SCRIPTED_PROVIDER_H_
#define TESTS_STORE_SCRIPTED_PROVIDER_H_

#include <stddef.h>
#include <stdint.h>

#include "authentication/provider_abi.h"

#ifdef __cplusplus
extern "C" {
#endif

enum ScriptedOperation {
    SCRIPTED_JOIN,
    SCRIPTED_PART,
    SCRIPTED_ACTIVE_DOMAIN,
    SCRIPTED_PREFERRED_CONTROLLERS,
    SCRIPTED_TRUSTED_DOMAINS,
    SCRIPTED_MACHINE_ACCOUNT_DN,
    SCRIPTED_ANY_DOMAIN_CONTROLLER,
    SCRIPTED_SMART_CARD_SERVICES,
    SCRIPTED_OPERATIONS
};

/* Forgets all that was said below. The host is no member, and every status is 0. */
NIMAUTH_EXPORT void ScriptedReset(void);

/* Calls `observer` with each call's line; null ends that. */
NIMAUTH_EXPORT void ScriptedObserve(void (*observer)(const char* line));

/* The statuses of the operation's next calls, sixteen at most; the last one stays. */
NIMAUTH_EXPORT void ScriptedAnswer(enum ScriptedOperation operation, const uint32_t* statuses, size_t count);

/* Makes the host a member of this domain, trusting lab.test. */
NIMAUTH_EXPORT void ScriptedBecomeMember(const char* dnsName, const char* netbiosName);

/* The answer to "any domain controller"; null, as after a reset, answers null. */
NIMAUTH_EXPORT void ScriptedSetController(const char* controller);

/* How many results have been given out and not been released. */
NIMAUTH_EXPORT int ScriptedUnreleased(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TESTS_STORE_SCRIPTED_PROVIDER_H_ */
