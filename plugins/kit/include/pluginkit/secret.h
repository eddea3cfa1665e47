// A password, a machine secret or a key in memory: wiped when it is destroyed, overwritten or moved from.

#ifndef NIMBREL_PLUGINKIT_SECRET_H_
#define NIMBREL_PLUGINKIT_SECRET_H_

#include <cstddef>
#include <string_view>
#include <vector>

namespace nimbrel::kit {

// Overwrites memory in a way that the compiler keeps.
void Wipe(void* memory, std::size_t size) noexcept;

// From the kernel's random source. Throws `StatusError` 1359 where there is none.
void FillRandom(void* bytes, std::size_t size);

// Owns its bytes; not copyable, so that each copy is a decision. A NUL follows the last byte. One object belongs to one
// thread at a time.
class Secret {
 public:
    Secret() = default;
    explicit Secret(std::string_view bytes);
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret();

    // Both valid until the object is destroyed or assigned to.
    std::string_view View() const noexcept;
    const char* Text() const noexcept { return _bytes.empty() ? "" : _bytes.data(); }

    // A new machine secret: 256 bits from the kernel's random source as 64 hexadecimal digits.
    static Secret Random();

 private:
    void WipeAll() noexcept { Wipe(_bytes.data(), _bytes.size()); }

    std::vector<char> _bytes;
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_SECRET_H_
