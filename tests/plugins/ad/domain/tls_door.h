// A controller's door for TLS: takes simple log-ins and refuses each with the same words.
//
// Threads: any.

#ifndef NIMBREL_TESTS_PLUGINS_AD_DOMAIN_TLS_DOOR_H_
#define NIMBREL_TESTS_PLUGINS_AD_DOMAIN_TLS_DOOR_H_

#include <memory>
#include <mutex>
#include <string>

#include "plugins/ad/domain/entries.h"
#include "plugins/ad/domain/loopback.h"
#include "system/apx/certificates.h"

namespace nimbrel::ad::test {

class TlsDoor {
 public:
    TlsDoor(testing::Certificate certificate, Result answer);

    std::uint16_t Port() const { return _service->Port(); }
    // Who has tried to log in last.
    std::string LastName();

 private:
    void Converse(int socket);

    const testing::Certificate _certificate;
    const Result _answer;
    std::mutex _lock;  // guards what follows
    std::string _lastName;
    std::unique_ptr<StreamService> _service;
};

}  // namespace nimbrel::ad::test

#endif  // NIMBREL_TESTS_PLUGINS_AD_DOMAIN_TLS_DOOR_H_
