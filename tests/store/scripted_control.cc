#include "store/scripted_control.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "store/journal.h"
#include "store/root.h"

namespace nimbrel::authentication::test {
namespace {

void WriteDown(const char* line) { Journal::Add(line); }

void* Load() {
    Remove(kSettingsFolder);  // the machine below the private root may have settings of its own
    InstallProvider("scripted", STORE_SCRIPTED_PROVIDER);
    WriteSystemFile(kProviderFile, "provider = \"scripted\"\n");
    // Loaded before any store, so that what the provider is told survives each of them.
    void* const library = dlopen(kScriptedPath, RTLD_LAZY | RTLD_GLOBAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    return library;
}

}  // namespace

template <typename Function>
Function* ScriptedControl::Find(const char* name) const {
    void* const symbol = dlsym(_library, name);
    if (symbol == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<Function*>(symbol);
}

ScriptedControl::ScriptedControl() : _library(Load()) {
    Find<decltype(ScriptedReset)>("ScriptedReset")();
    Find<decltype(ScriptedObserve)>("ScriptedObserve")(WriteDown);
}

ScriptedControl::~ScriptedControl() {
    EXPECT_EQ(Find<decltype(ScriptedUnreleased)>("ScriptedUnreleased")(), 0);
    Find<decltype(ScriptedObserve)>("ScriptedObserve")(nullptr);
    dlclose(_library);
}

void ScriptedControl::Answer(ScriptedOperation operation, const std::vector<std::uint32_t>& statuses) const {
    Find<decltype(ScriptedAnswer)>("ScriptedAnswer")(operation, statuses.data(), statuses.size());
}

void ScriptedControl::BecomeMember(const std::string& dnsName, const std::string& netbiosName) const {
    Find<decltype(ScriptedBecomeMember)>("ScriptedBecomeMember")(dnsName.c_str(), netbiosName.c_str());
}

void ScriptedControl::SetController(const std::string& controller) const {
    Find<decltype(ScriptedSetController)>("ScriptedSetController")(controller.c_str());
}

}  // namespace nimbrel::authentication::test
