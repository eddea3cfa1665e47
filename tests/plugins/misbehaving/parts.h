/* What the providers of this folder have in common. */

#ifndef TESTS_PLUGINS_MISBEHAVING_PARTS_H_
#define TESTS_PLUGINS_MISBEHAVING_PARTS_H_

#include <stdlib.h>
#include <string.h>

#include "authentication/provider_abi.h"

/* The metadata record of a provider that is fit in this respect. */
#define ORDINARY_METADATA                                                                                              \
    const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {NIMAUTH_PROVIDER_API_VERSION, "pam_test.so", \
                                                                          "debug", "test", NULL};

/* A provider that a test reaches into exports a constant table of functions named `control`; its type is declared in a
 * header of the provider's name. Everything else here is static, so that no provider loaded before takes its place. */

/* Copies `text`, which may be null. */
static inline char* CopyText(const char* text) { return text ? strdup(text) : NULL; }

static inline size_t CountTexts(const char* const* texts) {
    size_t count = 0;
    while (texts[count]) ++count;
    return count;
}

static inline void FreeTexts(void* array) {
    for (char** text = (char**)array; *text; ++text) free(*text);
    free(array);
}

static inline char** CopyTexts(const char* const* texts) {
    size_t count = CountTexts(texts);
    char** copy = (char**)calloc(count + 1, sizeof *copy);
    for (size_t i = 0; i < count; ++i) copy[i] = strdup(texts[i]);
    return copy;
}

static inline void FreeDomains(void* array) {
    for (struct NimauthDomainRecord** domain = (struct NimauthDomainRecord**)array; *domain; ++domain) {
        free((*domain)->dnsName);
        free((*domain)->netbiosName);
        free(*domain);
    }
    free(array);
}

/* Copies `names`: pairs of DNS and NetBIOS name, ended by a null DNS name. */
static inline struct NimauthDomainRecord** CopyDomains(const char* const* names) {
    size_t count = 0;
    while (names[2 * count]) ++count;
    struct NimauthDomainRecord** domains = (struct NimauthDomainRecord**)calloc(count + 1, sizeof *domains);
    for (size_t i = 0; i < count; ++i) {
        domains[i] = (struct NimauthDomainRecord*)calloc(1, sizeof **domains);
        domains[i]->dnsName = CopyText(names[2 * i]);
        domains[i]->netbiosName = CopyText(names[2 * i + 1]);
    }
    return domains;
}

#endif /* TESTS_PLUGINS_MISBEHAVING_PARTS_H_ */
