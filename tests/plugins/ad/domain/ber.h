// The basic encoding rules, as far as LDAP and Kerberos messages of a test need them: one-byte tags, definite lengths.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_BER_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_BER_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace nimbrel::ad::test {

struct Element {
    unsigned char tag = 0;
    std::string_view content;

    std::string Text() const { return std::string(content); }
    std::int64_t Number() const;
};

// Takes the first element from `bytes`. Throws `std::runtime_error` where there is no whole one.
Element TakeElement(std::string_view& bytes);
// The size of the first element, header included; 0 while more bytes are needed to tell.
std::size_t ElementSize(std::string_view bytes);

std::string MakeElement(unsigned char tag, std::string_view content);
std::string MakeNumber(unsigned char tag, std::int64_t value);

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_BER_H_
