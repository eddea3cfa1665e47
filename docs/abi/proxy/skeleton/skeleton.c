/*
 * The skeleton of an authentication-proxy plug-in: complete, small, and without a network. Its service serves
 * corp.test, presents a certificate with one fixed thumbprint, and creates every account that it is asked for.
 *
 * To make a plug-in of your own of it, replace what is below "the service" by the conversation with yours.
 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "authentication/proxy_abi.h"

/* The statuses that the library knows by name. Any other number reaches its user as "Unknown exception" with it. */
enum { OK = 0, NO_MEMORY = 8, TIMED_OUT = 10060, REFUSED = 1225, CONNECTION_INVALID = 1229 };
#define CERTIFICATE_NOT_VERIFIED 0x80090325u

/* -------------------------------------------------------------------------------------------------- the service */

/* What the service presents itself with; a real plug-in computes it from the certificate that the connection showed. */
static const char kPresentedThumbprint[] = "0A:1B:2C:3D:4E:5F:60:71:82:93:A4:B5:C6:D7:E8:F9:0A:1B:2C:3D";

/* Opens the conversation: nothing is asked of a service, and nothing told, before it is known to be the right one. */
static uint32_t Connect(const char* server, bool verifyCertificate, const char* thumbprint) {
    if (*server == '\0') return CONNECTION_INVALID;
    if (!verifyCertificate) return OK;
    /* An empty thumbprint equals no certificate's: a host that must verify, and has nothing to go by, is refused. */
    return strcmp(thumbprint, kPresentedThumbprint) == 0 ? OK : CERTIFICATE_NOT_VERIFIED;
}

/* -------------------------------------------------------------------------------------------------- the table */

static uint32_t GetDomainInfo(const char* server, bool verifyCertificate, const char* thumbprint,
                              const char* certificate, char** netbiosDomainName, char** dnsDomainName,
                              char** domainSid) {
    (void)certificate; /* the pinned thumbprint is enough for this service */
    const uint32_t status = Connect(server, verifyCertificate, thumbprint);
    if (status != OK) return status;

    char* const netbiosName = strdup("CORP");
    char* const dnsName = strdup("corp.test");
    char* const sid = strdup("S-1-5-21-1004336348-1177238915-682003330");
    if (netbiosName == NULL || dnsName == NULL || sid == NULL) {
        free(netbiosName);
        free(dnsName);
        free(sid);
        return NO_MEMORY;
    }
    /* Handed out together, and only with status 0. */
    *netbiosDomainName = netbiosName;
    *dnsDomainName = dnsName;
    *domainSid = sid;
    return OK;
}

/* "<account>@<place>", allocated; null without memory. */
static char* Describe(const char* accountName, const char* place) {
    const size_t size = strlen(accountName) + 1 + strlen(place) + 1;
    char* const text = malloc(size);
    if (text != NULL) snprintf(text, size, "%s@%s", accountName, place);
    return text;
}

static uint32_t CreateMachineAccount(const char* server, const char* accountName, const char* organizationalUnit,
                                     bool verifyCertificate, const char* thumbprint, const char* certificate,
                                     char** principalField2, char** principalField3) {
    (void)certificate;
    const uint32_t status = Connect(server, verifyCertificate, thumbprint);
    if (status != OK) return status;

    /* Null: the caller leaves the place to the service. */
    char* const field2 = Describe(accountName, organizationalUnit != NULL ? organizationalUnit : "CN=Computers");
    char* const field3 = strdup("one-time secret of the new account");
    if (field2 == NULL || field3 == NULL) {
        free(field2);
        free(field3);
        return NO_MEMORY;
    }
    *principalField2 = field2;
    *principalField3 = field3;
    return OK;
}

/* Comes for each text above, once, after it was copied. The third field is a secret here, so texts are wiped. */
static void Release(char* text) {
    for (volatile char* rest = text; *rest != '\0'; ++rest) *rest = '\0';
    free(text);
}

const struct NimauthProxyOperations APXProxyClientOperations = {
    .getDomainInfo = GetDomainInfo, .createMachineAccount = CreateMachineAccount, .release = Release};
