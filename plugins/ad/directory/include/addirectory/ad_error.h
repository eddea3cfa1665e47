// The one exception of the Active Directory provider, and the status codes it carries.
//
// Every refusal has the Windows system error number (winerror.h numbering) that a Windows host gets in the same
// situation. The library turns it into the exception class of that number.

#ifndef NIMBREL_AD_AD_ERROR_H_
#define NIMBREL_AD_AD_ERROR_H_

#include <cstdint>
#include <stdexcept>
#include <string>

namespace nimbrel::ad {

inline constexpr std::uint32_t kStatusSuccess = 0;
inline constexpr std::uint32_t kStatusFileNotFound = 2;            // no such organizational unit; not a member
inline constexpr std::uint32_t kStatusAccessDenied = 5;            // the user has no right; a file may not be used
inline constexpr std::uint32_t kStatusNotEnoughMemory = 8;         //
inline constexpr std::uint32_t kStatusInvalidParameter = 87;       // null, or out of range
inline constexpr std::uint32_t kStatusDiskFull = 112;              //
inline constexpr std::uint32_t kStatusBusy = 170;                  // another process is joining or leaving
inline constexpr std::uint32_t kStatusInvalidUnitName = 267;       // malformed organizational unit
inline constexpr std::uint32_t kStatusInvalidComputerName = 1210;  //
inline constexpr std::uint32_t kStatusInvalidDomainName = 1212;    //
inline constexpr std::uint32_t kStatusInvalidAccountName = 1315;   // malformed user name
inline constexpr std::uint32_t kStatusAccountExists = 1316;        // a computer account of another kind is in the way
inline constexpr std::uint32_t kStatusNoSuchAccount = 1317;        // user
inline constexpr std::uint32_t kStatusPasswordRestriction = 1325;  // the domain's policy refuses the machine's secret
inline constexpr std::uint32_t kStatusLogonFailure = 1326;         // unknown user or wrong password
inline constexpr std::uint32_t kStatusPasswordExpired = 1330;      //
inline constexpr std::uint32_t kStatusAccountDisabled = 1331;      //
inline constexpr std::uint32_t kStatusNoSuchDomain = 1355;         // unknown, or no controller can be reached in time
inline constexpr std::uint32_t kStatusInternalError = 1359;        // a local file is damaged, or an answer unexpected
inline constexpr std::uint32_t kStatusTimeSkew = 1398;             // this host's clock is off
inline constexpr std::uint32_t kStatusBadConfiguration = 1610;     // ad.conf
inline constexpr std::uint32_t kStatusNoTrustAccount = 1787;       // the host's account has been deleted
inline constexpr std::uint32_t kStatusAccountExpired = 1793;       //
inline constexpr std::uint32_t kStatusDomainInconsistent = 1810;   // the SID or NetBIOS name is another domain's
inline constexpr std::uint32_t kStatusPasswordMustChange = 1907;   //
inline constexpr std::uint32_t kStatusAccountLocked = 1909;        //
inline constexpr std::uint32_t kStatusAlreadyJoined = 2691;        //
inline constexpr std::uint32_t kStatusNotJoined = 2692;            //
inline constexpr std::uint32_t kStatusQuotaExceeded = 8557;        // the user has created as many accounts as allowed

// A refusal or a fault. The text is for an administrator; it never holds a password or a key.
class AdError : public std::runtime_error {
 public:
    AdError(std::uint32_t status, const std::string& message) : std::runtime_error(message), _status(status) {}

    // One of the codes above; never 0.
    std::uint32_t Status() const noexcept { return _status; }

 private:
    std::uint32_t _status;
};

// 1355 from a side that is there, or may be: it closed the connection or did not answer in time. It may be busy, and
// answer the next time.
class NoAnswerError : public AdError {
 public:
    explicit NoAnswerError(const std::string& message) : AdError(kStatusNoSuchDomain, message) {}
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_AD_ERROR_H_
