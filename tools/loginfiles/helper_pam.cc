#include <dlfcn.h>
#include <security/pam_appl.h>

#include <cstdio>
#include <utility>

#include "tools/loginfiles/trial.h"

namespace nimbrel::logins {
namespace {

// Nobody is asked anything.
int NoConversation(int, const struct pam_message**, struct pam_response**, void*) { return PAM_CONV_ERR; }

// One service of the folder, opened for root.
class Service {
 public:
    Service(const std::string& folder, const std::string& name)
        : _status(pam_start_confdir(name.c_str(), "root", &kConversation, folder.c_str(), &_handle)) {}
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() {
        if (_handle != nullptr) pam_end(_handle, _status);
    }

    int Status() const { return _status; }
    void LogIn() {
        if (_status == PAM_SUCCESS) _status = pam_authenticate(_handle, PAM_SILENT);
        if (_status == PAM_SUCCESS) _status = pam_acct_mgmt(_handle, PAM_SILENT);
    }
    void ChangePassword() {
        if (_status == PAM_SUCCESS) _status = pam_chauthtok(_handle, PAM_SILENT);
    }
    void OpenSession() {
        if (_status == PAM_SUCCESS) _status = pam_open_session(_handle, PAM_SILENT);
    }
    void Tell(const std::string& name) const {
        if (_status != PAM_SUCCESS) std::printf("%s\t%s\n", name.c_str(), pam_strerror(_handle, _status));
    }

 private:
    static constexpr struct pam_conv kConversation = {NoConversation, nullptr};
    pam_handle_t* _handle = nullptr;
    int _status;
};

}  // namespace

int OpenServices(const std::string& folder, const std::vector<std::string>& services) {
    for (const std::string& name : services) Service(folder, name).Tell(name);
    return 0;
}

int EnterServices(const std::string& folder, const std::vector<std::string>& services) {
    using Step = std::pair<const char*, void (Service::*)()>;
    if (services.empty()) return 0;
    const Service kept(folder, services.front());  // its modules stay loaded, which the others have as well
    for (const std::string& name : services) {
        for (const auto& [step, take] : {Step(kLogIn, &Service::LogIn), Step(kChangePassword, &Service::ChangePassword),
                                         Step(kOpenSession, &Service::OpenSession)}) {
            Service service(folder, name);
            (service.*take)();
            service.Tell(name + '\t' + step);
        }
    }
    return 0;
}

int LoadLibraries(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) std::printf("%s\t%s\n", path.c_str(), dlerror());
    }
    return 0;
}

}  // namespace nimbrel::logins
