/* The table lacks the function in field MISSING_FIELD; field 1 is not null. */

#include "authentication/proxy_abi.h"
#include "proxy/script.h"

static uint32_t GetDomainInfo(const char* server, bool verifyCertificate, const char* thumbprint,
                              const char* certificate, char** netbiosDomainName, char** dnsDomainName,
                              char** domainSid) {
    (void)server, (void)verifyCertificate, (void)thumbprint, (void)certificate;
    (void)netbiosDomainName, (void)dnsDomainName, (void)domainSid;
    ScriptWrite("an incomplete plug-in was called");
    return 1;
}

static uint32_t CreateMachineAccount(const char* server, const char* accountName, const char* organizationalUnit,
                                     bool verifyCertificate, const char* thumbprint, const char* certificate,
                                     char** principalField2, char** principalField3) {
    (void)server, (void)accountName, (void)organizationalUnit, (void)verifyCertificate, (void)thumbprint;
    (void)certificate, (void)principalField2, (void)principalField3;
    ScriptWrite("an incomplete plug-in was called");
    return 1;
}

static void Release(char* text) { ScriptWrite("an incomplete plug-in was called with %s", text); }

static __attribute__((constructor)) void Loaded(void) { ScriptWrite("proxy loaded"); }
static __attribute__((destructor)) void Closed(void) { ScriptWrite("proxy closed"); }

static char something;

const struct NimauthProxyOperations APXProxyClientOperations = {
    .reserved = &something,
    .getDomainInfo = MISSING_FIELD == 2 ? NULL : GetDomainInfo,
    .createMachineAccount = MISSING_FIELD == 3 ? NULL : CreateMachineAccount,
    .release = MISSING_FIELD == 4 ? NULL : Release};
