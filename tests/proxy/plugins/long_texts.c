/* Hands out texts of a mebibyte each. */

#include <string.h>

#include "misbehaving.h"

enum { LENGTH = 1 << 20 };

static char texts[3][LENGTH + 1];

static char* Filled(int index) { return memset(texts[index], 'A' + index, LENGTH); }

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    *netbiosDomainName = Filled(0);
    *dnsDomainName = Filled(1);
    *domainSid = Filled(2);
    return 0;
}

static uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    *principalField2 = Filled(0);
    *principalField3 = Filled(1);
    return 0;
}
