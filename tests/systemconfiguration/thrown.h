// The text of the exception that an action throws.

#ifndef NIMAUTH_TESTS_SYSTEMCONFIGURATION_THROWN_H_
#define NIMAUTH_TESTS_SYSTEMCONFIGURATION_THROWN_H_

#include <gtest/gtest.h>

#include <string>

// Fails the test when the action throws another class than `Error`, or nothing.
template <typename Error, typename Action>
std::string Thrown(Action action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return "(nothing was thrown)";
}

#endif  // NIMAUTH_TESTS_SYSTEMCONFIGURATION_THROWN_H_
