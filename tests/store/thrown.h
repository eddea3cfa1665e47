// What a call throws.

#ifndef TESTS_STORE_THROWN_H_
#define TESTS_STORE_THROWN_H_

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

namespace nimbrel::authentication::test {

// The text of the `Error` that `call` throws. A derived class fails the test; anything else goes on to the caller.
template <typename Error, typename Call>
std::string TextOf(const Call& call) {
    try {
        call();
    } catch (const Error& error) {
        EXPECT_STREQ(typeid(error).name(), typeid(Error).name());
        return error.what();
    }
    return "(nothing was thrown)";
}

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_THROWN_H_
