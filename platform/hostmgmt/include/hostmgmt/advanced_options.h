// The host's advanced options: a tree of named switches that an administrator sets and components of the host read.
//
//     auto root = HostMgmt::HostFactory::GetHost()->GetAdvancedOptions()->GetRootBranch();
//     auto option = root->GetBranch("UserVars")->GetOption("ActiveDirectoryVerifyAPXCertificate");
//     if (auto integer = std::dynamic_pointer_cast<HostMgmt::Adv::AdvancedIntegerOption>(option)) integer->SetValue(0);
//
// An option's full name is the path to it, its parts joined by ".": "UserVars.ActiveDirectoryVerifyAPXCertificate". A
// part is made of letters, digits, "_" and "-". Branches are not kept by themselves: a branch exists while an option
// lies below it.
//
// Every host has, until an administrator changes or removes it:
//
//     UserVars.ActiveDirectoryVerifyAPXCertificate   integer, 1: verify the certificate of the authentication proxy
//
// Where it is kept: in the configuration store's global namespace, component "hostmgmt", group "advanced_options". The
// object with an option's full name as key has the values
//
//     type          "integer", "string", or "removed" for an option of every host that was taken away
//     value         the text of the value; an integer in decimal
//     description   one sentence for the administrator
//
// and the object with the key "index" has one empty value per such object, named like it. An administrator's tool may
// write these objects itself.
//
// Errors: HostMgmt::Lib::HostMgmtException, among them the configuration store's own exception where the store fails.
//
// Threads: all objects are handles without state; any number of threads may use one. A value is read from the store each
// time it is asked for and is on disk when a change returns. Two processes that declare or remove options at the same
// moment may lose one of the two entries of "index", and one that sets an option while another removes it may bring it
// back; reading and setting values is not affected by that. Both sides of a fork may go on.

#ifndef HOSTMGMT_ADVANCED_OPTIONS_H_
#define HOSTMGMT_ADVANCED_OPTIONS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hostmgmt/exceptions.h"

#define HOSTMGMT_EXPORT __attribute__((visibility("default")))

namespace HostMgmt {

namespace Adv {

class OptionStore;

// One option of any type.
class HOSTMGMT_EXPORT AdvancedOption {
 public:
    AdvancedOption(std::shared_ptr<OptionStore> store, std::string fullName);
    AdvancedOption(const AdvancedOption&) = delete;
    AdvancedOption& operator=(const AdvancedOption&) = delete;
    virtual ~AdvancedOption();

    // The last part of the full name.
    std::string GetName() const;
    const std::string& GetFullName() const { return _fullName; }

    // One sentence for the administrator, or empty.
    std::string GetDescription() const;

 protected:
    // The stored text of the value, or the default. Throws HostMgmtException if the option has meanwhile been removed or
    // has another type than `type`.
    std::string ReadValue(const char* type) const;
    void WriteValue(const char* type, const std::string& value);

 private:
    const std::shared_ptr<OptionStore> _store;
    const std::string _fullName;
};

// An option whose value is any 64-bit integer.
class HOSTMGMT_EXPORT AdvancedIntegerOption : public AdvancedOption {
 public:
    using AdvancedOption::AdvancedOption;
    ~AdvancedIntegerOption() override;

    // The current value. Throws HostMgmtException if the stored text is not a 64-bit integer in decimal, or if the option
    // has meanwhile been removed or retyped.
    std::int64_t GetValue() const;
    void SetValue(std::int64_t value);
};

// An option whose value is a text of any bytes.
class HOSTMGMT_EXPORT AdvancedStringOption : public AdvancedOption {
 public:
    using AdvancedOption::AdvancedOption;
    ~AdvancedStringOption() override;

    // The current value. Throws HostMgmtException if the option has meanwhile been removed or retyped.
    std::string GetValue() const;
    void SetValue(const std::string& value);
};

// The options and branches below one name.
class HOSTMGMT_EXPORT OptionBranch {
 public:
    // The root branch has the empty full name.
    OptionBranch(std::shared_ptr<OptionStore> store, std::string fullName);

    const std::string& GetFullName() const { return _fullName; }

    // The branch `name` directly below this one; null when there is none.
    std::shared_ptr<OptionBranch> GetBranch(const std::string& name) const;

    // The option `name` directly below this branch, an AdvancedIntegerOption or an AdvancedStringOption; null when there
    // is none. Throws HostMgmtException if the stored type is unknown.
    std::shared_ptr<AdvancedOption> GetOption(const std::string& name) const;

    // What lies directly below this branch, in the order of the names' bytes.
    std::vector<std::string> GetBranchNames() const;
    std::vector<std::string> GetOptionNames() const;

 private:
    const std::shared_ptr<OptionStore> _store;
    const std::string _fullName;
};

// The whole tree.
class HOSTMGMT_EXPORT AdvancedOptions {
 public:
    explicit AdvancedOptions(std::shared_ptr<OptionStore> store);

    std::shared_ptr<OptionBranch> GetRootBranch() const;

    // Creates the option with this value. An option of this full name, of whatever type, is replaced. Throws
    // HostMgmtException if the name is not a full name.
    void DeclareInteger(const std::string& fullName, std::int64_t value, const std::string& description);
    void DeclareString(const std::string& fullName, const std::string& value, const std::string& description);

    // Takes the option away; does nothing when there is none.
    void Remove(const std::string& fullName);

    // Gives an option of every host its type and value back, and takes any other option away.
    void Restore(const std::string& fullName);

 private:
    const std::shared_ptr<OptionStore> _store;
};

}  // namespace Adv

// The host that this process runs on.
class HOSTMGMT_EXPORT Host {
 public:
    std::shared_ptr<Adv::AdvancedOptions> GetAdvancedOptions();
};

class HOSTMGMT_EXPORT HostFactory {
 public:
    // Never null.
    static std::shared_ptr<Host> GetHost();
};

}  // namespace HostMgmt

#endif  // HOSTMGMT_ADVANCED_OPTIONS_H_
