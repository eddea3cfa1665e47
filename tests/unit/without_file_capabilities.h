// Makes file permissions count for a scope, also where the tests run as root.

#ifndef NIMAUTH_TESTS_UNIT_WITHOUT_FILE_CAPABILITIES_H_
#define NIMAUTH_TESTS_UNIT_WITHOUT_FILE_CAPABILITIES_H_

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <stdexcept>

// Takes the capabilities that override permissions out of the calling thread's effective set, and puts them back.
class WithoutFileCapabilities {
 public:
    WithoutFileCapabilities() {
        Call(SYS_capget, _saved);
        __user_cap_data_struct reduced[2] = {_saved[0], _saved[1]};
        reduced[0].effective &= ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH));
        Call(SYS_capset, reduced);
    }
    WithoutFileCapabilities(const WithoutFileCapabilities&) = delete;
    WithoutFileCapabilities& operator=(const WithoutFileCapabilities&) = delete;
    ~WithoutFileCapabilities() {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        syscall(SYS_capset, &header, _saved);
    }

 private:
    static void Call(long number, __user_cap_data_struct* sets) {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        if (syscall(number, &header, sets) != 0) throw std::runtime_error("capabilities cannot be changed");
    }

    __user_cap_data_struct _saved[2] = {};
};

#endif  // NIMAUTH_TESTS_UNIT_WITHOUT_FILE_CAPABILITIES_H_
