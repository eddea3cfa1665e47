// The back end over the embedded directory, a file: for evaluation, laboratories and tests.

#ifndef NIMBREL_APXD_EMBEDDED_BACK_END_H_
#define NIMBREL_APXD_EMBEDDED_BACK_END_H_

#include <memory>
#include <string>

#include "services/apxd/back_end.h"

namespace nimbrel::apxd {

// Opens the directory file anew for each call, so that what others change in it counts at once. `domain` is a DNS name.
std::unique_ptr<BackEnd> MakeEmbeddedBackEnd(const std::string& directoryFile, const std::string& domain);

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_EMBEDDED_BACK_END_H_
