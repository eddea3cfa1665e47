/*
 * Hangs, fails and answers as the test tells it, for each operation: it may hold its callers for as long as the test
 * likes, answer after they have lost interest, fail with any status, and lack the operation.
 */
#define ActiveDirectoryClientOperations DeclaredConstant /* operations come and go here: the table must be writable */
#include "scripted.h"
#undef ActiveDirectoryClientOperations

#include <pthread.h>
#include <stdbool.h>

ORDINARY_METADATA

enum { kMaxOrder = 4096, kMaxRelationships = 8 };

static const char* const kNoTexts[] = {NULL, NULL};

struct Script {
    bool held;
    int calls;
    uint32_t status;
    const uint32_t* next; /* statuses still to come */
    int nextCount;
    int32_t value;
    const char* text;
    const char* const* texts; /* null for none */
};

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* guards all below */
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static struct Script scripts[kSlotCount];
static struct {
    const char* domain;
    int32_t value;
} relationships[kMaxRelationships];
static int relationshipCount, callOrder[kMaxOrder], callCount;

/* ---------------------------------------------------------------- the test's side */

static struct Script* Lock(int slot) {
    pthread_mutex_lock(&lock);
    return &scripts[slot];
}
static void Unlock(void) {
    pthread_cond_broadcast(&changed);
    pthread_mutex_unlock(&lock);
}

static void SetStatuses(int slot, const uint32_t* statuses, int count) {
    struct Script* script = Lock(slot);
    script->next = statuses;
    script->nextCount = count;
    Unlock();
}
static void SetStatus(int slot, uint32_t status) {
    Lock(slot)->status = status;
    Unlock();
}
static void SetValue(int slot, int32_t value) {
    Lock(slot)->value = value;
    Unlock();
}
static void SetRelationship(const char* domain, int32_t value) {
    Lock(0);
    relationships[relationshipCount].domain = domain;
    relationships[relationshipCount++].value = value;
    Unlock();
}
static void SetText(int slot, const char* text) {
    Lock(slot)->text = text;
    Unlock();
}
static void SetTexts(int slot, const char* const* texts) {
    Lock(slot)->texts = texts;
    Unlock();
}
static void Hold(int slot) {
    Lock(slot)->held = true;
    Unlock();
}
static void LetGo(int slot) {
    Lock(slot)->held = false;
    Unlock();
}
static void AwaitCalls(int slot, int calls) {
    const struct Script* script = Lock(slot);
    while (script->calls < calls) pthread_cond_wait(&changed, &lock);
    Unlock();
}
static int Calls(int slot) {
    int calls = Lock(slot)->calls;
    Unlock();
    return calls;
}
static int Order(int* slots, int capacity) {
    Lock(0);
    int count = callCount;
    for (int i = 0; i < count && i < capacity; ++i) slots[i] = callOrder[i];
    Unlock();
    return count;
}

/* ---------------------------------------------------------------- the library's side */

/* Counts the call, waits while the slot is held, and returns what it is to answer. */
static struct Script Begin(int slot) {
    struct Script* script = Lock(slot);
    ++script->calls;
    if (callCount < kMaxOrder) callOrder[callCount++] = slot;
    pthread_cond_broadcast(&changed);
    while (script->held) pthread_cond_wait(&changed, &lock);
    if (script->nextCount > 0) {
        script->status = *script->next++;
        --script->nextCount;
    }
    struct Script answer = *script;
    if (!answer.texts) answer.texts = kNoTexts;
    pthread_mutex_unlock(&lock);
    return answer;
}

static uint32_t AnswerText(int slot, char** text, NimauthRelease* release) {
    struct Script script = Begin(slot);
    if (script.status) return script.status;
    *text = CopyText(script.text);
    *release = free;
    return 0;
}
static uint32_t AnswerTexts(int slot, char*** texts, NimauthRelease* release) {
    struct Script script = Begin(slot);
    if (script.status) return script.status;
    *texts = CopyTexts(script.texts);
    *release = FreeTexts;
    return 0;
}

static uint32_t Join(const char* domain, const char* unit, const struct Credentials* credentials) {
    (void)domain, (void)unit, (void)credentials;
    return Begin(kJoinDomain).status;
}
static uint32_t Part(const struct Credentials* credentials) {
    (void)credentials;
    return Begin(kPartDomain).status;
}
static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    struct Script script = Begin(kGetActiveDomain);
    if (script.status) return script.status;
    domain->dnsName = CopyText(script.texts[0]);
    domain->netbiosName = CopyText(script.texts[1]);
    *release = free;
    return 0;
}
static uint32_t SetControllers(const char* const* controllers) {
    (void)controllers;
    return Begin(kSetPreferredDomainControllers).status;
}
static uint32_t GetControllers(char*** controllers, NimauthRelease* release) {
    return AnswerTexts(kGetPreferredDomainControllers, controllers, release);
}
static void Unused(void) { Begin(kUnused); }
static int32_t GetTrustState(void) { return Begin(kGetDomainTrustState).value; }
static uint32_t GetTrustedDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    struct Script script = Begin(kGetTrustedDomains);
    if (script.status) return script.status;
    *domains = CopyDomains(script.texts);
    *release = FreeDomains;
    return 0;
}
static uint32_t GetDN(char** name, NimauthRelease* release) { return AnswerText(kGetMachineAccountDN, name, release); }
static uint32_t GetController(const char* first, const char* domain, char** controller, NimauthRelease* release) {
    (void)first, (void)domain;
    return AnswerText(kGetAnyDomainController, controller, release);
}
static uint32_t Convert(const char* name, char** canonicalName, NimauthRelease* release) {
    (void)name;
    return AnswerText(kConvertCanonicalUsername, canonicalName, release);
}
static uint32_t JoinWithAccount(const struct NimauthDirectoryDomainRecord* domain,
                                const struct NimauthMachineAccountRecord* account) {
    (void)domain, (void)account;
    return Begin(kJoinDomainWithMachineAccount).status;
}
static uint32_t GetHostPrincipal(const char* domain, char** principal, NimauthRelease* release) {
    (void)domain;
    return AnswerText(kGetHostPrincipalForDomain, principal, release);
}
static int32_t GetRelationship(const char* domain) {
    int32_t value = Begin(kGetDomainTrustRelationship).value;
    Lock(0);
    for (int i = 0; i < relationshipCount; ++i) {
        if (strcmp(relationships[i].domain, domain) == 0) value = relationships[i].value;
    }
    Unlock();
    return value;
}
static uint32_t SetServices(const char* const* services) {
    (void)services;
    return Begin(kSetSmartCardEnabledServices).status;
}
static uint32_t GetServices(char*** services, NimauthRelease* release) {
    return AnswerTexts(kGetSmartCardEnabledServices, services, release);
}

static const struct NimauthProviderOperations kAllOperations = {.tableVersion = 2,
                                                                .joinDomain = Join,
                                                                .partDomain = Part,
                                                                .getActiveDomain = GetActiveDomain,
                                                                .setPreferredDomainControllers = SetControllers,
                                                                .getPreferredDomainControllers = GetControllers,
                                                                .unused = Unused,
                                                                .getDomainTrustState = GetTrustState,
                                                                .getTrustedDomains = GetTrustedDomains,
                                                                .getMachineAccountDN = GetDN,
                                                                .getAnyDomainController = GetController,
                                                                .convertCanonicalUsername = Convert,
                                                                .joinDomainWithMachineAccount = JoinWithAccount,
                                                                .getHostPrincipalForDomain = GetHostPrincipal,
                                                                .getDomainTrustRelationship = GetRelationship,
                                                                .setSmartCardEnabledServices = SetServices,
                                                                .getSmartCardEnabledServices = GetServices};

NIMAUTH_EXPORT struct NimauthProviderOperations ActiveDirectoryClientOperations;

static __attribute__((constructor)) void FillTable(void) { ActiveDirectoryClientOperations = kAllOperations; }

static void Reset(void) {
    memset(Lock(0), 0, sizeof scripts);
    relationshipCount = callCount = 0;
    FillTable();
    Unlock();
}

static void SetPresent(int slot, int present) {
    size_t offset = 8 * (size_t)slot;
    if (present) {
        memcpy((char*)&ActiveDirectoryClientOperations + offset, (const char*)&kAllOperations + offset, 8);
    } else {
        memset((char*)&ActiveDirectoryClientOperations + offset, 0, 8);
    }
}

NIMAUTH_EXPORT const struct ScriptedControl control = {.reset = Reset,
                                                       .setPresent = SetPresent,
                                                       .setStatus = SetStatus,
                                                       .setStatuses = SetStatuses,
                                                       .setValue = SetValue,
                                                       .setRelationship = SetRelationship,
                                                       .setText = SetText,
                                                       .setTexts = SetTexts,
                                                       .hold = Hold,
                                                       .letGo = LetGo,
                                                       .awaitCalls = AwaitCalls,
                                                       .calls = Calls,
                                                       .order = Order};
