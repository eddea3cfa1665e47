// What a provider answers where its operation has a value in place of a status.

#ifndef NIMBREL_PLUGINKIT_TRUST_VALUES_H_
#define NIMBREL_PLUGINKIT_TRUST_VALUES_H_

#include <cstdint>

// A namespace of its own, for rooms that take all of them over.
namespace nimbrel::kit::trust {

// The overall trust state of the host. 0 (not supported) and 2 (not determined in time) are the library's own and never
// given here.
inline constexpr std::int32_t kTrustStateHealthy = 1;
inline constexpr std::int32_t kTrustStateSecretMismatch = 3;
inline constexpr std::int32_t kTrustStateAccountDisabled = 4;
inline constexpr std::int32_t kTrustStateAccountMissing = 5;
inline constexpr std::int32_t kTrustStateNotMember = 7;
inline constexpr std::int32_t kTrustStateNoController = 8;  // the domain is gone or none of its controllers answers
inline constexpr std::int32_t kTrustStateUnreadable = 9;    // a local file: membership, keytab, settings or directory
inline constexpr std::int32_t kTrustStateClockOff = 10;

// The relationship to one domain: one of the first kind, or a direction plus the trust's kind. 0 (not supported) is the
// library's own.
inline constexpr std::int32_t kRelationshipOwnDomain = 1;
inline constexpr std::int32_t kRelationshipOutbound = 3;
inline constexpr std::int32_t kRelationshipInbound = 4;
inline constexpr std::int32_t kRelationshipBidirectional = 5;
inline constexpr std::int32_t kRelationshipUnknownDomain = 6;
inline constexpr std::int32_t kRelationshipNotMember = 7;
inline constexpr std::int32_t kRelationshipNoController = 8;  // of the host's own domain
inline constexpr std::int32_t kRelationshipUnreadable = 9;
inline constexpr std::int32_t kRelationshipClockOff = 10;
inline constexpr std::int32_t kRelationshipKindExternal = 0;
inline constexpr std::int32_t kRelationshipKindForest = 16;
inline constexpr std::int32_t kRelationshipKindWithinForest = 32;
inline constexpr std::int32_t kRelationshipKindRealm = 48;  // a Kerberos realm that is no Windows domain

}  // namespace nimbrel::kit::trust

#endif  // NIMBREL_PLUGINKIT_TRUST_VALUES_H_
