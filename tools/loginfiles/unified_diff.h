// The difference of two texts as `diff -u` shows it, for a preview.

#ifndef NIMBREL_LOGINS_UNIFIED_DIFF_H_
#define NIMBREL_LOGINS_UNIFIED_DIFF_H_

#include <string>

namespace nimbrel::logins {

// Three lines of context; `patch -p0` understands it. A null text stands for a file that is not there ("/dev/null").
// Equal texts give the empty text.
//
//     --- /etc/nsswitch.conf
//     +++ /etc/nsswitch.conf
//     @@ -6,7 +6,7 @@
std::string UnifiedDiff(const std::string& path, const std::string* before, const std::string* after);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_UNIFIED_DIFF_H_
