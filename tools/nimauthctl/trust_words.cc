#include "tools/nimauthctl/trust_words.h"

#include <algorithm>
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
    {embedded::kRelationshipUnreadable, "the embedded directory cannot be read"},
};

const Meaning* FindIn(std::span<const Meaning> meanings, std::int32_t value) {
    const auto found =
        std::find_if(meanings.begin(), meanings.end(), [&](const Meaning& meaning) { return meaning.value == value; });
    return found == meanings.end() ? nullptr : &*found;
}

std::string Words(const std::string& provider, std::int32_t value, std::span<const Meaning> embeddedMeanings,
                  std::span<const Meaning> libraryMeanings) {
    if (provider == "embedded") {
        if (const Meaning* const found = FindIn(embeddedMeanings, value)) return std::string(found->words);
    }
    if (const Meaning* const found = FindIn(libraryMeanings, value)) return std::string(found->words);
    return "as the provider defines it";
}

}  // namespace

std::string TrustStateWords(const std::string& provider, std::int32_t state) {
    return Words(provider, state, kEmbeddedStates, kLibraryStates);
}

std::string TrustRelationshipWords(const std::string& provider, std::int32_t relationship) {
    return Words(provider, relationship, kEmbeddedRelationships, kLibraryRelationships);
}

}  // namespace nimbrel::nimauthctl
