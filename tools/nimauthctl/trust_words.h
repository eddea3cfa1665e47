// What the numbers of a trust state and a trust relationship mean.
//
// The numbers are the provider's. Those of the providers "embedded" and "ad" are known here; of any other only the three
// states and two relationships are told that the library itself answers with.

#ifndef NIMAUTHCTL_TRUST_WORDS_H_
#define NIMAUTHCTL_TRUST_WORDS_H_

#include <cstdint>
#include <string>

namespace nimbrel::nimauthctl {

std::string TrustStateWords(const std::string& provider, std::int32_t state);
std::string TrustRelationshipWords(const std::string& provider, std::int32_t relationship);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_TRUST_WORDS_H_
