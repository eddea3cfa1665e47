/*
 * A provider whose every query is left by `Leave`, which the including file defines, and never by a return. With
 * LEAVES_IN_RELEASE the queries that have a result answer, and its release function is left instead.
 */

#ifndef TESTS_PLUGINS_MISBEHAVING_LEAVING_H_
#define TESTS_PLUGINS_MISBEHAVING_LEAVING_H_

#include <pthread.h>

#include "leaving_control.h"
#include "parts.h"

ORDINARY_METADATA

static void Leave(void);

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* guards the one below */
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static int held;

static void SetHeld(int isHeld) {
    pthread_mutex_lock(&lock);
    held = isHeld;
    pthread_cond_broadcast(&changed);
    pthread_mutex_unlock(&lock);
}

static void LeaveWhenLetGo(void) {
    pthread_mutex_lock(&lock);
    while (held) pthread_cond_wait(&changed, &lock);
    pthread_mutex_unlock(&lock);
    Leave();
}

#ifdef LEAVES_IN_RELEASE
static void ReleaseAndLeave(void* result) {
    free(result);
    LeaveWhenLetGo();
}
static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    domain->dnsName = CopyText("corp.test");
#ifdef __cplusplus /* a thread that ends does not come to the second one */
    domain->netbiosName = CopyText("CORP");
#endif
    *release = ReleaseAndLeave;
    return 0;
}
static uint32_t GetTrustedDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    *domains = (struct NimauthDomainRecord**)calloc(1, sizeof **domains);
    *release = ReleaseAndLeave;
    return 0;
}
#else
static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    (void)domain, (void)release;
    LeaveWhenLetGo();
    return 0;
}
static uint32_t GetTrustedDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    (void)domains, (void)release;
    LeaveWhenLetGo();
    return 0;
}
#endif
static int32_t GetTrustState(void) {
    LeaveWhenLetGo();
    return 0;
}
static int32_t GetRelationship(const char* domain) {
    (void)domain;
    LeaveWhenLetGo();
    return 0;
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    2,    NULL, NULL, GetActiveDomain, NULL, NULL, NULL, GetTrustState, GetTrustedDomains, NULL, NULL,
    NULL, NULL, NULL, GetRelationship, NULL, NULL};

#ifdef __cplusplus
extern "C" {
#endif
NIMAUTH_EXPORT extern const struct LeavingControl control;
const struct LeavingControl control = {SetHeld};
#ifdef __cplusplus
}
#endif

#endif /* TESTS_PLUGINS_MISBEHAVING_LEAVING_H_ */
