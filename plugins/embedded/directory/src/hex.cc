#include "hex.h"

namespace nimbrel::embedded {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

void EncodeHexTo(char* digits, const unsigned char* bytes, std::size_t size) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    for (std::size_t i = 0; i < size; ++i) {
        digits[2 * i] = kDigits[bytes[i] >> 4];
        digits[2 * i + 1] = kDigits[bytes[i] & 0x0f];
    }
}

std::string EncodeHex(const unsigned char* bytes, std::size_t size) {
    std::string digits(2 * size, '0');
    EncodeHexTo(digits.data(), bytes, size);
    return digits;
}

bool DecodeHex(std::string_view digits, unsigned char* bytes, std::size_t size) {
    if (digits.size() != 2 * size) {
        return false;
    }
    for (std::size_t i = 0; i < size; ++i) {
        const int high = HexDigit(digits[2 * i]);
        const int low = HexDigit(digits[2 * i + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        bytes[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return true;
}

}  // namespace nimbrel::embedded
