// Which exception stands for which provider status. Written out from the Windows error numbers and their texts, apart
// from the library's own table, so that a slip in either shows.

#ifndef NIMAUTH_TESTS_UNIT_STATUS_TABLE_H_
#define NIMAUTH_TESTS_UNIT_STATUS_TABLE_H_

#include <ostream>
#include <typeinfo>

#include "authentication/exceptions.h"

struct StatusRow {
    unsigned status;
    unsigned long code;
    const std::type_info* type;
    const char* message;
};

inline std::ostream& operator<<(std::ostream& stream, const StatusRow& row) {
    return stream << row.status << " " << row.type->name();
}

template <typename T>
StatusRow Row(unsigned status, const char* message, unsigned long code) {
    return {status, code, &typeid(T), message};
}
template <typename T>
StatusRow Row(unsigned status, const char* message) {
    return Row<T>(status, message, status);
}

namespace status_table {

using namespace nimbrel::authentication;

// clang-format off
inline const StatusRow kStatusTable[] = {
    Row<FileNotFoundException>(0, "Exception 0x00000002: The system cannot find the file specified.", 2),
    Row<FileNotFoundException>(2, "Exception 0x00000002: The system cannot find the file specified."),
    Row<AccessDeniedException>(5, "Exception 0x00000005: Access is denied."),
    Row<NotEnoughMemoryException>(8, "Exception 0x00000008: Not enough memory"),
    Row<InvalidPasswordException>(86, "Exception 0x00000056: The specified network password is not correct."),
    Row<InvalidParameterException>(87, "Exception 0x00000057: The parameter is incorrect."),
    Row<CallNotImplementedException>(120, "Exception 0x00000078: This function is not supported on this system."),
    Row<DirectoryException>(267, "Exception 0x0000010b: The directory name is invalid."),
    Row<BadDLLEntryPointException>(609, "Exception 0x00000261: Bad DLL entry point."),
    Row<InvalidMessageException>(1002, "Exception 0x000003ea: The window cannot act on the sent message."),
    Row<ServiceDoesNotExistException>(1060, "Exception 0x00000424: The specified service does not exist as an installed service."),
    Row<ServiceCannotAcceptControlException>(1061, "Exception 0x00000425: The service cannot accept control messages at this time."),
    Row<ServiceNotActiveException>(1062, "Exception 0x00000426: The service has not been started."),
    Row<ExceptionInServiceException>(1064, "Exception 0x00000428: An exception occurred in the service when handling the control request."),
    Row<ProcessAbortedException>(1067, "Exception 0x0000042b: The process terminated unexpectedly."),
    Row<ConnectionUnavailableException>(1201, "Exception 0x000004b1: The device is not currently connected but it is a remembered connection."),
    Row<InvalidGroupNameException>(1209, "Exception 0x000004b9: The format of the specified group name is invalid."),
    Row<InvalidComputerNameException>(1210, "Exception 0x000004ba: The format of the specified computer name is invalid."),
    Row<InvalidDomainNameException>(1212, "Exception 0x000004bc: The format of the specified domain name is invalid."),
    Row<InvalidServiceNameException>(1213, "Exception 0x000004bd: The format of the specified service name is invalid."),
    Row<InvalidNetNameException>(1214, "Exception 0x000004be: The format of the specified network name is invalid."),
    Row<InvalidShareNameException>(1215, "Exception 0x000004bf: The format of the specified share name is invalid."),
    Row<InvalidPasswordNameException>(1216, "Exception 0x000004c0: The format of the specified password is invalid."),
    Row<NoNetworkException>(1222, "Exception 0x000004c6: The network is not present or not started."),
    Row<ConnectionRefusedException>(1225, "Exception 0x000004c9: The remote computer refused the network connection."),
    Row<ConnectionInvalidException>(1229, "Exception 0x000004cd: An operation was attempted on a nonexistent network connection."),
    Row<NoLogonServersException>(1311, "Exception 0x0000051f: There are currently no logon servers available to service the logon request."),
    Row<InvalidAccountNameException>(1315, "Exception 0x00000523: The name provided is not a properly formed account name."),
    Row<NoSuchUserException>(1317, "Exception 0x00000525: The specified account does not exist."),
    Row<IllFormedPasswordException>(1324, "Exception 0x0000052c: The value provided for the new password contains values that are not allowed in passwords."),
    Row<PasswordRestrictionException>(1325, "Exception 0x0000052d: The value provided for the new password does not meet the length, complexity, or history requirements of the domain."),
    Row<LogonFailureException>(1326, "Exception 0x0000052e: The attempted logon is invalid. This is due to either a bad user name or authentication information."),
    Row<PasswordExpiredException>(1330, "Exception 0x00000532: Logon failure: the specified account password has expired."),
    Row<AccountDisabledException>(1331, "Exception 0x00000533: Logon failure: account currently disabled."),
    Row<NoSuchDomainException>(1355, "Exception 0x0000054b: The specified domain either does not exist or could not be contacted."),
    Row<InternalErrorException>(1359, "Exception 0x0000054f: An internal error occurred."),
    Row<TimeSkewException>(1398, "Exception 0x00000576: There is a time and/or date difference between the client and server."),
    Row<NoSuchGroupException>(1575, "Exception 0x00000627: The specified group does not exist."),
    Row<RPCSProtocolSequenceNotSupportedException>(1703, "Exception 0x000006a7: The RPC protocol sequence is not supported."),
    Row<NoTrustLSASecretException>(1786, "Exception 0x000006fa: The workstation does not have a trust secret."),
    Row<NoTrustSAMAccountException>(1787, "Exception 0x000006fb: The domain controller does not have an account for this workstation."),
    Row<RPCSCallInProgressException>(1791, "Exception 0x000006ff: A remote procedure call is already in progress for this thread."),
    Row<DomainTrustInconsistentException>(1810, "Exception 0x00000712: The name or security ID (SID) of the domain specified is inconsistent with the trust information for that domain."),
    Row<WkstaNotStartedException>(2138, "Exception 0x0000085a: The Workstation service has not been started."),
    Row<SetupAlreadyJoinedException>(2691, "Exception 0x00000a83: This machine is already joined to a domain."),
    Row<InvalidWorkgroupNameException>(2695, "Exception 0x00000a87: The specified workgroup name is invalid."),
    Row<WSATimedOutException>(10060, "Exception 0x0000274c: A connection attempt failed because the connected party did not properly respond after a period of time, or established connection failed because connected host has failed to respond."),
};
// clang-format on

}  // namespace status_table

using status_table::kStatusTable;

#endif  // NIMAUTH_TESTS_UNIT_STATUS_TABLE_H_
