/* Succeeds without touching any output, not even the release function. */
#include "parts.h"

ORDINARY_METADATA

static uint32_t Domain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    (void)domain;
    (void)release;
    return 0;
}
static uint32_t Text(char** text, NimauthRelease* release) {
    (void)text;
    (void)release;
    return 0;
}
static uint32_t TextFor(const char* name, char** text, NimauthRelease* release) {
    (void)name;
    return Text(text, release);
}
static uint32_t Texts(char*** texts, NimauthRelease* release) {
    (void)texts;
    (void)release;
    return 0;
}
static uint32_t Domains(struct NimauthDomainRecord*** domains, NimauthRelease* release) {
    (void)domains;
    (void)release;
    return 0;
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2,
                                                                          .getActiveDomain = Domain,
                                                                          .getPreferredDomainControllers = Texts,
                                                                          .getTrustedDomains = Domains,
                                                                          .getMachineAccountDN = Text,
                                                                          .convertCanonicalUsername = TextFor,
                                                                          .getHostPrincipalForDomain = TextFor,
                                                                          .getSmartCardEnabledServices = Texts};
