/* Succeeds without an answer: null texts and arrays, with a release function that counts its calls. */
#include "null_answers.h"

#include "parts.h"

ORDINARY_METADATA

static int releases;
static void Release(void* result) {
    (void)result;
    ++releases;
}
static int Releases(void) { return releases; }

static uint32_t NullText(char** text, NimauthRelease* release) {
    *text = NULL;
    *release = Release;
    return 0;
}
static uint32_t NullTextFor(const char* name, char** text, NimauthRelease* release) {
    (void)name;
    return NullText(text, release);
}
static uint32_t NullController(const char* first, const char* domain, char** text, NimauthRelease* release) {
    (void)first;
    return NullTextFor(domain, text, release);
}
static uint32_t NullTexts(char*** texts, NimauthRelease* release) {
    *texts = NULL;
    *release = Release;
    return 0;
}
static uint32_t NullDomains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    *domains = NULL;
    *release = Release;
    return 0;
}
static uint32_t NullDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    domain->dnsName = domain->netbiosName = NULL;
    *release = Release;
    return 0;
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2,
                                                                          .getActiveDomain = NullDomain,
                                                                          .getPreferredDomainControllers = NullTexts,
                                                                          .getTrustedDomains = NullDomains,
                                                                          .getMachineAccountDN = NullText,
                                                                          .getAnyDomainController = NullController,
                                                                          .convertCanonicalUsername = NullTextFor,
                                                                          .getHostPrincipalForDomain = NullTextFor,
                                                                          .getSmartCardEnabledServices = NullTexts};

NIMAUTH_EXPORT const struct NullAnswersControl control = {Releases};
