// A password or machine secret in memory: wiped when it is destroyed, overwritten or moved from.

#ifndef NIMBREL_EMBEDDED_SECRET_H_
#define NIMBREL_EMBEDDED_SECRET_H_

#include <string_view>
#include <vector>

namespace nimbrel::embedded {

// Owns its bytes; not copyable, so that each copy is a decision. One object belongs to one thread at a time.
class Secret {
 public:
    Secret() = default;
    explicit Secret(std::string_view text);
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret();

    // Valid until the object is destroyed or assigned to.
    std::string_view View() const noexcept { return {_bytes.data(), _bytes.size()}; }

    // A new machine secret: 256 bits from the kernel's random source as 64 hexadecimal digits.
    static Secret Random();

 private:
    void Wipe() noexcept;

    std::vector<char> _bytes;
};

}  // namespace nimbrel::embedded

#endif  // NIMBREL_EMBEDDED_SECRET_H_
