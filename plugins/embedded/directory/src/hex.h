// Bytes as lower-case hexadecimal digits.

#ifndef NIMBREL_EMBEDDED_HEX_H_
#define NIMBREL_EMBEDDED_HEX_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace nimbrel::embedded {

// Writes 2 * `size` digits.
void EncodeHexTo(char* digits, const unsigned char* bytes, std::size_t size);
std::string EncodeHex(const unsigned char* bytes, std::size_t size);
// False unless `digits` are exactly 2 * `size` digits.
bool DecodeHex(std::string_view digits, unsigned char* bytes, std::size_t size);
// The value of one digit of either case, or -1.
int HexDigit(char c);

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_HEX_H_
