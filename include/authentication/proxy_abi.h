/*
 * The C interface between the library and an authentication-proxy plug-in.
 *
 * An authentication proxy is a service that creates computer accounts in a domain on behalf of hosts, so that a host can
 * join without ever holding a domain user's password. The library talks to it only through a plug-in: a shared object
 * "lib<name>.so" in /usr/libexec/nimauth/lib64/ or /usr/libexec/nimauth/ that exports one constant data symbol,
 *
 *     APXProxyClientOperations
 *
 * A plug-in for a proxy that always answers the same:
 *
 *     static uint32_t GetDomainInfo(const char* server, bool verify, const char* thumbprint, const char* certificate,
 *                                   char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
 *         *netbiosDomainName = strdup("CORP");
 *         *dnsDomainName = strdup("corp.test");
 *         *domainSid = strdup("S-1-5-21-1004336348-1177238915-682003330");
 *         return 0;
 *     }
 *     static void Release(char* text) { free(text); }
 *     const struct NimauthProxyOperations APXProxyClientOperations = {
 *         .getDomainInfo = GetDomainInfo, .createMachineAccount = CreateMachineAccount, .release = Release};
 *
 * Status: 0 for success. 0x80090325 the service's certificate cannot be verified, 10060 time-out, 8 no memory, 1225
 * refused, 1229 connection invalid; the library knows no others by name.
 *
 * Texts: NUL-terminated byte strings. Arguments belong to the library and live only during the call. Results belong to
 * the plug-in, must not be null on success, and are each given back once through `release`; after a failure none are
 * looked at.
 *
 * Threads: one thread at a time, the one that joins. No C++ exception may leave a function.
 *
 * Layout: 64-bit, natural alignment, checked below. This header is C11 and C++17.
 */

#ifndef NIMBREL_AUTHENTICATION_PROXY_ABI_H_
#define NIMBREL_AUTHENTICATION_PROXY_ABI_H_

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "authentication/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `server` is the service's address and `thumbprint` the expected SHA-1 thumbprint of its certificate, "0A:1B:...:FF",
 * empty when nothing is to be verified. `certificate` is the service's certificate in PEM form, or null. */
struct NimauthProxyOperations {
    /* Field 1. Neither checked nor used; leave it null. */
    void* reserved;

    /* Field 2. The domain that the service creates accounts in. */
    uint32_t (*getDomainInfo)(const char* server, bool verifyCertificate, const char* thumbprint,
                              const char* certificate, char** netbiosDomainName, char** dnsDomainName,
                              char** domainSid);

    /* Field 3. Creates a computer account; `accountName` is the host's fully qualified name, `organizationalUnit` is null
     * for the service's default. The two results are opaque to the library: the directory provider that completes the
     * join knows what they are. */
    uint32_t (*createMachineAccount)(const char* server, const char* accountName, const char* organizationalUnit,
                                     bool verifyCertificate, const char* thumbprint, const char* certificate,
                                     char** principalField2, char** principalField3);

    /* Field 4. Gives one result back. */
    void (*release)(char* text);
};

/* What a proxy plug-in exports. */
NIMAUTH_EXPORT extern const struct NimauthProxyOperations APXProxyClientOperations;

static_assert(sizeof(bool) == 1, "bool is not one byte");
static_assert(offsetof(struct NimauthProxyOperations, reserved) == 0, "NimauthProxyOperations.reserved has moved");
static_assert(offsetof(struct NimauthProxyOperations, getDomainInfo) == 8,
              "NimauthProxyOperations.getDomainInfo has moved");
static_assert(offsetof(struct NimauthProxyOperations, createMachineAccount) == 16,
              "NimauthProxyOperations.createMachineAccount has moved");
static_assert(offsetof(struct NimauthProxyOperations, release) == 24, "NimauthProxyOperations.release has moved");
static_assert(sizeof(struct NimauthProxyOperations) == 32, "NimauthProxyOperations has grown");

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* NIMBREL_AUTHENTICATION_PROXY_ABI_H_ */
