// The provider "scripted", installed, named by provider.conf (the only settings file then), and kept loaded, with its
// remote control at hand. Its calls go into the journal.
//
//     ScriptedControl provider;
//     provider.Answer(SCRIPTED_JOIN, {1326, 0});
//
// Destroying it checks that every result was released.

#ifndef TESTS_STORE_SCRIPTED_CONTROL_H_
#define TESTS_STORE_SCRIPTED_CONTROL_H_

#include <cstdint>
#include <string>
#include <vector>

#include "store/scripted_provider.h"

namespace nimbrel::authentication::test {

inline constexpr const char* kScriptedPath = "/usr/libexec/nimauth/libscripted.so";

class ScriptedControl {
 public:
    ScriptedControl();
    ScriptedControl(const ScriptedControl&) = delete;
    ScriptedControl& operator=(const ScriptedControl&) = delete;
    ~ScriptedControl();

    void Answer(ScriptedOperation operation, const std::vector<std::uint32_t>& statuses) const;
    void BecomeMember(const std::string& dnsName, const std::string& netbiosName) const;
    void SetController(const std::string& controller) const;

 private:
    template <typename Function>
    Function* Find(const char* name) const;

    void* _library;
};

}  // namespace nimbrel::authentication::test

#endif  // TESTS_STORE_SCRIPTED_CONTROL_H_
