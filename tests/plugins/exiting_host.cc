// A host process that exits with status 7 while a directory query is in its provider.
//
//     exiting_host hang PROVIDER     the provider never answers
//     exiting_host race PROVIDER     the provider is let go as the process begins to exit
//     exiting_host late PROVIDER     the provider is let go, and its answer awaited, after every static destructor of
//                                    the program and its libraries has run
//     exiting_host status PROVIDER   the same, and the provider answers with a status
//     exiting_host ask PROVIDER      a query is begun only then
//     exiting_host join PROVIDER     as "late", with a join of corp.test in place of the query
//     exiting_host leave PROVIDER    the same with a leave
//     exiting_host activate PROVIDER the store "None" is activated only then, in place of "Active Directory"
//     exiting_host option PROVIDER   the advanced options are read before and then
//     exiting_host domain PROVIDER   prints the stored domain, and does nothing else
//
// PROVIDER is "scripted", or one of those that never return from a query.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/exceptions.h"
#include "authentication/store_factory.h"
#include "hostmgmt/advanced_options.h"
#include "plugins/misbehaving/leaving_control.h"
#include "plugins/misbehaving/scripted.h"
#include "plugins/provider_root.h"

namespace nimbrel::authentication::test {
namespace {

constexpr int kStatus = 7;
constexpr int kPatient = 60;

class OpenStore : public ActiveDirectoryStore {
 public:
    using ActiveDirectoryStore::ActiveDirectoryStore;

    static std::shared_ptr<RequestState> Request(const std::string& key) {
        pthread_mutex_lock(&_lock);
        auto state = _asyncRequests.at(key);
        pthread_mutex_unlock(&_lock);
        return state;
    }
};

// Lives until the process is gone, so that the last handler can still use it.
struct Host {
    Host(const std::string& mode_, const std::string& provider) : mode(mode_), isScripted(provider == "scripted") {
        if (isScripted) {
            scripted = std::make_unique<Plugin<ScriptedControl>>(provider);
        } else {
            leaving = std::make_unique<Plugin<LeavingControl>>(provider);
        }
    }

    // The operation that is under way when the process exits.
    int Slot() const { return mode == "join" ? kJoinDomain : mode == "leave" ? kPartDomain : kGetTrustedDomains; }

    void Hold() {
        if (isScripted) {
            (*scripted)->hold(Slot());
        } else {
            (*leaving)->setHeld(true);
        }
    }
    void LetGo() {
        if (mode == "status") (*scripted)->setStatus(kGetTrustedDomains, 5);
        if (isScripted) {
            (*scripted)->letGo(Slot());
        } else {
            (*leaving)->setHeld(false);
        }
    }

    std::string mode;
    bool isScripted;
    std::unique_ptr<Plugin<ScriptedControl>> scripted;
    std::unique_ptr<Plugin<LeavingControl>> leaving;
    OpenStore store{0};
    std::shared_ptr<RequestState> request;
    std::thread member;  // joins or leaves
};

Host* host = nullptr;

void AwaitRequest() {
    try {
        host->request->WaitResult(kPatient);
    } catch (const ProviderCallTimedOutException&) {
        abort();
    } catch (const Exception&) {  // the provider failed or left its thread: that is an end too
    }
}

void ActivateNone() {
    try {
        NoRemoteAuthenticationStore().MakeActive();
        abort();
    } catch (const UnknownRemoteAuthenticationStoreException&) {  // no factory knows any store now
    }
}

void ReadOptions() {
    const auto root = HostMgmt::HostFactory::GetHost()->GetAdvancedOptions()->GetRootBranch();
    if (root->GetBranch("UserVars")->GetOption("ActiveDirectoryVerifyAPXCertificate") == nullptr) abort();
}

void AfterAllDestructors() {
    if (!host) return;
    if (Singleton<AuthenticationStoreFactory>::_instance != nullptr) abort();  // it would not be after all of them
    if (host->mode == "late" || host->mode == "status") {
        host->LetGo();
        AwaitRequest();
    } else if (host->mode == "ask") {
        OpenStore(kPatient).GetTrustedDomains();
    } else if (host->mode == "activate") {
        ActivateNone();
    } else if (host->mode == "option") {
        ReadOptions();
    } else if (host->member.joinable()) {
        host->LetGo();
        host->member.join();
    }
}

// Registered before any library was initialised, and for no object of its own as `atexit` would: so it runs after all
// their destructors.
void RegisterLast() {
    on_exit([](int, void*) { AfterAllDestructors(); }, nullptr);
}
__attribute__((section(".preinit_array"), used)) void (*const kRegisterLast)() = RegisterLast;

void JoinOrLeave() {
    if (host->mode == "join") {
        host->store.JoinDomain("corp.test/Hosts", Credentials{"administrator", "secret"}, true);
    } else {
        host->store.PartDomain();
    }
}

int BeginMembership() {
    host->Hold();
    host->member = std::thread(JoinOrLeave);
    (*host->scripted)->awaitCalls(host->Slot(), 1);
    return kStatus;
}

int PrintDomain() {
    try {
        std::puts(ActiveDirectoryConfigStore().GetDomainName().c_str());
    } catch (const ConfigurationError&) {
        std::puts("none");
    }
    return kStatus;
}

}  // namespace
}  // namespace nimbrel::authentication::test

int main(int argc, char** argv) {
    using namespace nimbrel::authentication::test;
    if (argc != 3) return 2;
    host = std::make_unique<Host>(argv[1], argv[2]).release();
    if (host->mode == "ask" || host->mode == "activate") return kStatus;
    if (host->mode == "domain") return PrintDomain();
    if (host->mode == "option") {
        ReadOptions();
        return kStatus;
    }
    if (host->mode == "join" || host->mode == "leave") return BeginMembership();
    host->Hold();
    host->store.GetTrustedDomains();
    host->request = OpenStore::Request("TrustedDomains");
    if (host->mode == "race") host->LetGo();
    return kStatus;
}
