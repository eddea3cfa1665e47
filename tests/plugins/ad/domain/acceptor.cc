#include "plugins/ad/domain/acceptor.h"

#include <gssapi/gssapi_ext.h>

#include <stdexcept>

namespace nimbrel::ad::test {
namespace {

void Check(OM_uint32 major, const char* step) {
    if (GSS_ERROR(major)) throw std::runtime_error(std::string(step) + ": " + std::to_string(major));
}

std::string Taken(gss_buffer_desc& buffer) {
    std::string text(static_cast<char*>(buffer.value), buffer.length);
    OM_uint32 minor = 0;
    gss_release_buffer(&minor, &buffer);
    return text;
}

gss_buffer_desc Buffer(std::string_view text) { return {text.size(), const_cast<char*>(text.data())}; }

}  // namespace

Acceptor::Acceptor(const std::string& keytab) {
    gss_key_value_element_desc elements[] = {{"keytab", keytab.c_str()}, {"rcache", "none:"}};
    const gss_key_value_set_desc store = {2, elements};
    OM_uint32 minor = 0;
    Check(gss_acquire_cred_from(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, GSS_C_NO_OID_SET, GSS_C_ACCEPT, &store,
                                &_credential, nullptr, nullptr),
          "the controller's keys");
}

Acceptor::~Acceptor() {
    OM_uint32 minor = 0;
    gss_delete_sec_context(&minor, &_context, GSS_C_NO_BUFFER);
    gss_release_cred(&minor, &_credential);
}

std::string Acceptor::Accept(std::string_view token) {
    gss_buffer_desc input = Buffer(token);
    gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
    OM_uint32 minor = 0;
    Check(gss_accept_sec_context(&minor, &_context, _credential, &input, GSS_C_NO_CHANNEL_BINDINGS, nullptr, nullptr,
                                 &output, nullptr, nullptr, nullptr),
          "a token");
    return Taken(output);
}

std::string Acceptor::Wrap(std::string_view text, bool sealed) {
    gss_buffer_desc input = Buffer(text);
    gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
    OM_uint32 minor = 0;
    Check(gss_wrap(&minor, _context, sealed ? 1 : 0, GSS_C_QOP_DEFAULT, &input, nullptr, &output), "wrapping");
    return Taken(output);
}

std::string Acceptor::Unwrap(std::string_view token) {
    gss_buffer_desc input = Buffer(token);
    gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
    OM_uint32 minor = 0;
    Check(gss_unwrap(&minor, _context, &input, &output, nullptr, nullptr), "unwrapping");
    return Taken(output);
}

}  // namespace nimbrel::ad::test
