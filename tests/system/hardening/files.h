// What the product makes on a host, file by file, and a way to see what a test's operations have made.

#ifndef TESTS_SYSTEM_HARDENING_FILES_H_
#define TESTS_SYSTEM_HARDENING_FILES_H_

#include <sys/stat.h>

#include <map>
#include <string>

namespace nimbrel::testing {

using Files = std::map<std::string, struct stat>;

// Every file, folder and link that a host's programs could have made.
Files FilesOfTheHost();

// Expects of every file that is new or changed since `before` that a row of the table names it, and that it has the
// row's mode and belongs to root. A file that no row names is a failure: somebody has to say what its mode should be.
void ExpectModes(const Files& before, const Files& after);

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_HARDENING_FILES_H_
