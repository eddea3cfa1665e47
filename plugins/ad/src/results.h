// Results for the C border: each is one allocation, pointers and texts together, given back by `ReleaseResult`.
//
// Each function fills both out-parameters or, when memory is short, neither (`std::bad_alloc`).

#ifndef NIMBREL_AD_RESULTS_H_
#define NIMBREL_AD_RESULTS_H_

#include <string>
#include <vector>

#include "addirectory/host.h"
#include "authentication/provider_abi.h"

namespace nimbrel::ad {

extern "C" void ReleaseResult(void* result);

void ReturnText(const std::string& text, char** result, NimauthRelease* release);
void ReturnTexts(const std::vector<std::string>& texts, char*** result, NimauthRelease* release);
// An array of pointers to records.
void ReturnDomains(const std::vector<DomainNames>& domains, NimauthDomainRecord*** result, NimauthRelease* release);
// Two texts, each released on its own.
void ReturnDomain(const DomainNames& domain, NimauthDomainRecord* result, NimauthRelease* release);

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_RESULTS_H_
