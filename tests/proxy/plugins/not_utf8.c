/* Hands out every byte but NUL, in an order that no encoding of texts knows. */

#include "misbehaving.h"

static char bytes[256];

static char* Bytes(void) {
    for (int byte = 255; byte > 0; --byte) bytes[255 - byte] = (char)byte;
    return bytes;
}

static uint32_t AnswerDomain(char** netbiosDomainName, char** dnsDomainName, char** domainSid) {
    *netbiosDomainName = *dnsDomainName = *domainSid = Bytes();
    return 0;
}

static uint32_t AnswerAccount(char** principalField2, char** principalField3) {
    *principalField2 = *principalField3 = Bytes();
    return 0;
}
