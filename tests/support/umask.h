#ifndef TESTS_SUPPORT_UMASK_H_
#define TESTS_SUPPORT_UMASK_H_

#include <sys/stat.h>

// This process's umask, for as long as it lives.
class Umask {
 public:
    explicit Umask(mode_t mask) : _before(umask(mask)) {}
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;
    ~Umask() { umask(_before); }

 private:
    const mode_t _before;
};

#endif  // TESTS_SUPPORT_UMASK_H_
