/* Calls its domain PLUGIN_NAME. */

#include "misbehaving.h"

static char name[] = PLUGIN_NAME;

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    *netbiosDomainName = *dnsDomainName = *domainSid = name;
    return 0;
}

static uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    *principalField2 = *principalField3 = name;
    return 0;
}
