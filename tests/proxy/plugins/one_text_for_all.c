/* Hands out one and the same text for every result. */

#include "misbehaving.h"

static char text[] = "SAME";

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    *netbiosDomainName = *dnsDomainName = *domainSid = text;
    return 0;
}

static uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    *principalField2 = *principalField3 = text;
    return 0;
}
