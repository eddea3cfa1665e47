#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

constexpr std::size_t kMinimumDigits = 8;

// "Exception 0x" + at least eight lowercase hexadecimal digits + ": " + text, in one allocation.
std::string CodedMessage(unsigned long code, const std::string& text) {
    char digits[16];
    char* first = digits + sizeof digits;
    for (unsigned long rest = code; rest != 0; rest >>= 4U) *--first = "0123456789abcdef"[rest & 0xFU];
    const auto count = static_cast<std::size_t>(digits + sizeof digits - first);
    const std::size_t zeros = count < kMinimumDigits ? kMinimumDigits - count : 0;

    std::string message;
    message.reserve(sizeof "Exception 0x: " + zeros + count + text.size());
    message.append("Exception 0x").append(zeros, '0').append(first, count).append(": ").append(text);
    return message;
}

}  // namespace

Exception::Exception(unsigned long code, const std::string& text) : _code(code), _message(CodedMessage(code, text)) {}
Exception::Exception(const std::string& text) : _code(0), _message(text) {}
Exception::Exception(const Exception& other) = default;
Exception::~Exception() = default;

const char* Exception::what() const noexcept { return _message.c_str(); }
Exception* Exception::Clone() const { return new Exception(*this); }
void Exception::Throw() const { throw Exception(*this); }

#define NIMAUTH_EXCEPTION_MEMBERS(Class)                         \
    Class::~Class() = default;                                   \
    Exception* Class::Clone() const { return new Class(*this); } \
    void Class::Throw() const { throw Class(*this); }

#define NIMAUTH_CODED_EXCEPTION(Class, code, text) \
    Class::Class() : Exception(code, text) {}      \
    NIMAUTH_EXCEPTION_MEMBERS(Class)

#define NIMAUTH_PLAIN_EXCEPTION(Class, argument, message)             \
    Class::Class(const std::string& argument) : Exception(message) {} \
    NIMAUTH_EXCEPTION_MEMBERS(Class)

#define NIMAUTH_FIXED_EXCEPTION(Class, message) \
    Class::Class() : Exception(message) {}      \
    NIMAUTH_EXCEPTION_MEMBERS(Class)

// clang-format off
NIMAUTH_CODED_EXCEPTION(FileNotFoundException, 2, "The system cannot find the file specified.")
NIMAUTH_CODED_EXCEPTION(AccessDeniedException, 5, "Access is denied.")
NIMAUTH_CODED_EXCEPTION(NotEnoughMemoryException, 8, "Not enough memory")
NIMAUTH_CODED_EXCEPTION(InvalidPasswordException, 86, "The specified network password is not correct.")
NIMAUTH_CODED_EXCEPTION(InvalidParameterException, 87, "The parameter is incorrect.")
NIMAUTH_CODED_EXCEPTION(CallNotImplementedException, 120, "This function is not supported on this system.")
NIMAUTH_CODED_EXCEPTION(DirectoryException, 267, "The directory name is invalid.")
NIMAUTH_CODED_EXCEPTION(BadDLLEntryPointException, 609, "Bad DLL entry point.")
NIMAUTH_CODED_EXCEPTION(InvalidMessageException, 1002, "The window cannot act on the sent message.")
NIMAUTH_CODED_EXCEPTION(ServiceDoesNotExistException, 1060, "The specified service does not exist as an installed service.")
NIMAUTH_CODED_EXCEPTION(ServiceCannotAcceptControlException, 1061, "The service cannot accept control messages at this time.")
NIMAUTH_CODED_EXCEPTION(ServiceNotActiveException, 1062, "The service has not been started.")
NIMAUTH_CODED_EXCEPTION(ExceptionInServiceException, 1064, "An exception occurred in the service when handling the control request.")
NIMAUTH_CODED_EXCEPTION(ProcessAbortedException, 1067, "The process terminated unexpectedly.")
NIMAUTH_CODED_EXCEPTION(ConnectionUnavailableException, 1201, "The device is not currently connected but it is a remembered connection.")
NIMAUTH_CODED_EXCEPTION(InvalidGroupNameException, 1209, "The format of the specified group name is invalid.")
NIMAUTH_CODED_EXCEPTION(InvalidComputerNameException, 1210, "The format of the specified computer name is invalid.")
NIMAUTH_CODED_EXCEPTION(InvalidDomainNameException, 1212, "The format of the specified domain name is invalid.")
NIMAUTH_CODED_EXCEPTION(InvalidServiceNameException, 1213, "The format of the specified service name is invalid.")
NIMAUTH_CODED_EXCEPTION(InvalidNetNameException, 1214, "The format of the specified network name is invalid.")
NIMAUTH_CODED_EXCEPTION(InvalidShareNameException, 1215, "The format of the specified share name is invalid.")
NIMAUTH_CODED_EXCEPTION(InvalidPasswordNameException, 1216, "The format of the specified password is invalid.")
NIMAUTH_CODED_EXCEPTION(NoNetworkException, 1222, "The network is not present or not started.")
NIMAUTH_CODED_EXCEPTION(ConnectionRefusedException, 1225, "The remote computer refused the network connection.")
NIMAUTH_CODED_EXCEPTION(ConnectionInvalidException, 1229, "An operation was attempted on a nonexistent network connection.")
NIMAUTH_CODED_EXCEPTION(NoLogonServersException, 1311, "There are currently no logon servers available to service the logon request.")
NIMAUTH_CODED_EXCEPTION(InvalidAccountNameException, 1315, "The name provided is not a properly formed account name.")
NIMAUTH_CODED_EXCEPTION(NoSuchUserException, 1317, "The specified account does not exist.")
NIMAUTH_CODED_EXCEPTION(IllFormedPasswordException, 1324, "The value provided for the new password contains values that are not allowed in passwords.")
NIMAUTH_CODED_EXCEPTION(PasswordRestrictionException, 1325, "The value provided for the new password does not meet the length, complexity, or history requirements of the domain.")
NIMAUTH_CODED_EXCEPTION(LogonFailureException, 1326, "The attempted logon is invalid. This is due to either a bad user name or authentication information.")
NIMAUTH_CODED_EXCEPTION(PasswordExpiredException, 1330, "Logon failure: the specified account password has expired.")
NIMAUTH_CODED_EXCEPTION(AccountDisabledException, 1331, "Logon failure: account currently disabled.")
NIMAUTH_CODED_EXCEPTION(NoSuchDomainException, 1355, "The specified domain either does not exist or could not be contacted.")
NIMAUTH_CODED_EXCEPTION(InternalErrorException, 1359, "An internal error occurred.")
NIMAUTH_CODED_EXCEPTION(TimeSkewException, 1398, "There is a time and/or date difference between the client and server.")
NIMAUTH_CODED_EXCEPTION(NoSuchGroupException, 1575, "The specified group does not exist.")
NIMAUTH_CODED_EXCEPTION(RPCSProtocolSequenceNotSupportedException, 1703, "The RPC protocol sequence is not supported.")
NIMAUTH_CODED_EXCEPTION(NoTrustLSASecretException, 1786, "The workstation does not have a trust secret.")
NIMAUTH_CODED_EXCEPTION(NoTrustSAMAccountException, 1787, "The domain controller does not have an account for this workstation.")
NIMAUTH_CODED_EXCEPTION(RPCSCallInProgressException, 1791, "A remote procedure call is already in progress for this thread.")
NIMAUTH_CODED_EXCEPTION(DomainTrustInconsistentException, 1810, "The name or security ID (SID) of the domain specified is inconsistent with the trust information for that domain.")
NIMAUTH_CODED_EXCEPTION(WkstaNotStartedException, 2138, "The Workstation service has not been started.")
NIMAUTH_CODED_EXCEPTION(SetupAlreadyJoinedException, 2691, "This machine is already joined to a domain.")
NIMAUTH_CODED_EXCEPTION(InvalidWorkgroupNameException, 2695, "The specified workgroup name is invalid.")
NIMAUTH_CODED_EXCEPTION(WSATimedOutException, 10060, "A connection attempt failed because the connected party did not properly respond after a period of time, or established connection failed because connected host has failed to respond.")

NIMAUTH_PLAIN_EXCEPTION(InvalidThumbprintStoreException, name, "The specified thumbprint store '" + name + "' is invalid")
NIMAUTH_PLAIN_EXCEPTION(InvalidKeyException, key, "The specified key '" + key + "' was not found in this configuration")
NIMAUTH_PLAIN_EXCEPTION(UnknownRemoteAuthenticationStoreException, name, "The specified store '" + name + "' is unknown")
NIMAUTH_PLAIN_EXCEPTION(InvalidRemoteAuthenticationStoreException, name, "The specified store '" + name + "' is invalid")
NIMAUTH_PLAIN_EXCEPTION(InvalidHostNameException, detail, "The current hostname is invalid: " + detail)
NIMAUTH_PLAIN_EXCEPTION(InvalidCredentialsException, detail, "The credentials that were provided were invalid: " + detail)
NIMAUTH_PLAIN_EXCEPTION(InvalidIPAddressException, detail, "The IP Address is invalid: " + detail)
NIMAUTH_PLAIN_EXCEPTION(InvalidVerifyAPXCertificateOptionException, detail, "The VerifyAPXCertificate option is invalid: " + detail)
NIMAUTH_PLAIN_EXCEPTION(ThreadErrorException, detail, "Thread Error: " + detail)
NIMAUTH_PLAIN_EXCEPTION(ProviderCallTimedOutException, message, message)
NIMAUTH_PLAIN_EXCEPTION(ConfigurationError, message, message)
NIMAUTH_PLAIN_EXCEPTION(IOError, message, message)
NIMAUTH_PLAIN_EXCEPTION(FilePermissionError, message, message)

NIMAUTH_FIXED_EXCEPTION(InvalidCertificateException, "The certificate format is invalid; only PEM format is supported.")
NIMAUTH_FIXED_EXCEPTION(InvalidAPXCertificateException, "The APX server's certificate cannot be verified.")
// clang-format on

UnknownException::UnknownException(unsigned long code) : Exception(code, "Unknown exception") {}
NIMAUTH_EXCEPTION_MEMBERS(UnknownException)

InvalidActiveDirectoryProviderException::InvalidActiveDirectoryProviderException(const std::string& name)
    : Exception("The specified Active Directory provider '" + name + "' is invalid") {}
InvalidActiveDirectoryProviderException::InvalidActiveDirectoryProviderException(const std::string& name,
                                                                                 const std::string& detail)
    : Exception("The specified Active Directory provider '" + name + "' is invalid: " + detail) {}
NIMAUTH_EXCEPTION_MEMBERS(InvalidActiveDirectoryProviderException)

InvalidAPXProxyProviderException::InvalidAPXProxyProviderException(const std::string& name)
    : Exception("The specified APXProxy provider '" + name + "' is invalid") {}
InvalidAPXProxyProviderException::InvalidAPXProxyProviderException(const std::string& name, const std::string& detail)
    : Exception("The specified APXProxy provider '" + name + "' is invalid: " + detail) {}
NIMAUTH_EXCEPTION_MEMBERS(InvalidAPXProxyProviderException)

}  // namespace nimbrel::authentication
