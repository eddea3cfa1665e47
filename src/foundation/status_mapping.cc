#include <algorithm>
#include <cstdint>
#include <iterator>

#include "authentication/exceptions.h"

namespace nimbrel::authentication {
namespace {

// Not marked as never returning: the compiler only jumps to a function that might return (see below).
using Thrower = void (*)(std::uint32_t status);

// One thrower per class, out of line: dozens of throw sites inside one function would slow every one of them.
template <typename T>
void ThrowClass(std::uint32_t) {
    throw T();
}

void ThrowUnknown(std::uint32_t status) { throw UnknownException(status); }

struct MappedStatus {
    std::uint32_t status;
    Thrower thrower;
};

// Ascending, for the binary search. Status 0 shares the class of status 2 on purpose: whoever maps a status has found
// a failure already, so 0 is not success here.
constexpr MappedStatus kMappedStatuses[] = {
    {0, ThrowClass<FileNotFoundException>},
    {2, ThrowClass<FileNotFoundException>},
    {5, ThrowClass<AccessDeniedException>},
    {8, ThrowClass<NotEnoughMemoryException>},
    {86, ThrowClass<InvalidPasswordException>},
    {87, ThrowClass<InvalidParameterException>},
    {120, ThrowClass<CallNotImplementedException>},
    {267, ThrowClass<DirectoryException>},
    {609, ThrowClass<BadDLLEntryPointException>},
    {1002, ThrowClass<InvalidMessageException>},
    {1060, ThrowClass<ServiceDoesNotExistException>},
    {1061, ThrowClass<ServiceCannotAcceptControlException>},
    {1062, ThrowClass<ServiceNotActiveException>},
    {1064, ThrowClass<ExceptionInServiceException>},
    {1067, ThrowClass<ProcessAbortedException>},
    {1201, ThrowClass<ConnectionUnavailableException>},
    {1209, ThrowClass<InvalidGroupNameException>},
    {1210, ThrowClass<InvalidComputerNameException>},
    {1212, ThrowClass<InvalidDomainNameException>},
    {1213, ThrowClass<InvalidServiceNameException>},
    {1214, ThrowClass<InvalidNetNameException>},
    {1215, ThrowClass<InvalidShareNameException>},
    {1216, ThrowClass<InvalidPasswordNameException>},
    {1222, ThrowClass<NoNetworkException>},
    {1225, ThrowClass<ConnectionRefusedException>},
    {1229, ThrowClass<ConnectionInvalidException>},
    {1311, ThrowClass<NoLogonServersException>},
    {1315, ThrowClass<InvalidAccountNameException>},
    {1317, ThrowClass<NoSuchUserException>},
    {1324, ThrowClass<IllFormedPasswordException>},
    {1325, ThrowClass<PasswordRestrictionException>},
    {1326, ThrowClass<LogonFailureException>},
    {1330, ThrowClass<PasswordExpiredException>},
    {1331, ThrowClass<AccountDisabledException>},
    {1355, ThrowClass<NoSuchDomainException>},
    {1359, ThrowClass<InternalErrorException>},
    {1398, ThrowClass<TimeSkewException>},
    {1575, ThrowClass<NoSuchGroupException>},
    {1703, ThrowClass<RPCSProtocolSequenceNotSupportedException>},
    {1786, ThrowClass<NoTrustLSASecretException>},
    {1787, ThrowClass<NoTrustSAMAccountException>},
    {1791, ThrowClass<RPCSCallInProgressException>},
    {1810, ThrowClass<DomainTrustInconsistentException>},
    {2138, ThrowClass<WkstaNotStartedException>},
    {2691, ThrowClass<SetupAlreadyJoinedException>},
    {2695, ThrowClass<InvalidWorkgroupNameException>},
    {10060, ThrowClass<WSATimedOutException>},
};

static_assert(std::is_sorted(std::begin(kMappedStatuses), std::end(kMappedStatuses),
                             [](const MappedStatus& a, const MappedStatus& b) { return a.status < b.status; }));

// Two statuses at the top of the range, which providers use for failures of their own.
constexpr std::uint32_t kProviderFailure = 0xFFFF0000;
constexpr std::uint32_t kLastProviderFailure = 0xFFFF0001;

// The first three are cases of their own on purpose, although an unmapped status is unknown anyway: they are part of the
// contract with providers and stay whatever the table comes to hold.
Thrower ThrowerOf(std::uint32_t status) {
    if (status == kLastProviderFailure) return ThrowUnknown;
    if (status > kLastProviderFailure) return ThrowUnknown;
    if (status == kProviderFailure) return ThrowUnknown;

    const auto* const mapped =
        std::lower_bound(std::begin(kMappedStatuses), std::end(kMappedStatuses), status,
                         [](const MappedStatus& entry, std::uint32_t wanted) { return entry.status < wanted; });
    const bool found = mapped != std::end(kMappedStatuses) && mapped->status == status;
    return found ? mapped->thrower : ThrowUnknown;
}

}  // namespace

// Every function that an exception passes on its way costs a fifth of the whole throw. As the last thing that happens
// here is a call that might return, an optimising compiler makes it a jump, and the thrower stands where this stood.
extern "C" __attribute__((visibility("hidden"))) void NimauthThrowMapped(unsigned int status) {
    ThrowerOf(status)(status);
}

void ThrowMappedException(unsigned int status) __attribute__((alias("NimauthThrowMapped")));

}  // namespace nimbrel::authentication
