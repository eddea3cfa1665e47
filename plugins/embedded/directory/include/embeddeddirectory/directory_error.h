// The one exception of the embedded directory. Which statuses it carries, and for what, is told where they are thrown; they
// are those that a real domain answers with in the same situation.

#ifndef NIMBREL_EMBEDDED_DIRECTORY_ERROR_H_
#define NIMBREL_EMBEDDED_DIRECTORY_ERROR_H_

#include "pluginkit/status_error.h"

namespace nimbrel::embedded {

using namespace kit::status;

using DirectoryError = kit::StatusError;

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_DIRECTORY_ERROR_H_
