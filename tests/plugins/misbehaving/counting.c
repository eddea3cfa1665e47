/*
 * Watches what becomes of its outputs. Each is entered in a ledger with the release function it was given out with, and
 * overwritten when it is released, so that a copy made too late is seen. Can be told to fail with its outputs filled.
 */
#include "counting.h"

#include <stdbool.h>

ORDINARY_METADATA

static struct Output {
    void* result;
    NimauthRelease release;
    bool released;
} ledger[64];
static int given, released, wrong;
static uint32_t status;

static void SetStatus(uint32_t newStatus) { status = newStatus; }
static int Given(void) { return given; }
static int Released(void) { return released; }
static int Wrong(void) { return wrong; }

static bool Settle(void* result, NimauthRelease release) {
    for (int i = 0; i < given; ++i) {
        if (ledger[i].result != result || ledger[i].release != release || ledger[i].released) continue;
        ledger[i].released = true;
        ++released;
        return true;
    }
    ++wrong;
    return false;
}

static void Spoil(char* text) { memset(text, '#', strlen(text)); }
static void SpoilTexts(char** texts) {
    for (; *texts; ++texts) Spoil(*texts);
}

/* Memory stays allocated until `TakeBack`, so that no address is given out twice. */
static void ReleaseDnsName(void* text) {
    if (Settle(text, ReleaseDnsName)) Spoil((char*)text);
}
static void ReleaseText(void* text) {
    if (Settle(text, ReleaseText)) Spoil((char*)text);
}
static void ReleaseControllers(void* texts) {
    if (Settle(texts, ReleaseControllers)) SpoilTexts((char**)texts);
}
static void ReleaseServices(void* texts) {
    if (Settle(texts, ReleaseServices)) SpoilTexts((char**)texts);
}
static void ReleaseDomains(void* domains) {
    if (!Settle(domains, ReleaseDomains)) return;
    for (struct NimauthDomainRecord** domain = (struct NimauthDomainRecord**)domains; *domain; ++domain) {
        Spoil((*domain)->dnsName);
        Spoil((*domain)->netbiosName);
    }
}

static void TakeBack(void) {
    for (int i = 0; i < given; ++i) {
        if (ledger[i].release == ReleaseControllers || ledger[i].release == ReleaseServices) {
            FreeTexts(ledger[i].result);
        } else if (ledger[i].release == ReleaseDomains) {
            FreeDomains(ledger[i].result);
        } else {
            free(ledger[i].result);
        }
        ledger[i] = (struct Output){NULL, NULL, false};
    }
    given = released = wrong = 0;
    status = 0;
}

static void* Give(void* result, NimauthRelease releaseFunction) {
    ledger[given++] = (struct Output){result, releaseFunction, false};
    return result;
}

static const char* const kTexts[] = {"dc1.corp.test", "", "dc2.corp.test", NULL};
static const char* const kDomains[] = {"lab.test", "LAB", "", "", "sub.lab.test", "SUB", NULL};

static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    domain->dnsName = (char*)Give(strdup("corp.test"), ReleaseDnsName);
    domain->netbiosName = (char*)Give(strdup("CORP"), ReleaseDnsName);
    *release = ReleaseDnsName;
    return status;
}
static uint32_t GetText(char** text, NimauthRelease* release) {
    *text = (char*)Give(strdup("answer"), ReleaseText);
    *release = ReleaseText;
    return status;
}
static uint32_t GetTextFor(const char* name, char** text, NimauthRelease* release) {
    (void)name;
    return GetText(text, release);
}
static uint32_t GetController(const char* first, const char* domain, char** text, NimauthRelease* release) {
    (void)first;
    return GetTextFor(domain, text, release);
}
static uint32_t GetControllers(char*** texts, NimauthRelease* release) {
    *texts = (char**)Give(CopyTexts(kTexts), ReleaseControllers);
    *release = ReleaseControllers;
    return status;
}
static uint32_t GetServices(char*** texts, NimauthRelease* release) {
    *texts = (char**)Give(CopyTexts(kTexts), ReleaseServices);
    *release = ReleaseServices;
    return status;
}
static uint32_t GetDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    *domains = (struct NimauthDomainRecord**)Give(CopyDomains(kDomains), ReleaseDomains);
    *release = ReleaseDomains;
    return status;
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    .tableVersion = 2,
    .getActiveDomain = GetActiveDomain,
    .getPreferredDomainControllers = GetControllers,
    .getTrustedDomains = GetDomains,
    .getMachineAccountDN = GetText,
    .getAnyDomainController = GetController,
    .convertCanonicalUsername = GetTextFor,
    .getHostPrincipalForDomain = GetTextFor,
    .getSmartCardEnabledServices = GetServices};

NIMAUTH_EXPORT const struct CountingControl control = {SetStatus, Given, Released, Wrong, TakeBack};
