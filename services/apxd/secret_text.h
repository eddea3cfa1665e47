// A one-time secret on its way to the host: wiped when it is destroyed, overwritten or moved from.

#ifndef NIMBREL_APXD_SECRET_TEXT_H_
#define NIMBREL_APXD_SECRET_TEXT_H_

#include <openssl/crypto.h>

#include <string>
#include <utility>

namespace nimbrel::apxd {

class SecretText {
 public:
    SecretText() = default;
    // Takes the text over; nothing of it stays in `text`.
    explicit SecretText(std::string&& text) : _text(text) { Wipe(text); }
    SecretText(SecretText&& other) noexcept : _text(std::move(other._text)) { Wipe(other._text); }
    SecretText& operator=(SecretText&& other) noexcept {
        if (this != &other) {
            Wipe(_text);
            _text.swap(other._text);
        }
        return *this;
    }
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;
    ~SecretText() { Wipe(_text); }

    // Valid until the object is destroyed or assigned to.
    const std::string& Text() const { return _text; }

    static void Wipe(std::string& text) noexcept {
        text.resize(text.capacity());
        OPENSSL_cleanse(text.data(), text.size());
        text.clear();
    }

 private:
    std::string _text;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_SECRET_TEXT_H_
