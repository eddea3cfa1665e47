// Results for the C border: each is one allocation, pointers and texts together, given back by `ReleaseResult`.
//
// Each function fills both out-parameters or, when memory is short, neither (`std::bad_alloc`).

#ifndef NIMBREL_EMBEDDED_RESULTS_H_
#define NIMBREL_EMBEDDED_RESULTS_H_

#include <string>
#include <vector>

#include "authentication/provider_abi.h"
#include "embeddeddirectory/directory_types.h"

namespace nimbrel::embedded {

extern "C" void ReleaseResult(void* result);

void ReturnText(const std::string& text, char** result, NimauthRelease* release);
void ReturnTexts(const std::vector<std::string>& texts, char*** result, NimauthRelease* release);
// An array of pointers to records.
void ReturnDomains(const std::vector<DomainInfo>& domains, NimauthDomainRecord*** result, NimauthRelease* release);
// Two texts, each released on its own.
void ReturnDomain(const DomainInfo& domain, NimauthDomainRecord* result, NimauthRelease* release);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_RESULTS_H_
