// A text as the TLS library takes it.

#ifndef NIMBREL_APXD_DATUM_H_
#define NIMBREL_APXD_DATUM_H_

#include <gnutls/gnutls.h>

#include <string>

namespace nimbrel::apxd {

// Of a text that outlives it; the library only reads.
inline gnutls_datum_t Datum(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), static_cast<unsigned>(text.size())};
}

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_DATUM_H_
