/* A directory provider that joins with a machine account and leaves as the test's script says. With TABLE_VERSION 1 it
 * is one from before such joins. */

#include "authentication/provider_abi.h"
#include "proxy/script.h"

static uint32_t PartDomain(const struct Credentials* credentials) {
    ScriptWrite(credentials == NULL ? "part(null)" : "part(credentials)");
    return ScriptStatus("part");
}

static uint32_t Join(const struct NimauthDirectoryDomainRecord* domain,
                     const struct NimauthMachineAccountRecord* account) {
    ScriptWrite("join({%s, %s, %s, %s}, {%s, %s, %s, %s, %s})", domain->reserved, domain->netbiosName, domain->dnsName,
                domain->sid, account->hostName, account->dnsDomainName, account->reserved, account->principalField2,
                account->principalField3);
    return ScriptStatus("join");
}

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = NIMAUTH_PROVIDER_API_VERSION, .pamModule = "pam_scripted.so", .nssModule = "scripted"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {
    .tableVersion = TABLE_VERSION, .partDomain = PartDomain, .joinDomainWithMachineAccount = Join};
