// The socket that the service listens on. It outlives a reload that does not change its address.

#ifndef NIMBREL_APXD_LISTENER_H_
#define NIMBREL_APXD_LISTENER_H_

#include <string>

#include "services/apxd/config.h"

namespace nimbrel::apxd {

// Closed with the object.
class Listener {
 public:
    // Throws `std::system_error`.
    explicit Listener(const Config& config);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener();

    // Refuses connections from now on, those that wait to be accepted too, and leaves the address to another one. The
    // descriptor stays open: a thread that accepts may still look at it.
    void End();

    int Descriptor() const { return _descriptor; }
    // Where it really listens: port 0 gets a number of the system's choice.
    std::string Address() const;

 private:
    int _descriptor;
};

}  // namespace nimbrel::apxd

#endif  // NIMBREL_APXD_LISTENER_H_
