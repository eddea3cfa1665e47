#include "tools/nimauthctl/trust_words.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "embeddeddirectory/directory_types.h"

namespace nimbrel::nimauthctl {
namespace {

struct Meaning {
    std::int32_t value;
    std::string_view words;
};

constexpr Meaning kLibraryStates[] = {
    {0, "the provider cannot tell"}, {2, "no answer in time"}, {7, "not a member, or nothing known yet"}};

constexpr Meaning kLibraryRelationships[] = {{0, "the provider cannot tell"}, {6, "nothing known of this domain"}};

constexpr Meaning kEmbeddedStates[] = {
    {embedded::kTrustStateHealthy, "healthy"},
    {embedded::kTrustStateSecretMismatch, "the host's secret is out of step"},
    {embedded::kTrustStateAccountDisabled, "the machine account is disabled"},
    {embedded::kTrustStateAccountMissing, "the machine account is gone"},
    {embedded::kTrustStateNotMember, "not a member"},
    {embedded::kTrustStateNoController, "no domain controller reachable"},
    {embedded::kTrustStateUnreadable, "the embedded directory cannot be read"},
};

constexpr Meaning kEmbeddedRelationships[] = {
    {embedded::kRelationshipOwnDomain, "own domain"},
    {embedded::kRelationshipOutbound, "its users can log in here"},
    {embedded::kRelationshipInbound, "users of the own domain can log in there"},
    {embedded::kRelationshipBidirectional, "users of either can log in at the other"},
    {embedded::kRelationshipUnknownDomain, "nothing known of this domain"},
    {embedded::kRelationshipNotMember, "not a member"},
    {embedded::kRelationshipNoController, "no domain controller reachable"},
    {embedded::kRelationshipUnreadable, "the embedded directory cannot be read"},
};

// The values of the provider "ad" are part of its interface.
constexpr Meaning kAdStates[] = {
    {1, "healthy"},
    {3, "the host's secret is out of step"},
    {4, "the machine account is disabled"},
    {5, "the machine account is gone"},
    {7, "not a member"},
    {8, "no domain controller reachable"},
    {9, "the membership, the keytab or the settings cannot be read"},
    {10, "the clocks of host and domain are too far apart"},
};

constexpr Meaning kAdRelationships[] = {
    {1, "own domain"},
    {3, "its users can log in here"},
    {4, "users of the own domain can log in there"},
    {5, "users of either can log in at the other"},
    {6, "nothing known of this domain"},
    {7, "not a member"},
    {8, "no domain controller reachable"},
    {9, "the membership, the keytab or the settings cannot be read"},
    {10, "the clocks of host and domain are too far apart"},
};

const Meaning* FindIn(std::span<const Meaning> meanings, std::int32_t value) {
    const auto found =
        std::find_if(meanings.begin(), meanings.end(), [&](const Meaning& meaning) { return meaning.value == value; });
    return found == meanings.end() ? nullptr : &*found;
}

std::string Words(std::int32_t value, std::span<const Meaning> providersMeanings,
                  std::span<const Meaning> librarysMeanings) {
    if (const Meaning* const found = FindIn(providersMeanings, value)) return std::string(found->words);
    if (const Meaning* const found = FindIn(librarysMeanings, value)) return std::string(found->words);
    return "as the provider defines it";
}

std::span<const Meaning> StatesOf(const std::string& provider) {
    if (provider == "embedded") return kEmbeddedStates;
    if (provider == "ad") return kAdStates;
    return {};
}

// "ad" adds the kind of a trust in steps of 16 to a direction.
std::string AdRelationshipWords(std::int32_t relationship) {
    constexpr std::array<const char*, 4> kKinds = {"", ", forest trust", ", within the forest", ", Kerberos realm"};
    const std::int32_t kind = relationship / 16;
    if (relationship < 16 || kind >= static_cast<std::int32_t>(kKinds.size())) {
        return Words(relationship, kAdRelationships, kLibraryRelationships);
    }
    return Words(relationship % 16, kAdRelationships, {}) + kKinds[static_cast<std::size_t>(kind)];
}

}  // namespace

std::string TrustStateWords(const std::string& provider, std::int32_t state) {
    return Words(state, StatesOf(provider), kLibraryStates);
}

std::string TrustRelationshipWords(const std::string& provider, std::int32_t relationship) {
    if (provider == "ad") return AdRelationshipWords(relationship);
    if (provider == "embedded") return Words(relationship, kEmbeddedRelationships, kLibraryRelationships);
    return Words(relationship, {}, kLibraryRelationships);
}

}  // namespace nimbrel::nimauthctl
