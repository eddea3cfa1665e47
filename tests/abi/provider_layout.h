/* The layout of the provider interface in numbers of its own. Included as C11 and as C++17. */

#include <assert.h>
#include <stddef.h>

#include "authentication/provider_abi.h"
#include "authentication/proxy_abi.h"

#define AT(type, field, offset, size)                                                          \
    static_assert(offsetof(struct type, field) == (offset), #type "." #field " is elsewhere"); \
    static_assert(sizeof(((struct type*)0)->field) == (size), #type "." #field " has another size")
#define SIZE(type, size) static_assert(sizeof(struct type) == (size), #type " has another size")

AT(Credentials, userName, 0, 8);
AT(Credentials, password, 8, 8);
SIZE(Credentials, 16);

AT(NimauthDomainRecord, dnsName, 0, 8);
AT(NimauthDomainRecord, netbiosName, 8, 8);
SIZE(NimauthDomainRecord, 16);

AT(NimauthDirectoryDomainRecord, reserved, 0, 8);
AT(NimauthDirectoryDomainRecord, netbiosName, 8, 8);
AT(NimauthDirectoryDomainRecord, dnsName, 16, 8);
AT(NimauthDirectoryDomainRecord, sid, 24, 8);
SIZE(NimauthDirectoryDomainRecord, 32);

AT(NimauthMachineAccountRecord, hostName, 0, 8);
AT(NimauthMachineAccountRecord, dnsDomainName, 8, 8);
AT(NimauthMachineAccountRecord, reserved, 16, 8);
AT(NimauthMachineAccountRecord, principalField2, 24, 8);
AT(NimauthMachineAccountRecord, principalField3, 32, 8);
SIZE(NimauthMachineAccountRecord, 40);

AT(NimauthProviderMetadata, apiVersion, 0, 4);
AT(NimauthProviderMetadata, pamModule, 8, 8);
AT(NimauthProviderMetadata, pamModuleParameters, 16, 8);
AT(NimauthProviderMetadata, nssModule, 24, 8);
AT(NimauthProviderMetadata, nssModuleParameters, 32, 8);
SIZE(NimauthProviderMetadata, 40);

AT(NimauthProviderOperations, tableVersion, 0, 4);
AT(NimauthProviderOperations, joinDomain, 8, 8);
AT(NimauthProviderOperations, partDomain, 16, 8);
AT(NimauthProviderOperations, getActiveDomain, 24, 8);
AT(NimauthProviderOperations, setPreferredDomainControllers, 32, 8);
AT(NimauthProviderOperations, getPreferredDomainControllers, 40, 8);
AT(NimauthProviderOperations, unused, 48, 8);
AT(NimauthProviderOperations, getDomainTrustState, 56, 8);
AT(NimauthProviderOperations, getTrustedDomains, 64, 8);
AT(NimauthProviderOperations, getMachineAccountDN, 72, 8);
AT(NimauthProviderOperations, getAnyDomainController, 80, 8);
AT(NimauthProviderOperations, convertCanonicalUsername, 88, 8);
AT(NimauthProviderOperations, joinDomainWithMachineAccount, 96, 8);
AT(NimauthProviderOperations, getHostPrincipalForDomain, 104, 8);
AT(NimauthProviderOperations, getDomainTrustRelationship, 112, 8);
AT(NimauthProviderOperations, setSmartCardEnabledServices, 120, 8);
AT(NimauthProviderOperations, getSmartCardEnabledServices, 128, 8);
SIZE(NimauthProviderOperations, 136);

AT(NimauthProxyOperations, reserved, 0, 8);
AT(NimauthProxyOperations, getDomainInfo, 8, 8);
AT(NimauthProxyOperations, createMachineAccount, 16, 8);
AT(NimauthProxyOperations, release, 24, 8);
SIZE(NimauthProxyOperations, 32);

static_assert(sizeof(bool) == 1, "bool is not one byte");
static_assert(NIMAUTH_PROVIDER_API_VERSION == 3, "the newest accepted metadata version has changed");
static_assert(NIMAUTH_PROVIDER_TABLE_VERSION == 2, "the table version of slots 12 and 13 has changed");

/* Assigning functions of exactly these types fails to compile when an argument or result has changed. */
static uint32_t JoinDomain(const char* a, const char* b, const struct Credentials* c) { return !a + !b + !c; }
static uint32_t PartDomain(const struct Credentials* a) { return !a; }
static uint32_t GetActiveDomain(struct NimauthDomainRecord* a, void (**b)(void*)) { return !a + !b; }
static uint32_t SetTexts(const char* const* a) { return !a; }
static uint32_t GetTexts(char*** a, void (**b)(void*)) { return !a + !b; }
static void Unused(void) {}
static int32_t GetState(void) { return 0; }
static uint32_t GetDomains(struct NimauthDomainRecord*** a, void (**b)(void*)) { return !a + !b; }
static uint32_t GetText(char** a, void (**b)(void*)) { return !a + !b; }
static uint32_t GetController(const char* a, const char* b, char** c, void (**d)(void*)) { return !a + !b + !c + !d; }
static uint32_t GetTextFor(const char* a, char** b, void (**c)(void*)) { return !a + !b + !c; }
static uint32_t JoinWithAccount(const struct NimauthDirectoryDomainRecord* a,
                                const struct NimauthMachineAccountRecord* b) {
    return !a + !b;
}
static int32_t GetRelationship(const char* a) { return !a; }

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    2,       JoinDomain,    PartDomain, GetActiveDomain, SetTexts,   GetTexts,        Unused,   GetState, GetDomains,
    GetText, GetController, GetTextFor, JoinWithAccount, GetTextFor, GetRelationship, SetTexts, GetTexts};
