// The one exception of the embedded directory, and the status codes it carries.
//
// Every refusal has the Windows system error number (winerror.h numbering) that a real domain answers with in the same
// situation, so that an agent meets the same code, and the same exception class of the library, as in production.

#ifndef NIMBREL_EMBEDDED_DIRECTORY_ERROR_H_
#define NIMBREL_EMBEDDED_DIRECTORY_ERROR_H_

#include <cstdint>
#include <stdexcept>
#include <string>

namespace nimbrel::embedded {

inline constexpr std::uint32_t kStatusSuccess = 0;
inline constexpr std::uint32_t kStatusFileNotFound = 2;            // no such organizational unit; not a member
inline constexpr std::uint32_t kStatusAccessDenied = 5;            // the user has no right; a file may not be used
inline constexpr std::uint32_t kStatusNotEnoughMemory = 8;         //
inline constexpr std::uint32_t kStatusInvalidParameter = 87;       // null, or out of range
inline constexpr std::uint32_t kStatusNotEmpty = 145;              // the unit still holds accounts or units
inline constexpr std::uint32_t kStatusAlreadyExists = 183;         // unit, trust or controller
inline constexpr std::uint32_t kStatusInvalidUnitName = 267;       // malformed organizational unit
inline constexpr std::uint32_t kStatusNotFound = 1168;             // no such trust or controller
inline constexpr std::uint32_t kStatusInvalidComputerName = 1210;  //
inline constexpr std::uint32_t kStatusInvalidDomainName = 1212;    //
inline constexpr std::uint32_t kStatusInvalidAccountName = 1315;   // malformed user name
inline constexpr std::uint32_t kStatusAccountExists = 1316;        // user or computer
inline constexpr std::uint32_t kStatusNoSuchAccount = 1317;        // user or computer
inline constexpr std::uint32_t kStatusLogonFailure = 1326;         // unknown user or wrong password
inline constexpr std::uint32_t kStatusPasswordExpired = 1330;      //
inline constexpr std::uint32_t kStatusAccountDisabled = 1331;      //
inline constexpr std::uint32_t kStatusNoSuchDomain = 1355;         // unknown, or no controller can be reached
inline constexpr std::uint32_t kStatusDomainExists = 1356;         //
inline constexpr std::uint32_t kStatusInternalError = 1359;        // a file is damaged, full or busy for too long
inline constexpr std::uint32_t kStatusNoTrustAccount = 1787;       // the host's account has been deleted
inline constexpr std::uint32_t kStatusAccountExpired = 1793;       //
inline constexpr std::uint32_t kStatusDomainInconsistent = 1810;   // the SID or NetBIOS name is another domain's
inline constexpr std::uint32_t kStatusPasswordMustChange = 1907;   //
inline constexpr std::uint32_t kStatusAccountLocked = 1909;        //
inline constexpr std::uint32_t kStatusAlreadyJoined = 2691;        //
inline constexpr std::uint32_t kStatusNotJoined = 2692;            //

// A refusal or a storage fault. The text is for an administrator; it never holds a password or a secret.
class DirectoryError : public std::runtime_error {
 public:
    DirectoryError(std::uint32_t status, const std::string& message) : std::runtime_error(message), _status(status) {}

    // One of the codes above; never 0.
    std::uint32_t Status() const noexcept { return _status; }

 private:
    std::uint32_t _status;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DIRECTORY_ERROR_H_
