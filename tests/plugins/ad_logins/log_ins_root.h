// A host in a temporary folder, on which log-ins are switched on and off.

#ifndef TESTS_PLUGINS_AD_LOGINS_LOG_INS_ROOT_H_
#define TESTS_PLUGINS_AD_LOGINS_LOG_INS_ROOT_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "adlogins/log_ins.h"
#include "support/temporary_folder.h"

namespace nimbrel::ad::test {

inline constexpr char kDomainFile[] = "/etc/sssd/conf.d/50-nimauth-domain.conf";
inline constexpr char kControllersFile[] = "/etc/sssd/conf.d/55-nimauth-controllers.conf";
inline constexpr char kSmartCardFile[] = "/etc/sssd/conf.d/60-nimauth-smartcard.conf";
inline constexpr char kRecordFile[] = "/var/lib/nimbrel/ad-log-ins.conf";

// node01 in corp.test, without trusts.
DomainLogIns Corp();
// The same host in another domain.
DomainLogIns Other();

class LogInsRoot : public ::testing::Test {
 protected:
    // A host with a keytab and without SSSD.
    LogInsRoot();

    // Path below the root -> "<mode> <text>", for every file; "<mode> folder" for every folder.
    std::map<std::string, std::string> Everything() const;

    std::string RootPath() const { return _folder.Path("root"); }
    std::string Path(const std::string& path) const { return RootPath() + path; }
    bool Has(const std::string& path) const;
    // Empty for a file that is missing.
    std::string Text(const std::string& path) const;
    unsigned Mode(const std::string& path) const;
    // Makes the file, and its folders.
    void Put(const std::string& path, const std::string& text, unsigned mode = 0644) const;
    std::vector<std::string> NamesIn(const std::string& folder) const;

    // The status with which `call` fails; 0 if it does not.
    template <typename Call>
    static std::uint32_t StatusOf(Call call) {
        try {
            call();
            return 0;
        } catch (const kit::StatusError& error) {
            return error.Status();
        }
    }

 private:
    TemporaryFolder _folder;

 protected:
    LogIns logIns{RootPath()};
};

}  // namespace nimbrel::ad::test

#endif  // TESTS_PLUGINS_AD_LOGINS_LOG_INS_ROOT_H_
