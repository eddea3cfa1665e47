// A domain whose name server takes questions and never answers.

#ifndef TESTS_SYSTEM_APX_HUNG_DOMAIN_H_
#define TESTS_SYSTEM_APX_HUNG_DOMAIN_H_

#include <string>

namespace nimbrel::testing {

inline constexpr char kServiceKeytab[] = "/etc/nimbrel/apxd/apxd.keytab";
inline constexpr char kServicePrincipal[] = "APX01$";

// Writes the keytab of the service's account in corp.test.
void WriteServiceKeytab();

class HungDomain {
 public:
    // Where /etc/resolv.conf points. Each of its questions is waited for longer than any test takes.
    HungDomain();
    HungDomain(const HungDomain&) = delete;
    HungDomain& operator=(const HungDomain&) = delete;
    ~HungDomain();

    // Lines for the service's configuration.
    static std::string BackEnd();

    // Returns when somebody has asked: from then on it hangs.
    void AwaitQuestion() const;

 private:
    int _socket;
};

}  // namespace nimbrel::testing

#endif  // TESTS_SYSTEM_APX_HUNG_DOMAIN_H_
