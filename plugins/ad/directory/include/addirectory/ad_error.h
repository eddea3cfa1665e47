// The one exception of the Active Directory provider. Which statuses it carries, and for what, is told where they are
// thrown; the library turns them into the exception classes of those numbers.

#ifndef NIMBREL_AD_AD_ERROR_H_
#define NIMBREL_AD_AD_ERROR_H_

#include <string>

#include "pluginkit/status_error.h"

namespace nimbrel::ad {

using namespace kit::status;

using AdError = kit::StatusError;

// 1355 from a side that is there, or may be: it closed the connection or did not answer in time. It may be busy, and
// answer the next time.
class NoAnswerError : public AdError {
 public:
    explicit NoAnswerError(const std::string& message) : AdError(kStatusNoSuchDomain, message) {}
};

}  // namespace nimbrel::ad

#endif  // NIMBREL_AD_AD_ERROR_H_
