/* What the misbehaving proxies share: the table, over two functions that each of them defines, and a release function
 * that writes down what it is given and frees nothing. C11 and C++17. */

#ifndef TESTS_PROXY_PLUGINS_MISBEHAVING_H_
#define TESTS_PROXY_PLUGINS_MISBEHAVING_H_

#include "authentication/proxy_abi.h"
#include "proxy/script.h"

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid);
static uint32_t AnswerAccount(char** principalField2, char** principalField3);

static uint32_t GetDomainInfo(const char* server, bool verifyCertificate, const char* thumbprint,
                              const char* certificate, char** netbiosDomainName, char** dnsDomainName,
                              char** domainSid) {
    (void)server, (void)verifyCertificate, (void)thumbprint, (void)certificate;
    return AnswerDomain(netbiosDomainName, dnsDomainName, domainSid);
}

static uint32_t CreateMachineAccount(const char* server, const char* accountName, const char* organizationalUnit,
                                     bool verifyCertificate, const char* thumbprint, const char* certificate,
                                     char** principalField2, char** principalField3) {
    (void)server, (void)accountName, (void)organizationalUnit, (void)verifyCertificate, (void)thumbprint;
    (void)certificate;
    return AnswerAccount(principalField2, principalField3);
}

static void Release(char* text) { ScriptWrite("release %p", (void*)text); }

static __attribute__((destructor)) void Closed(void) { ScriptWrite("proxy closed"); }

const struct NimauthProxyOperations APXProxyClientOperations = {0, GetDomainInfo, CreateMachineAccount, Release};

#endif /* TESTS_PROXY_PLUGINS_MISBEHAVING_H_ */
