#define _GNU_SOURCE
#include "store/scripted_provider.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { MAX_STATUSES = 16, MAX_LINE = 4096 };

struct Script {
    uint32_t statuses[MAX_STATUSES];
    size_t count;
    size_t next;
};

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; /* guards all below; never held while the observer runs */
static struct Script scripts[SCRIPTED_OPERATIONS];
static void (*observer)(const char* line);
static char domainName[256];
static char netbiosName[256];
static char controllerName[256];
static int unreleased;

static void Copy(char* target, size_t size, const char* source) {
    snprintf(target, size, "%s", source != NULL ? source : "");
}

static const char* Shown(const char* text) { return text != NULL ? text : "null"; }

static void __attribute__((format(printf, 1, 2))) Report(const char* format, ...) {
    char line[MAX_LINE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);

    pthread_mutex_lock(&mutex);
    void (*const told)(const char*) = observer;
    pthread_mutex_unlock(&mutex);
    if (told != NULL) told(line);
}

static uint32_t NextStatus(enum ScriptedOperation operation) {
    pthread_mutex_lock(&mutex);
    struct Script* const script = &scripts[operation];
    const uint32_t status = script->count == 0 ? 0 : script->statuses[script->next];
    if (script->next + 1 < script->count) ++script->next;
    pthread_mutex_unlock(&mutex);
    return status;
}

static void* Given(void* result) {
    pthread_mutex_lock(&mutex);
    ++unreleased;
    pthread_mutex_unlock(&mutex);
    return result;
}

static void Release(void* result) {
    pthread_mutex_lock(&mutex);
    --unreleased;
    pthread_mutex_unlock(&mutex);
    free(result);
}

/* A copy of a text above, or null when that is empty. */
static char* GivenText(const char* text) {
    pthread_mutex_lock(&mutex);
    char* const copy = *text == '\0' ? NULL : strdup(text);
    pthread_mutex_unlock(&mutex);
    return copy != NULL ? Given(copy) : NULL;
}

static int IsMember(void) {
    pthread_mutex_lock(&mutex);
    const int member = *domainName != '\0';
    pthread_mutex_unlock(&mutex);
    return member;
}

void ScriptedReset(void) {
    pthread_mutex_lock(&mutex);
    memset(scripts, 0, sizeof scripts);
    *domainName = *netbiosName = *controllerName = '\0';
    unreleased = 0;
    pthread_mutex_unlock(&mutex);
}

void ScriptedObserve(void (*newObserver)(const char* line)) {
    pthread_mutex_lock(&mutex);
    observer = newObserver;
    pthread_mutex_unlock(&mutex);
}

void ScriptedAnswer(enum ScriptedOperation operation, const uint32_t* statuses, size_t count) {
    pthread_mutex_lock(&mutex);
    struct Script* const script = &scripts[operation];
    script->count = count < MAX_STATUSES ? count : MAX_STATUSES;
    script->next = 0;
    memcpy(script->statuses, statuses, script->count * sizeof *statuses);
    pthread_mutex_unlock(&mutex);
}

void ScriptedBecomeMember(const char* newDomain, const char* newNetbiosName) {
    pthread_mutex_lock(&mutex);
    Copy(domainName, sizeof domainName, newDomain);
    Copy(netbiosName, sizeof netbiosName, newNetbiosName);
    pthread_mutex_unlock(&mutex);
}

void ScriptedSetController(const char* controller) {
    pthread_mutex_lock(&mutex);
    Copy(controllerName, sizeof controllerName, controller);
    pthread_mutex_unlock(&mutex);
}

int ScriptedUnreleased(void) {
    pthread_mutex_lock(&mutex);
    const int count = unreleased;
    pthread_mutex_unlock(&mutex);
    return count;
}

static uint32_t JoinDomain(const char* domain, const char* organizationalUnit, const struct Credentials* credentials) {
    Report("join(%s, %s, %s, %s)", Shown(domain), Shown(organizationalUnit), Shown(credentials->userName),
           Shown(credentials->password));
    return NextStatus(SCRIPTED_JOIN);
}

static uint32_t PartDomain(const struct Credentials* credentials) {
    if (credentials == NULL) {
        Report("part(null)");
    } else {
        Report("part(%s, %s)", Shown(credentials->userName), Shown(credentials->password));
    }
    return NextStatus(SCRIPTED_PART);
}

static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    Report("active domain");
    const uint32_t status = NextStatus(SCRIPTED_ACTIVE_DOMAIN);
    if (status != 0) return status;
    domain->dnsName = GivenText(domainName);
    domain->netbiosName = GivenText(netbiosName);
    *release = Release;
    return 0;
}

static uint32_t GetPreferredDomainControllers(char*** controllers, NimauthRelease* release) {
    Report("preferred controllers");
    *controllers = NULL;
    *release = Release;
    return NextStatus(SCRIPTED_PREFERRED_CONTROLLERS);
}

static int32_t GetDomainTrustState(void) {
    Report("trust state");
    return 1;
}

static uint32_t GetTrustedDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    static char labDNSName[] = "lab.test";
    static char labNetBIOSName[] = "LAB";
    static struct NimauthDomainRecord lab = {labDNSName, labNetBIOSName};
    Report("trusted domains");
    const uint32_t status = NextStatus(SCRIPTED_TRUSTED_DOMAINS);
    if (status != 0) return status;
    struct NimauthDomainRecord** const records = calloc(2, sizeof *records);
    if (records == NULL) return 8;
    records[0] = IsMember() ? &lab : NULL;
    *domains = Given(records);
    *release = Release;
    return 0;
}

static uint32_t GetMachineAccountDN(char** distinguishedName, NimauthRelease* release) {
    Report("machine account DN");
    *distinguishedName = NULL;
    *release = Release;
    return NextStatus(SCRIPTED_MACHINE_ACCOUNT_DN);
}

static uint32_t GetAnyDomainController(const char* firstName, const char* domain, char** controller,
                                       NimauthRelease* release) {
    Report("any domain controller(%s, %s)", Shown(firstName), Shown(domain));
    const uint32_t status = NextStatus(SCRIPTED_ANY_DOMAIN_CONTROLLER);
    if (status != 0) return status;
    *controller = GivenText(controllerName);
    *release = Release;
    return 0;
}

static int32_t GetDomainTrustRelationship(const char* domain) {
    Report("trust relationship(%s)", Shown(domain));
    return 3;
}

static uint32_t GetSmartCardEnabledServices(char*** services, NimauthRelease* release) {
    Report("smart-card services");
    *services = NULL;
    *release = Release;
    return NextStatus(SCRIPTED_SMART_CARD_SERVICES);
}

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = NIMAUTH_PROVIDER_API_VERSION, .pamModule = "pam_scripted.so", .nssModule = "scripted"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    .tableVersion = NIMAUTH_PROVIDER_TABLE_VERSION,
    .joinDomain = JoinDomain,
    .partDomain = PartDomain,
    .getActiveDomain = GetActiveDomain,
    .getPreferredDomainControllers = GetPreferredDomainControllers,
    .getDomainTrustState = GetDomainTrustState,
    .getTrustedDomains = GetTrustedDomains,
    .getMachineAccountDN = GetMachineAccountDN,
    .getAnyDomainController = GetAnyDomainController,
    .getDomainTrustRelationship = GetDomainTrustRelationship,
    .getSmartCardEnabledServices = GetSmartCardEnabledServices};
