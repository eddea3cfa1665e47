/*
 * The C interface between the library and a directory provider plug-in.
 *
 * A directory provider is a shared object "lib<name>.so" in /usr/libexec/nimauth/lib64/ or /usr/libexec/nimauth/ that
 * does the directory work for the library: it joins and leaves domains and answers questions about them. It exports two
 * constant data symbols:
 *
 *     ActiveDirectoryClientMetadata      who the plug-in is and which PAM and NSS modules it brings
 *     ActiveDirectoryClientOperations    its version and its sixteen operations
 *
 * A minimal provider that only knows its domain:
 *
 *     static uint32_t GetActiveDomain(struct NimauthDomainRecord* domain, NimauthRelease* release) {
 *         domain->dnsName = strdup("corp.test");
 *         domain->netbiosName = strdup("CORP");
 *         *release = free;
 *         return 0;
 *     }
 *     const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
 *         .apiVersion = NIMAUTH_PROVIDER_API_VERSION, .pamModule = "pam_corp.so", .nssModule = "corp"};
 *     const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
 *         .tableVersion = NIMAUTH_PROVIDER_TABLE_VERSION, .getActiveDomain = GetActiveDomain};
 *
 * Status: an operation returns 0 for success and a Windows system error number (winerror.h numbering) otherwise. The
 * library turns each number into its own exception class; 1326 and 0xFFFF0000 make a join try again, four calls in all.
 *
 * Missing operations: any function pointer may be null. The library then reports "This function is not supported on
 * this system." or, for optional operations, goes on without the answer.
 *
 * Texts: NUL-terminated byte strings. Arguments belong to the library and live only during the call. Results belong to
 * the plug-in: the library copies them and gives them back through the release function that the same call returned
 * through its last argument. A null result is never released, a null release function is never called, and after a
 * non-zero status nothing is released.
 *
 * Threads: the library calls any operations at once from any of its threads and takes no lock around them. A query may
 * be called on a detached thread that outlives its caller's interest and may still run when the process exits. No
 * C++ exception may leave an operation or a release function.
 *
 * Layout: 64-bit, natural alignment, checked below. The tables only ever grow at their end.
 *
 * This header is C11 and C++17.
 */

#ifndef NIMBREL_AUTHENTICATION_PROVIDER_ABI_H_
#define NIMBREL_AUTHENTICATION_PROVIDER_ABI_H_

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "authentication/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The newest metadata layout that the library accepts; a plug-in with a higher number is refused. */
#define NIMAUTH_PROVIDER_API_VERSION 3

/* The table version from which on `joinDomainWithMachineAccount` and `getHostPrincipalForDomain` are called. */
#define NIMAUTH_PROVIDER_TABLE_VERSION 2

/* Gives a result back to the plug-in that allocated it. */
typedef void (*NimauthRelease)(void* result);

/* A user's name and password as the caller of the library gave them. Either pointer may be null. */
struct Credentials {
    const char* userName;
    const char* password;
};

/* One domain. In a result either text may be null. */
struct NimauthDomainRecord {
    char* dnsName;
    char* netbiosName;
};

/* The domain of a join with a machine account. `reserved` is an empty text. */
struct NimauthDirectoryDomainRecord {
    const char* reserved;
    const char* netbiosName;
    const char* dnsName;
    const char* sid; /* for example "S-1-5-21-1004336348-1177238915-682003330" */
};

/* The machine account of such a join. `reserved` is an empty text; the two principal fields are the opaque texts that
 * the authentication proxy returned when it created the account. */
struct NimauthMachineAccountRecord {
    const char* hostName; /* the short name */
    const char* dnsDomainName;
    const char* reserved;
    const char* principalField2;
    const char* principalField3;
};

struct NimauthProviderMetadata {
    int32_t apiVersion;
    const char* pamModule;           /* file name of the PAM module; must not be null */
    const char* pamModuleParameters; /* white-space-separated words; null for none */
    const char* nssModule;           /* name of the NSS service; must not be null */
    const char* nssModuleParameters; /* white-space-separated words; null for none */
};

struct NimauthProviderOperations {
    int32_t tableVersion;

    /* Slot 1. Joins the host; `organizationalUnit` is null for the default container. */
    uint32_t (*joinDomain)(const char* domain, const char* organizationalUnit, const struct Credentials* credentials);

    /* Slot 2. Leaves the domain; `credentials` is null for a leave that only forgets locally. */
    uint32_t (*partDomain)(const struct Credentials* credentials);

    /* Slot 3. Fills `domain`; each of its texts is released on its own. Empty or null texts mean "not a member". */
    uint32_t (*getActiveDomain)(struct NimauthDomainRecord* domain, NimauthRelease* release);

    /* Slot 4. `controllers` ends with a null pointer; an array that holds only that clears the preference. */
    uint32_t (*setPreferredDomainControllers)(const char* const* controllers);

    /* Slot 5. The array ends with a null pointer and is released as a whole. */
    uint32_t (*getPreferredDomainControllers)(char*** controllers, NimauthRelease* release);

    /* Slot 6. Never called; leave it null. */
    void (*unused)(void);

    /* Slot 7. Returns the trust state itself, not a status; the library reads 0 when this slot is null. */
    int32_t (*getDomainTrustState)(void);

    /* Slot 8. The array of pointers ends with a null pointer and is released as a whole. */
    uint32_t (*getTrustedDomains)(struct NimauthDomainRecord*** domains, NimauthRelease* release);

    /* Slot 9. */
    uint32_t (*getMachineAccountDN)(char** distinguishedName, NimauthRelease* release);

    /* Slot 10. `firstName` is null when the caller gave none; the library always asks with the domain in `domain`. */
    uint32_t (*getAnyDomainController)(const char* firstName, const char* domain, char** controller,
                                       NimauthRelease* release);

    /* Slot 11. */
    uint32_t (*convertCanonicalUsername)(const char* name, char** canonicalName, NimauthRelease* release);

    /* Slot 12. Called only when the table version is 2 or more. */
    uint32_t (*joinDomainWithMachineAccount)(const struct NimauthDirectoryDomainRecord* domain,
                                             const struct NimauthMachineAccountRecord* account);

    /* Slot 13. Called only when the table version is 2 or more. */
    uint32_t (*getHostPrincipalForDomain)(const char* domain, char** principal, NimauthRelease* release);

    /* Slot 14. Returns the relationship itself, not a status; the library reads 0 when this slot is null. */
    int32_t (*getDomainTrustRelationship)(const char* domain);

    /* Slot 15. `services` ends with a null pointer. */
    uint32_t (*setSmartCardEnabledServices)(const char* const* services);

    /* Slot 16. The array ends with a null pointer and is released as a whole. */
    uint32_t (*getSmartCardEnabledServices)(char*** services, NimauthRelease* release);
};

/* What a provider exports. */
NIMAUTH_EXPORT extern const struct NimauthProviderMetadata ActiveDirectoryClientMetadata;
NIMAUTH_EXPORT extern const struct NimauthProviderOperations ActiveDirectoryClientOperations;

#define NIMAUTH_ASSERT_OFFSET(type, field, offset) \
    static_assert(offsetof(struct type, field) == (offset), #type "." #field " has moved")

NIMAUTH_ASSERT_OFFSET(Credentials, userName, 0);
NIMAUTH_ASSERT_OFFSET(Credentials, password, 8);
static_assert(sizeof(struct Credentials) == 16, "Credentials has grown");

NIMAUTH_ASSERT_OFFSET(NimauthDomainRecord, dnsName, 0);
NIMAUTH_ASSERT_OFFSET(NimauthDomainRecord, netbiosName, 8);
static_assert(sizeof(struct NimauthDomainRecord) == 16, "NimauthDomainRecord has grown");

NIMAUTH_ASSERT_OFFSET(NimauthDirectoryDomainRecord, reserved, 0);
NIMAUTH_ASSERT_OFFSET(NimauthDirectoryDomainRecord, netbiosName, 8);
NIMAUTH_ASSERT_OFFSET(NimauthDirectoryDomainRecord, dnsName, 16);
NIMAUTH_ASSERT_OFFSET(NimauthDirectoryDomainRecord, sid, 24);

NIMAUTH_ASSERT_OFFSET(NimauthMachineAccountRecord, hostName, 0);
NIMAUTH_ASSERT_OFFSET(NimauthMachineAccountRecord, dnsDomainName, 8);
NIMAUTH_ASSERT_OFFSET(NimauthMachineAccountRecord, reserved, 16);
NIMAUTH_ASSERT_OFFSET(NimauthMachineAccountRecord, principalField2, 24);
NIMAUTH_ASSERT_OFFSET(NimauthMachineAccountRecord, principalField3, 32);

NIMAUTH_ASSERT_OFFSET(NimauthProviderMetadata, apiVersion, 0);
NIMAUTH_ASSERT_OFFSET(NimauthProviderMetadata, pamModule, 8);
NIMAUTH_ASSERT_OFFSET(NimauthProviderMetadata, pamModuleParameters, 16);
NIMAUTH_ASSERT_OFFSET(NimauthProviderMetadata, nssModule, 24);
NIMAUTH_ASSERT_OFFSET(NimauthProviderMetadata, nssModuleParameters, 32);

NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, tableVersion, 0);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, joinDomain, 8);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, partDomain, 16);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getActiveDomain, 24);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, setPreferredDomainControllers, 32);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getPreferredDomainControllers, 40);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, unused, 48);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getDomainTrustState, 56);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getTrustedDomains, 64);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getMachineAccountDN, 72);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getAnyDomainController, 80);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, convertCanonicalUsername, 88);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, joinDomainWithMachineAccount, 96);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getHostPrincipalForDomain, 104);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getDomainTrustRelationship, 112);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, setSmartCardEnabledServices, 120);
NIMAUTH_ASSERT_OFFSET(NimauthProviderOperations, getSmartCardEnabledServices, 128);
static_assert(sizeof(struct NimauthProviderOperations) == 136, "NimauthProviderOperations has grown");

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* NIMBREL_AUTHENTICATION_PROVIDER_ABI_H_ */
