// Whether somebody would be asked for a pass phrase.

#ifndef NIMAUTH_TESTS_SUPPORT_PASS_PHRASE_H_
#define NIMAUTH_TESTS_SUPPORT_PASS_PHRASE_H_

#include <openssl/ui.h>

namespace nimbrel::testing {

// Stands in for the terminal: counts how often libcrypto asks, and gives no answer. One at a time.
class CountedPrompts {
 public:
    CountedPrompts() {
        _asked = 0;
        UI_method_set_opener(_method, [](UI*) {
            ++_asked;
            return 0;
        });
        UI_set_default_method(_method);
    }
    CountedPrompts(const CountedPrompts&) = delete;
    CountedPrompts& operator=(const CountedPrompts&) = delete;
    ~CountedPrompts() {
        UI_set_default_method(UI_OpenSSL());
        UI_destroy_method(_method);
    }

    int Asked() const { return _asked; }

 private:
    inline static int _asked = 0;
    UI_METHOD* _method = UI_create_method("counts");
};

// Cannot be read without a pass phrase, nor with one.
inline constexpr char kEncryptedCertificate[] =
    "-----BEGIN CERTIFICATE-----\n"
    "Proc-Type: 4,ENCRYPTED\n"
    "DEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n"
    "\n"
    "AAAAAAAAAAAAAAAAAAAAAA==\n"
    "-----END CERTIFICATE-----\n";

}  // namespace nimbrel::testing

#endif  // NIMAUTH_TESTS_SUPPORT_PASS_PHRASE_H_
