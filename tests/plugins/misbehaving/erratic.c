/*
 * A directory on a bad day: each call takes a random time up to 4 ms, one in five fails, with a status that is drawn from
 * several, and some hang until they are let go.
 */
#include "erratic.h"

#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <time.h>

ORDINARY_METADATA

static atomic_int calls, running, given, released;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static int oneInHangs, hangRound; /* guarded by `lock`; each word lets those of the one before go on */

static void HangOneIn(int oneIn) {
    pthread_mutex_lock(&lock);
    oneInHangs = oneIn;
    ++hangRound;
    pthread_cond_broadcast(&changed);
    pthread_mutex_unlock(&lock);
}
static int Calls(void) { return calls; }
static int Running(void) { return running; }
static int Given(void) { return given; }
static int Released(void) { return released; }

/* splitmix64 over a counter: the same sequence in every run, spread over the threads as they come. */
static uint32_t Random(void) {
    static atomic_uint_fast64_t counter;
    uint64_t value = (uint64_t)(atomic_fetch_add(&counter, 1) + 1) * UINT64_C(0x9e3779b97f4a7c15);
    value = (value ^ (value >> 30)) * UINT64_C(0xbf58476d1ce4e5b9);
    value = (value ^ (value >> 27)) * UINT64_C(0x94d049bb133111eb);
    return (uint32_t)(value >> 32);
}

static void HangPerhaps(void) {
    const uint32_t draw = Random();
    pthread_mutex_lock(&lock);
    const bool chosen = oneInHangs > 0 && draw % (uint32_t)oneInHangs == 0;
    const int own = hangRound;
    while (chosen && hangRound == own) pthread_cond_wait(&changed, &lock);
    pthread_mutex_unlock(&lock);
}

static uint32_t Begin(void) {
    static const uint32_t statuses[] = {5, 1326, 1355, 1787, 2224};
    atomic_fetch_add(&calls, 1);
    atomic_fetch_add(&running, 1);
    const struct timespec delay = {0, (long)(Random() % 4000) * 1000};
    nanosleep(&delay, NULL);
    HangPerhaps();
    const uint32_t draw = Random();
    return draw % 5 == 0 ? statuses[draw / 5 % 5] : 0;
}

static uint32_t End(uint32_t status) {
    atomic_fetch_sub(&running, 1);
    return status;
}

static void ReleaseText(void* text) {
    atomic_fetch_add(&released, 1);
    free(text);
}
static void ReleaseTexts(void* texts) {
    atomic_fetch_add(&released, 1);
    FreeTexts(texts);
}
static void ReleaseDomains(void* domains) {
    atomic_fetch_add(&released, 1);
    FreeDomains(domains);
}

static void* Give(void* result) {
    atomic_fetch_add(&given, 1);
    return result;
}

static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    const uint32_t status = Begin();
    if (status == 0) {
        domain->dnsName = (char*)Give(strdup("corp.test"));
        domain->netbiosName = (char*)Give(strdup("CORP"));
        *release = ReleaseText;
    }
    return End(status);
}

static uint32_t GetControllers(char*** texts, NimauthRelease* release) {
    static const char* const controllers[] = {"dc1.corp.test", "dc2.corp.test", NULL};
    const uint32_t status = Begin();
    if (status == 0) {
        *texts = (char**)Give(CopyTexts(controllers));
        *release = ReleaseTexts;
    }
    return End(status);
}

/* Which domains are trusted changes from call to call. */
static uint32_t GetDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    static const char* const names[] = {"a.test", "A", "b.test", "B", "c.test", "C", "d.test", "D", NULL};
    const uint32_t status = Begin();
    if (status == 0) {
        *domains = (struct NimauthDomainRecord**)Give(CopyDomains(names + 2 * (Random() % 4)));
        *release = ReleaseDomains;
    }
    return End(status);
}

static uint32_t GetText(char** text, NimauthRelease* release) {
    const uint32_t status = Begin();
    if (status == 0) {
        *text = (char*)Give(strdup("answer"));
        *release = ReleaseText;
    }
    return End(status);
}
static uint32_t GetTextFor(const char* name, char** text, NimauthRelease* release) {
    (void)name;
    return GetText(text, release);
}

static int32_t GetTrustState(void) {
    Begin();
    const int32_t state = (int32_t)(Random() % 3);
    End(0);
    return state;
}
static int32_t GetRelationship(const char* domain) {
    (void)domain;
    return GetTrustState();
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    .tableVersion = 2,
    .getActiveDomain = GetActiveDomain,
    .getPreferredDomainControllers = GetControllers,
    .getDomainTrustState = GetTrustState,
    .getTrustedDomains = GetDomains,
    .getMachineAccountDN = GetText,
    .convertCanonicalUsername = GetTextFor,
    .getHostPrincipalForDomain = GetTextFor,
    .getDomainTrustRelationship = GetRelationship,
    .getSmartCardEnabledServices = GetControllers};

NIMAUTH_EXPORT const struct ErraticControl control = {HangOneIn, Calls, Running, Given, Released};
