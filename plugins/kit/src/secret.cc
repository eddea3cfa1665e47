#include "pluginkit/secret.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "pluginkit/status_error.h"

namespace nimbrel::kit {

void Wipe(void* memory, std::size_t size) noexcept {
    if (size > 0) {
        explicit_bzero(memory, size);
    }
}

void FillRandom(void* bytes, std::size_t size) {
    auto* at = static_cast<unsigned char*>(bytes);
    while (size > 0) {
        const ssize_t got = getrandom(at, size, 0);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw StatusError(status::kStatusInternalError, "The kernel gives no random bytes");
        }
        at += got;
        size -= static_cast<std::size_t>(got);
    }
}

Secret::Secret(std::string_view bytes) {
    _bytes.reserve(bytes.size() + 1);
    _bytes.assign(bytes.begin(), bytes.end());
    _bytes.push_back('\0');
}

Secret::Secret(Secret&& other) noexcept : _bytes(std::exchange(other._bytes, {})) {}

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this != &other) {
        WipeAll();
        _bytes = std::exchange(other._bytes, {});
    }
    return *this;
}

Secret::~Secret() { WipeAll(); }

std::string_view Secret::View() const noexcept {
    return _bytes.empty() ? std::string_view() : std::string_view(_bytes.data(), _bytes.size() - 1);
}

Secret Secret::Random() {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::array<unsigned char, 32> random = {};
    FillRandom(random.data(), random.size());
    Secret secret;
    secret._bytes.reserve(2 * random.size() + 1);
    for (const unsigned char byte : random) {
        secret._bytes.push_back(kDigits[byte >> 4]);
        secret._bytes.push_back(kDigits[byte & 0x0f]);
    }
    secret._bytes.push_back('\0');
    Wipe(random.data(), random.size());
    return secret;
}

}  // namespace nimbrel::kit
