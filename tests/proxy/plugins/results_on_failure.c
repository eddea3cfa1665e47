/* Fails with the script's status and hands out results all the same: addresses at which nothing lies. */

#include "misbehaving.h"

static char* Nowhere(uintptr_t address) { return (char*)address; }

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    *netbiosDomainName = Nowhere(8);
    *dnsDomainName = Nowhere(16);
    *domainSid = Nowhere(24);
    return ScriptStatus("domain");
}

static uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    *principalField2 = Nowhere(8);
    *principalField3 = Nowhere(16);
    return ScriptStatus("account");
}
