// Password hashes: scrypt with a random salt, written as text with the costs they were made with.
//
//     scrypt$15$8$1$9f86d081884c7d659a2feaa0c55ad015$<64 hexadecimal digits>
//
// The fields are the logarithm of the cost, block size, parallelism, salt and key. The costs are read back from the
// text, so that they can be raised without making old hashes useless.
//
// Threads: no state. A call may still run when the process exits: exit waits for it, and later calls fail.

#ifndef NIMBREL_EMBEDDED_SECRET_HASH_H_
#define NIMBREL_EMBEDDED_SECRET_HASH_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace nimbrel::embedded {

// A human's password needs the slow hash; a machine's secret of 256 random bits cannot be guessed anyway.
enum class HashCost { Password, RandomSecret };

// 32 MiB and about 0.1 s for a password. Throws `DirectoryError` 1359 if the hash cannot be computed.
std::string HashSecret(std::string_view secret, HashCost cost);
// The same for a machine's secret, with a salt of the caller's choice: 32 hexadecimal digits, else 87. `SaltOf` reads
// it back.
std::string HashMarkedSecret(std::string_view secret, const std::string& salt);
std::string SaltOf(const std::string& hash);
// Compares in constant time. Throws `DirectoryError` 1359 for a text that is no such hash.
bool SecretMatches(std::string_view secret, std::string_view hash);
// Takes as long as a look at a real password does: a caller must not learn from the time that there is no such user.
void PretendToCheck(std::string_view secret);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_SECRET_HASH_H_
