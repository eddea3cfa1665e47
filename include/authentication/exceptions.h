// The exceptions of the library.
//
// Every failure that the library reports is an `Exception` of a class named for its cause. There are two kinds:
//
//   - Coded: a provider answered with a Windows system error number. `ThrowMappedException` turns the number into its
//     class; `GetCode` returns it and `what` reads "Exception 0x00000005: Access is denied.".
//   - Plain: the library's own finding. `GetCode` is 0 and `what` is the text alone, for example "The specified store
//     'LDAP' is unknown".
//
// Catch the class you can act on, or `Exception` for all of them:
//
//     try {
//         store.JoinDomain("corp.test", credentials, false);
//     } catch (const LogonFailureException&) {
//         // ask for the password again
//     } catch (const Exception& error) {
//         syslog(LOG_ERR, "%s", error.what());
//     }
//
// Failures of the host's platform libraries are not translated: they leave as `HostMgmt::Lib::HostMgmtException`, those
// of the configuration store as its subclass `OrbConfigStore::ConfigStoreException`. But a verify option that cannot be
// read becomes `InvalidVerifyAPXCertificateOptionException`, and a proxy certificate that cannot be read from the
// configuration store `InvalidThumbprintStoreException`.
//
// Threads: exceptions are plain values without shared state. `Clone` and `Throw` carry one from the thread on which it
// arose to the thread that must hear of it, with its own class.

#ifndef NIMBREL_AUTHENTICATION_EXCEPTIONS_H_
#define NIMBREL_AUTHENTICATION_EXCEPTIONS_H_

#include <exception>
#include <string>

#include "authentication/export.h"

namespace nimbrel::authentication {

// The root of the family. Each class below derives directly from it and adds no state, so slicing loses only the class.
class NIMAUTH_EXPORT Exception : public std::exception {
 public:
    // Coded form: the message is "Exception 0x" + `code` in at least eight lowercase hexadecimal digits + ": " + `text`.
    Exception(unsigned long code, const std::string& text);

    // Plain form: code 0, and the message is `text`.
    explicit Exception(const std::string& text);

    Exception(const Exception& other);
    Exception& operator=(const Exception& other) = default;
    ~Exception() override;

    // The whole message; valid as long as this object.
    const char* what() const noexcept override;

    // A copy of the same class on the heap. The caller owns it.
    virtual Exception* Clone() const;

    // Throws a copy of this object with its own class, so that a `catch` by that class works.
    [[noreturn]] virtual void Throw() const;

    // The status that the provider returned, or 0 for the library's own failures.
    unsigned long GetCode() const { return _code; }

 private:
    unsigned long _code;
    std::string _message;
};

// Throws the class that stands for a provider's `status`. Statuses 0 and 2 both give `FileNotFoundException` with code
// 2; a status without a class of its own gives `UnknownException` with that status as its code. Never returns, so call
// it only with a status that is known to be a failure. Safe from any thread.
[[noreturn]] NIMAUTH_EXPORT void ThrowMappedException(unsigned int status);

// What every class of the family declares besides its constructor.
#define NIMAUTH_EXCEPTION_MEMBERS(Class) \
    ~Class() override;                   \
    Exception* Clone() const override;   \
    [[noreturn]] void Throw() const override;

// A class that stands for one status and always carries that status' code and text.
#define NIMAUTH_CODED_EXCEPTION(Class)                    \
    class NIMAUTH_EXPORT Class final : public Exception { \
     public:                                              \
        Class();                                          \
        NIMAUTH_EXCEPTION_MEMBERS(Class)                  \
    };

// clang-format off
NIMAUTH_CODED_EXCEPTION(FileNotFoundException)                       //     2 The system cannot find the file specified.
NIMAUTH_CODED_EXCEPTION(AccessDeniedException)                       //     5 Access is denied.
NIMAUTH_CODED_EXCEPTION(NotEnoughMemoryException)                    //     8 Not enough memory
NIMAUTH_CODED_EXCEPTION(InvalidPasswordException)                    //    86 The specified network password is not correct.
NIMAUTH_CODED_EXCEPTION(InvalidParameterException)                   //    87 The parameter is incorrect.
NIMAUTH_CODED_EXCEPTION(CallNotImplementedException)                 //   120 This function is not supported on this system.
NIMAUTH_CODED_EXCEPTION(DirectoryException)                          //   267 The directory name is invalid.
NIMAUTH_CODED_EXCEPTION(BadDLLEntryPointException)                   //   609 Bad DLL entry point.
NIMAUTH_CODED_EXCEPTION(InvalidMessageException)                     //  1002 The window cannot act on the sent message.
NIMAUTH_CODED_EXCEPTION(ServiceDoesNotExistException)                //  1060 The specified service does not exist ...
NIMAUTH_CODED_EXCEPTION(ServiceCannotAcceptControlException)         //  1061 The service cannot accept control messages ...
NIMAUTH_CODED_EXCEPTION(ServiceNotActiveException)                   //  1062 The service has not been started.
NIMAUTH_CODED_EXCEPTION(ExceptionInServiceException)                 //  1064 An exception occurred in the service ...
NIMAUTH_CODED_EXCEPTION(ProcessAbortedException)                     //  1067 The process terminated unexpectedly.
NIMAUTH_CODED_EXCEPTION(ConnectionUnavailableException)              //  1201 The device is not currently connected ...
NIMAUTH_CODED_EXCEPTION(InvalidGroupNameException)                   //  1209 The format of the specified group name is invalid.
NIMAUTH_CODED_EXCEPTION(InvalidComputerNameException)                //  1210 ... computer name is invalid.
NIMAUTH_CODED_EXCEPTION(InvalidDomainNameException)                  //  1212 ... domain name is invalid.
NIMAUTH_CODED_EXCEPTION(InvalidServiceNameException)                 //  1213 ... service name is invalid.
NIMAUTH_CODED_EXCEPTION(InvalidNetNameException)                     //  1214 ... network name is invalid.
NIMAUTH_CODED_EXCEPTION(InvalidShareNameException)                   //  1215 ... share name is invalid.
NIMAUTH_CODED_EXCEPTION(InvalidPasswordNameException)                //  1216 The format of the specified password is invalid.
NIMAUTH_CODED_EXCEPTION(NoNetworkException)                          //  1222 The network is not present or not started.
NIMAUTH_CODED_EXCEPTION(ConnectionRefusedException)                  //  1225 The remote computer refused the network connection.
NIMAUTH_CODED_EXCEPTION(ConnectionInvalidException)                  //  1229 An operation was attempted on a nonexistent ...
NIMAUTH_CODED_EXCEPTION(NoLogonServersException)                     //  1311 There are currently no logon servers available ...
NIMAUTH_CODED_EXCEPTION(InvalidAccountNameException)                 //  1315 The name provided is not a properly formed ...
NIMAUTH_CODED_EXCEPTION(NoSuchUserException)                         //  1317 The specified account does not exist.
NIMAUTH_CODED_EXCEPTION(IllFormedPasswordException)                  //  1324 ... values that are not allowed in passwords.
NIMAUTH_CODED_EXCEPTION(PasswordRestrictionException)                //  1325 ... length, complexity, or history requirements ...
NIMAUTH_CODED_EXCEPTION(LogonFailureException)                       //  1326 The attempted logon is invalid. ...
NIMAUTH_CODED_EXCEPTION(PasswordExpiredException)                    //  1330 ... the specified account password has expired.
NIMAUTH_CODED_EXCEPTION(AccountDisabledException)                    //  1331 Logon failure: account currently disabled.
NIMAUTH_CODED_EXCEPTION(NoSuchDomainException)                       //  1355 The specified domain either does not exist or ...
NIMAUTH_CODED_EXCEPTION(InternalErrorException)                      //  1359 An internal error occurred.
NIMAUTH_CODED_EXCEPTION(TimeSkewException)                           //  1398 There is a time and/or date difference ...
NIMAUTH_CODED_EXCEPTION(NoSuchGroupException)                        //  1575 The specified group does not exist.
NIMAUTH_CODED_EXCEPTION(RPCSProtocolSequenceNotSupportedException)   //  1703 The RPC protocol sequence is not supported.
NIMAUTH_CODED_EXCEPTION(NoTrustLSASecretException)                   //  1786 The workstation does not have a trust secret.
NIMAUTH_CODED_EXCEPTION(NoTrustSAMAccountException)                  //  1787 ... does not have an account for this workstation.
NIMAUTH_CODED_EXCEPTION(RPCSCallInProgressException)                 //  1791 A remote procedure call is already in progress ...
NIMAUTH_CODED_EXCEPTION(DomainTrustInconsistentException)            //  1810 The name or security ID (SID) of the domain ...
NIMAUTH_CODED_EXCEPTION(WkstaNotStartedException)                    //  2138 The Workstation service has not been started.
NIMAUTH_CODED_EXCEPTION(SetupAlreadyJoinedException)                 //  2691 This machine is already joined to a domain.
NIMAUTH_CODED_EXCEPTION(InvalidWorkgroupNameException)               //  2695 The specified workgroup name is invalid.
NIMAUTH_CODED_EXCEPTION(WSATimedOutException)                        // 10060 A connection attempt failed because ...
// clang-format on

// A status that has no class of its own; the text is "Unknown exception".
class NIMAUTH_EXPORT UnknownException final : public Exception {
 public:
    explicit UnknownException(unsigned long code);
    NIMAUTH_EXCEPTION_MEMBERS(UnknownException)
};

// "The specified Active Directory provider '<name>' is invalid", with ": <detail>" when there is one. The names
// "(none installed)" and "(unset)" stand for a missing provider.conf and an empty "provider" in it.
class NIMAUTH_EXPORT InvalidActiveDirectoryProviderException final : public Exception {
 public:
    explicit InvalidActiveDirectoryProviderException(const std::string& name);
    InvalidActiveDirectoryProviderException(const std::string& name, const std::string& detail);
    NIMAUTH_EXCEPTION_MEMBERS(InvalidActiveDirectoryProviderException)
};

// "The specified APXProxy provider '<name>' is invalid", with ": <detail>" when there is one.
class NIMAUTH_EXPORT InvalidAPXProxyProviderException final : public Exception {
 public:
    explicit InvalidAPXProxyProviderException(const std::string& name);
    InvalidAPXProxyProviderException(const std::string& name, const std::string& detail);
    NIMAUTH_EXCEPTION_MEMBERS(InvalidAPXProxyProviderException)
};

// A plain class whose message is built around one text.
#define NIMAUTH_PLAIN_EXCEPTION(Class, argument)          \
    class NIMAUTH_EXPORT Class final : public Exception { \
     public:                                              \
        explicit Class(const std::string& argument);      \
        NIMAUTH_EXCEPTION_MEMBERS(Class)                  \
    };

// "The specified thumbprint store '<name>' is invalid"
NIMAUTH_PLAIN_EXCEPTION(InvalidThumbprintStoreException, name)
// "The specified key '<key>' was not found in this configuration"
NIMAUTH_PLAIN_EXCEPTION(InvalidKeyException, key)
// "The specified store '<name>' is unknown"
NIMAUTH_PLAIN_EXCEPTION(UnknownRemoteAuthenticationStoreException, name)
// "The specified store '<name>' is invalid"
NIMAUTH_PLAIN_EXCEPTION(InvalidRemoteAuthenticationStoreException, name)
// "The current hostname is invalid: <detail>"
NIMAUTH_PLAIN_EXCEPTION(InvalidHostNameException, detail)
// "The credentials that were provided were invalid: <detail>"
NIMAUTH_PLAIN_EXCEPTION(InvalidCredentialsException, detail)
// "The IP Address is invalid: <detail>"
NIMAUTH_PLAIN_EXCEPTION(InvalidIPAddressException, detail)
// "The VerifyAPXCertificate option is invalid: <detail>"
NIMAUTH_PLAIN_EXCEPTION(InvalidVerifyAPXCertificateOptionException, detail)
// "Thread Error: <detail>": a background request could not be started, awaited or finished.
NIMAUTH_PLAIN_EXCEPTION(ThreadErrorException, detail)
// A caller's wait for a provider call ran out; the call goes on. The message is given whole by the thrower.
NIMAUTH_PLAIN_EXCEPTION(ProviderCallTimedOutException, message)
// A file or a stored object has the wrong form. The message is given whole by the thrower.
NIMAUTH_PLAIN_EXCEPTION(ConfigurationError, message)
// A file or plug-in could not be opened, read, written or renamed. The message is given whole by the thrower.
NIMAUTH_PLAIN_EXCEPTION(IOError, message)
// New contents are in place, but the file's permissions may be wrong. The message is given whole by the thrower.
NIMAUTH_PLAIN_EXCEPTION(FilePermissionError, message)

// A plain class with a fixed message.
#define NIMAUTH_FIXED_EXCEPTION(Class) NIMAUTH_CODED_EXCEPTION(Class)

// "The certificate format is invalid; only PEM format is supported."
NIMAUTH_FIXED_EXCEPTION(InvalidCertificateException)
// "The APX server's certificate cannot be verified."
NIMAUTH_FIXED_EXCEPTION(InvalidAPXCertificateException)

#undef NIMAUTH_FIXED_EXCEPTION
#undef NIMAUTH_PLAIN_EXCEPTION
#undef NIMAUTH_CODED_EXCEPTION
#undef NIMAUTH_EXCEPTION_MEMBERS

}  // namespace nimbrel::authentication

#endif  // NIMBREL_AUTHENTICATION_EXCEPTIONS_H_
