/* Its account function needs a function that exists nowhere; the loader is not to look for that before it is called. */

#include "authentication/proxy_abi.h"

uint32_t FunctionThatExistsNowhere(void);

static char name[] = "lazy.test";

static uint32_t GetDomainInfo(const char* server, bool verifyCertificate, const char* thumbprint,
                              const char* certificate, char** netbiosDomainName, char** dnsDomainName,
                              char** domainSid) {
    (void)server, (void)verifyCertificate, (void)thumbprint, (void)certificate;
    *netbiosDomainName = *dnsDomainName = *domainSid = name;
    return 0;
}

static uint32_t CreateMachineAccount(const char* server, const char* accountName, const char* organizationalUnit,
                                     bool verifyCertificate, const char* thumbprint, const char* certificate,
                                     char** principalField2, char** principalField3) {
    (void)server, (void)accountName, (void)organizationalUnit, (void)verifyCertificate, (void)thumbprint;
    (void)certificate, (void)principalField2, (void)principalField3;
    return FunctionThatExistsNowhere();
}

static void Release(char* text) { (void)text; }

const struct NimauthProxyOperations APXProxyClientOperations = {
    .getDomainInfo = GetDomainInfo, .createMachineAccount = CreateMachineAccount, .release = Release};
