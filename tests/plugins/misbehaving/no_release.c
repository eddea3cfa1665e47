/* Answers with texts and arrays of its own static storage and null release functions. */
#include "parts.h"

ORDINARY_METADATA

static char dnsName[] = "corp.test", netbiosName[] = "CORP", first[] = "dc1", second[] = "dc2";
static char* texts[] = {first, second, NULL};
static struct NimauthDomainRecord corp = {dnsName, netbiosName};
static struct NimauthDomainRecord* domains[] = {&corp, NULL};

static uint32_t Domain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
    *domain = corp;
    *release = NULL;
    return 0;
}
static uint32_t Text(char** text, NimauthRelease* release) {
    *text = dnsName;
    *release = NULL;
    return 0;
}
static uint32_t Texts(char*** array, NimauthRelease* release) {
    *array = texts;
    *release = NULL;
    return 0;
}
static uint32_t Domains(struct NimauthDomainRecord*** array, NimauthRelease* release) {
    *array = domains;
    *release = NULL;
    return 0;
}

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion = 2,
                                                                          .getActiveDomain = Domain,
                                                                          .getPreferredDomainControllers = Texts,
                                                                          .getTrustedDomains = Domains,
                                                                          .getMachineAccountDN = Text,
                                                                          .getSmartCardEnabledServices = Texts};
