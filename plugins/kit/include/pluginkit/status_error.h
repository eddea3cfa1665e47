// The one exception of the directory providers, and the status codes it carries.
//
// Every refusal has the Windows system error number (winerror.h numbering) that a Windows host gets in the same
// situation, so that an agent meets the same code, and the same exception class of the library, whatever the provider.

#ifndef NIMBREL_PLUGINKIT_STATUS_ERROR_H_
#define NIMBREL_PLUGINKIT_STATUS_ERROR_H_

#include <cstdint>
#include <stdexcept>
#include <string>

namespace nimbrel::kit {

// A namespace of its own, for rooms that take all of them over.
namespace status {

inline constexpr std::uint32_t kStatusSuccess = 0;
inline constexpr std::uint32_t kStatusFileNotFound = 2;            // no such organizational unit; not a member
inline constexpr std::uint32_t kStatusAccessDenied = 5;            // the user has no right; a file may not be used
inline constexpr std::uint32_t kStatusNotEnoughMemory = 8;         //
inline constexpr std::uint32_t kStatusInvalidParameter = 87;       // null, or out of range
inline constexpr std::uint32_t kStatusDiskFull = 112;              //
inline constexpr std::uint32_t kStatusNotEmpty = 145;              // the unit still holds accounts or units
inline constexpr std::uint32_t kStatusBusy = 170;                  // another process makes the same change for too long
inline constexpr std::uint32_t kStatusAlreadyExists = 183;         // unit, trust or controller
inline constexpr std::uint32_t kStatusInvalidUnitName = 267;       // malformed organizational unit
inline constexpr std::uint32_t kStatusNotFound = 1168;             // no such trust or controller
inline constexpr std::uint32_t kStatusInvalidComputerName = 1210;  //
inline constexpr std::uint32_t kStatusInvalidDomainName = 1212;    //
inline constexpr std::uint32_t kStatusInvalidAccountName = 1315;   // malformed user name
inline constexpr std::uint32_t kStatusAccountExists = 1316;        // an account is in the way
inline constexpr std::uint32_t kStatusNoSuchAccount = 1317;        // user or computer
inline constexpr std::uint32_t kStatusPasswordRestriction = 1325;  // the domain's policy refuses the machine's secret
inline constexpr std::uint32_t kStatusLogonFailure = 1326;         // unknown user or wrong password
inline constexpr std::uint32_t kStatusAccountRestriction = 1327;   // the user has no key that this host may use
inline constexpr std::uint32_t kStatusPasswordExpired = 1330;      //
inline constexpr std::uint32_t kStatusAccountDisabled = 1331;      //
inline constexpr std::uint32_t kStatusNoSuchDomain = 1355;         // unknown, or no controller can be reached in time
inline constexpr std::uint32_t kStatusDomainExists = 1356;         //
inline constexpr std::uint32_t kStatusInternalError = 1359;        // a local file is damaged, or an answer unexpected
inline constexpr std::uint32_t kStatusTimeSkew = 1398;             // this host's clock is off
inline constexpr std::uint32_t kStatusBadConfiguration = 1610;     // a settings file
inline constexpr std::uint32_t kStatusNoTrustAccount = 1787;       // the host's account has been deleted
inline constexpr std::uint32_t kStatusAccountExpired = 1793;       //
inline constexpr std::uint32_t kStatusDomainInconsistent = 1810;   // the SID or NetBIOS name is another domain's
inline constexpr std::uint32_t kStatusPasswordMustChange = 1907;   //
inline constexpr std::uint32_t kStatusAccountLocked = 1909;        //
inline constexpr std::uint32_t kStatusAlreadyJoined = 2691;        //
inline constexpr std::uint32_t kStatusNotJoined = 2692;            //
inline constexpr std::uint32_t kStatusQuotaExceeded = 8557;        // the user has created as many accounts as allowed

}  // namespace status

// A refusal or a fault. The text is for an administrator; it never holds a password or a key.
class StatusError : public std::runtime_error {
 public:
    StatusError(std::uint32_t status, const std::string& message) : std::runtime_error(message), _status(status) {}

    // One of the codes above; never 0.
    std::uint32_t Status() const noexcept { return _status; }

 private:
    std::uint32_t _status;
};

// For a failed call on a file, by its `errno`: 5 if it may not be used, 112 where there is no room, 170 for a lock that is
// held, 1359 for any other fault.
std::uint32_t StatusOfFileError(int error) noexcept;
// The text is "Unable to write '/etc/x': No space left on device".
[[noreturn]] void ThrowFileError(const std::string& action, const std::string& path, int error);

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_STATUS_ERROR_H_
