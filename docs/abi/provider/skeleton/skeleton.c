/*
 * A directory provider to start from. It is complete: it has every operation, gives back whatever it allocates and may
 * be called from any thread. Its directory is a few constants and its membership a variable; replace both.
 *
 *     domain corp.test (CORP), trusting lab.test (LAB); controllers dc1.corp.test and dc2.corp.test
 *     one user who may join hosts: "administrator", password "skeleton"
 */

#include <pthread.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "authentication/provider_abi.h"

/* Windows system error numbers, as the library understands them. */
enum {
    kSuccess = 0,
    kFileNotFound = 2, /* for trusted domains: the host is no member */
    kNotEnoughMemory = 8,
    kInvalidParameter = 87,
    kLogonFailure = 1326, /* the library tries a join again, four times in all */
    kNoSuchDomain = 1355,
    kAlreadyJoined = 2691
};

/* Values of this provider's own; document yours. The library gives a meaning to 0, 2 and 7 of the trust state and to 0
 * and 6 of the relationship (docs/abi/provider.md). */
enum { kTrustGood = 1, kTrustNoMember = 7, kRelationOwn = 1, kRelationTrusts = 2, kRelationUnknown = 6 };

enum { kMaxTexts = 16, kMaxLength = 255 };

static const char kDnsName[] = "corp.test";
static const char kNetbiosName[] = "CORP";
static const char kMachineAccount[] = "CN=NODE01,CN=Computers,DC=corp,DC=test";
static const char* const kTrustedDomains[][2] = {{"lab.test", "LAB"}};

/* Operations run on any thread, several at once. Never hold a lock like this one across the network. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* guards the two below */
static bool joined;
static struct Texts { /* no allocated memory: nobody would free it when the plug-in is closed */
    size_t count;
    char texts[kMaxTexts][kMaxLength + 1];
} controllers, services;

static bool IsJoined(void) {
    pthread_mutex_lock(&lock);
    bool answer = joined;
    pthread_mutex_unlock(&lock);
    return answer;
}

/* ---------------------------------------------------------------- results
 *
 * What an operation returns is the plug-in's: the library copies it and hands it to the function that the operation
 * stored in `release`. A text is one block; an array is released as a whole. */

static uint32_t ReturnText(const char* text, char** result, NimauthRelease* release) {
    *result = strdup(text);
    *release = free;
    return *result ? kSuccess : kNotEnoughMemory;
}

static void ReleaseTexts(void* array) {
    for (char** text = array; *text; ++text) free(*text);
    free(array);
}

static void ReleaseDomains(void* array) {
    for (struct NimauthDomainRecord** domain = array; *domain; ++domain) {
        free((*domain)->dnsName);
        free((*domain)->netbiosName);
        free(*domain);
    }
    free(array);
}

static struct NimauthDomainRecord* NewDomain(const char* dnsName, const char* netbiosName) {
    struct NimauthDomainRecord* domain = malloc(sizeof *domain);
    if (!domain) return NULL;
    domain->dnsName = strdup(dnsName);
    domain->netbiosName = strdup(netbiosName);
    if (domain->dnsName && domain->netbiosName) return domain;
    free(domain->dnsName);
    free(domain->netbiosName);
    free(domain);
    return NULL;
}

/* Keeps copies of the library's texts, which are gone when the call returns. */
static uint32_t StoreTexts(struct Texts* kept, const char* const* texts) {
    struct Texts fresh = {.count = 0};
    for (; texts[fresh.count]; ++fresh.count) {
        if (fresh.count == kMaxTexts || strlen(texts[fresh.count]) > kMaxLength) return kInvalidParameter;
        strcpy(fresh.texts[fresh.count], texts[fresh.count]);
    }
    pthread_mutex_lock(&lock);
    *kept = fresh;
    pthread_mutex_unlock(&lock);
    return kSuccess;
}

static uint32_t ReturnTexts(const struct Texts* kept, char*** result, NimauthRelease* release) {
    pthread_mutex_lock(&lock);
    struct Texts texts = *kept;
    pthread_mutex_unlock(&lock);
    *release = ReleaseTexts;
    *result = calloc(texts.count + 1, sizeof **result);
    for (size_t i = 0; *result && i < texts.count; ++i) {
        (*result)[i] = strdup(texts.texts[i]);
        if (!(*result)[i]) {
            ReleaseTexts(*result);
            return kNotEnoughMemory;
        }
    }
    return *result ? kSuccess : kNotEnoughMemory;
}

/* ---------------------------------------------------------------- membership: slots 1, 2 and 12 */

static uint32_t BecomeMember(const char* domain) {
    if (strcasecmp(domain, kDnsName) != 0) return kNoSuchDomain;
    pthread_mutex_lock(&lock);
    bool wasJoined = joined;
    joined = true;
    pthread_mutex_unlock(&lock);
    return wasJoined ? kAlreadyJoined : kSuccess;
}

static bool MayJoin(const struct Credentials* credentials) {
    return credentials->userName && credentials->password && strcmp(credentials->userName, "administrator") == 0 &&
           strcmp(credentials->password, "skeleton") == 0;
}

/* `organizationalUnit` is null for the directory's default container. Never log or keep the password. */
static uint32_t JoinDomain(const char* domain, const char* organizationalUnit, const struct Credentials* credentials) {
    (void)organizationalUnit;
    if (strcasecmp(domain, kDnsName) != 0) return kNoSuchDomain;
    if (!MayJoin(credentials)) return kLogonFailure;
    return BecomeMember(domain);
}

/* Without credentials only the host forgets; with them its account could be disabled or deleted too. */
static uint32_t PartDomain(const struct Credentials* credentials) {
    if (credentials && !MayJoin(credentials)) return kLogonFailure;
    pthread_mutex_lock(&lock);
    joined = false;
    pthread_mutex_unlock(&lock);
    return kSuccess;
}

/* The account exists already; the two principal fields are what the proxy service returned when it made it. */
static uint32_t JoinWithMachineAccount(const struct NimauthDirectoryDomainRecord* domain,
                                       const struct NimauthMachineAccountRecord* account) {
    if (!*account->hostName) return kInvalidParameter;
    return BecomeMember(domain->dnsName);
}

/* ---------------------------------------------------------------- questions: slots 3, 7, 8, 9, 10, 11, 13 and 14 */

/* A host that is no member answers with null names, which is not an error. Each name is released on its own. */
static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    domain->dnsName = domain->netbiosName = NULL;
    *release = free;
    if (!IsJoined()) return kSuccess;
    domain->dnsName = strdup(kDnsName);
    domain->netbiosName = strdup(kNetbiosName);
    if (domain->dnsName && domain->netbiosName) return kSuccess;
    free(domain->dnsName); /* after a failure the library releases nothing */
    free(domain->netbiosName);
    return kNotEnoughMemory;
}

static int32_t GetDomainTrustState(void) { return IsJoined() ? kTrustGood : kTrustNoMember; }

static uint32_t GetTrustedDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    if (!IsJoined()) return kFileNotFound;
    size_t count = sizeof kTrustedDomains / sizeof kTrustedDomains[0];
    *release = ReleaseDomains;
    *domains = calloc(count + 1, sizeof **domains);
    for (size_t i = 0; *domains && i < count; ++i) {
        (*domains)[i] = NewDomain(kTrustedDomains[i][0], kTrustedDomains[i][1]);
        if (!(*domains)[i]) {
            ReleaseDomains(*domains);
            return kNotEnoughMemory;
        }
    }
    return *domains ? kSuccess : kNotEnoughMemory;
}

static uint32_t GetMachineAccountDN(char** name, NimauthRelease* release) {
    return ReturnText(IsJoined() ? kMachineAccount : "", name, release);
}

/* The library asks with the domain in `domain` and a null first name. */
static uint32_t GetAnyDomainController(const char* first, const char* domain, char** controller,
                                       NimauthRelease* release) {
    (void)first;
    if (strcasecmp(domain, kDnsName) != 0) return kNoSuchDomain;
    return ReturnText("dc1.corp.test", controller, release);
}

/* "CORP\user" becomes "user@corp.test"; another name is canonical already. */
static uint32_t ConvertCanonicalUsername(const char* name, char** canonicalName, NimauthRelease* release) {
    const char* separator = strchr(name, '\\');
    if (!separator) return ReturnText(name, canonicalName, release);
    size_t length = strlen(separator + 1);
    *release = free;
    *canonicalName = malloc(length + sizeof kDnsName + 1);
    if (!*canonicalName) return kNotEnoughMemory;
    memcpy(*canonicalName, separator + 1, length);
    (*canonicalName)[length] = '@';
    memcpy(*canonicalName + length + 1, kDnsName, sizeof kDnsName);
    return kSuccess;
}

static uint32_t GetHostPrincipal(const char* domain, char** principal, NimauthRelease* release) {
    if (strcasecmp(domain, kDnsName) != 0) return kNoSuchDomain;
    return ReturnText("host/node01.corp.test@CORP.TEST", principal, release);
}

static int32_t GetDomainTrustRelationship(const char* domain) {
    if (strcasecmp(domain, kDnsName) == 0) return kRelationOwn;
    for (size_t i = 0; i < sizeof kTrustedDomains / sizeof kTrustedDomains[0]; ++i) {
        if (strcasecmp(domain, kTrustedDomains[i][0]) == 0) return kRelationTrusts;
    }
    return kRelationUnknown;
}

/* ---------------------------------------------------------------- settings: slots 4, 5, 15 and 16 */

static uint32_t SetPreferredDomainControllers(const char* const* names) { return StoreTexts(&controllers, names); }

static uint32_t GetPreferredDomainControllers(char*** names, NimauthRelease* release) {
    return ReturnTexts(&controllers, names, release);
}

static uint32_t SetSmartCardEnabledServices(const char* const* names) { return StoreTexts(&services, names); }

static uint32_t GetSmartCardEnabledServices(char*** names, NimauthRelease* release) {
    return ReturnTexts(&services, names, release);
}

/* ---------------------------------------------------------------- what the library looks for */

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {.apiVersion = NIMAUTH_PROVIDER_API_VERSION,
                                                                      .pamModule = "pam_skeleton.so",
                                                                      .pamModuleParameters = "try_first_pass",
                                                                      .nssModule = "skeleton"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    .tableVersion = NIMAUTH_PROVIDER_TABLE_VERSION,
    .joinDomain = JoinDomain,
    .partDomain = PartDomain,
    .getActiveDomain = GetActiveDomain,
    .setPreferredDomainControllers = SetPreferredDomainControllers,
    .getPreferredDomainControllers = GetPreferredDomainControllers,
    .getDomainTrustState = GetDomainTrustState,
    .getTrustedDomains = GetTrustedDomains,
    .getMachineAccountDN = GetMachineAccountDN,
    .getAnyDomainController = GetAnyDomainController,
    .convertCanonicalUsername = ConvertCanonicalUsername,
    .joinDomainWithMachineAccount = JoinWithMachineAccount,
    .getHostPrincipalForDomain = GetHostPrincipal,
    .getDomainTrustRelationship = GetDomainTrustRelationship,
    .setSmartCardEnabledServices = SetSmartCardEnabledServices,
    .getSmartCardEnabledServices = GetSmartCardEnabledServices};
