/* Answers as the test's script says, and writes down each call, each release, and when it is loaded and closed. */

#define _GNU_SOURCE
#include <stdlib.h>
#include <string.h>

#include "authentication/proxy_abi.h"
#include "proxy/script.h"

static const char* Shown(const char* text) { return text != NULL ? text : "null"; }

static char* Copy(const char* name) {
    const char* const text = ScriptText(name);
    return text != NULL ? strdup(text) : NULL;
}

static uint32_t GetDomainInfo(const char* server, bool verifyCertificate, const char* thumbprint,
                              const char* certificate, char** netbiosDomainName, char** dnsDomainName,
                              char** domainSid) {
    ScriptWrite("domain(%s, %d, %s, %s)", Shown(server), verifyCertificate, Shown(thumbprint), Shown(certificate));
    if (*netbiosDomainName != NULL || *dnsDomainName != NULL || *domainSid != NULL)
        ScriptWrite("results were not null");
    const uint32_t status = ScriptStatus("domain");
    if (status != 0) return status;
    *netbiosDomainName = Copy("netbios");
    *dnsDomainName = Copy("dns");
    *domainSid = Copy("sid");
    return 0;
}

static uint32_t CreateMachineAccount(const char* server, const char* accountName, const char* organizationalUnit,
                                     bool verifyCertificate, const char* thumbprint, const char* certificate,
                                     char** principalField2, char** principalField3) {
    ScriptWrite("account(%s, %s, %s, %d, %s, %s)", Shown(server), Shown(accountName), Shown(organizationalUnit),
                verifyCertificate, Shown(thumbprint), Shown(certificate));
    if (*principalField2 != NULL || *principalField3 != NULL) ScriptWrite("results were not null");
    const uint32_t status = ScriptStatus("account");
    if (status != 0) return status;
    *principalField2 = Copy("field2");
    *principalField3 = Copy("field3");
    return 0;
}

/* A text that is still used after its release reads wrong. */
static void Release(char* text) {
    ScriptWrite("release %s", Shown(text));
    memset(text, '!', strlen(text));
    free(text);
}

static __attribute__((constructor)) void Loaded(void) { ScriptWrite("proxy loaded"); }
static __attribute__((destructor)) void Closed(void) { ScriptWrite("proxy closed"); }

const struct NimauthProxyOperations APXProxyClientOperations = {
    .getDomainInfo = GetDomainInfo, .createMachineAccount = CreateMachineAccount, .release = Release};
