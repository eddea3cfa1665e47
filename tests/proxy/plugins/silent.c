/* Reports success and hands out nothing. */

#include "misbehaving.h"

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    (void)netbiosDomainName, (void)dnsDomainName, (void)domainSid;
    return 0;
}

static uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    (void)principalField2, (void)principalField3;
    return 0;
}
