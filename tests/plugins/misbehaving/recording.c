/* Does nothing but to write down its arguments, and answers every question with nothing. */
#include "recording.h"

#include <stdio.h>

ORDINARY_METADATA

static char call[1024];
static const void* address;

static const char* LastCall(void) { return call; }
static const void* LastAddress(void) { return address; }

static const char* Shown(const char* text) { return text ? text : "null"; }

static const char* ShownCredentials(const struct Credentials* credentials) {
    static char shown[256];
    address = credentials;
    if (!credentials) return "null";
    snprintf(shown, sizeof shown, "{%s, %s}", Shown(credentials->userName), Shown(credentials->password));
    return shown;
}

static const char* ShownTexts(const char* const* texts) {
    static char shown[512];
    size_t length = 1;
    address = texts;
    strcpy(shown, "[");
    for (; *texts; ++texts) {
        length += (size_t)snprintf(shown + length, sizeof shown - length, "%s%s", length > 1 ? ", " : "", *texts);
    }
    strcat(shown, "]");
    return shown;
}

static uint32_t Join(const char* domain, const char* unit, const struct Credentials* credentials) {
    snprintf(call, sizeof call, "joinDomain(%s, %s, %s)", Shown(domain), Shown(unit), ShownCredentials(credentials));
    return 0;
}
static uint32_t Part(const struct Credentials* credentials) {
    snprintf(call, sizeof call, "partDomain(%s)", ShownCredentials(credentials));
    return 0;
}
static uint32_t SetControllers(const char* const* controllers) {
    snprintf(call, sizeof call, "setPreferredDomainControllers(%s)", ShownTexts(controllers));
    return 0;
}
static uint32_t GetController(const char* first, const char* domain, char** controller, NimauthRelease* release) {
    (void)release;
    snprintf(call, sizeof call, "getAnyDomainController(%s, %s, %s)", Shown(first), Shown(domain), Shown(*controller));
    return 0;
}
static uint32_t GetDN(char** name, NimauthRelease* release) {
    (void)release;
    snprintf(call, sizeof call, "getMachineAccountDN(%s)", Shown(*name));
    return 0;
}
static uint32_t Convert(const char* name, char** canonicalName, NimauthRelease* release) {
    (void)release;
    snprintf(call, sizeof call, "convertCanonicalUsername(%s, %s)", Shown(name), Shown(*canonicalName));
    return 0;
}
static uint32_t JoinWithAccount(const struct NimauthDirectoryDomainRecord* domain,
                                const struct NimauthMachineAccountRecord* account) {
    snprintf(call, sizeof call, "joinDomainWithMachineAccount({%s, %s, %s, %s}, {%s, %s, %s, %s, %s})",
             Shown(domain->reserved), Shown(domain->netbiosName), Shown(domain->dnsName), Shown(domain->sid),
             Shown(account->hostName), Shown(account->dnsDomainName), Shown(account->reserved),
             Shown(account->principalField2), Shown(account->principalField3));
    return 0;
}
static uint32_t GetHostPrincipal(const char* domain, char** principal, NimauthRelease* release) {
    (void)release;
    snprintf(call, sizeof call, "getHostPrincipalForDomain(%s, %s)", Shown(domain), Shown(*principal));
    return 0;
}
static int32_t GetRelationship(const char* domain) {
    snprintf(call, sizeof call, "getDomainTrustRelationship(%s)", Shown(domain));
    return 0;
}
static uint32_t SetServices(const char* const* services) {
    snprintf(call, sizeof call, "setSmartCardEnabledServices(%s)", ShownTexts(services));
    return 0;
}
static void Unused(void) { strcpy(call, "unused()"); }

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    .tableVersion = 2,
    .joinDomain = Join,
    .partDomain = Part,
    .setPreferredDomainControllers = SetControllers,
    .unused = Unused,
    .getMachineAccountDN = GetDN,
    .getAnyDomainController = GetController,
    .convertCanonicalUsername = Convert,
    .joinDomainWithMachineAccount = JoinWithAccount,
    .getHostPrincipalForDomain = GetHostPrincipal,
    .getDomainTrustRelationship = GetRelationship,
    .setSmartCardEnabledServices = SetServices};

NIMAUTH_EXPORT const struct RecordingControl control = {LastCall, LastAddress};
