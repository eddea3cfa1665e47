// What the host-management library must do, over whatever configuration store it is linked with.
//
//     struct OwnHost {
//         static void Reset() { ... }   before each test: only the options that every host has
//     };
//     INSTANTIATE_TYPED_TEST_SUITE_P(Own, AdvancedOptionsContract, OwnHost);

#ifndef TESTS_CONTRACT_ADVANCED_OPTIONS_CONTRACT_H_
#define TESTS_CONTRACT_ADVANCED_OPTIONS_CONTRACT_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "config_store.h"
#include "hostmgmt/advanced_options.h"

using HostMgmt::HostFactory;
using HostMgmt::Adv::AdvancedIntegerOption;
using HostMgmt::Adv::AdvancedOption;
using HostMgmt::Adv::AdvancedOptions;
using HostMgmt::Adv::AdvancedStringOption;
using HostMgmt::Adv::OptionBranch;
using HostMgmt::Lib::HostMgmtException;

inline constexpr char kVerify[] = "UserVars.ActiveDirectoryVerifyAPXCertificate";

template <class Backend>
class AdvancedOptionsContract : public ::testing::Test {
 protected:
    AdvancedOptionsContract() { Backend::Reset(); }
    ~AdvancedOptionsContract() override { Backend::Reset(); }

    static std::shared_ptr<AdvancedOptions> Options() { return HostFactory::GetHost()->GetAdvancedOptions(); }

    // The option of this full name, reached through a new tree; null when there is none.
    static std::shared_ptr<AdvancedOption> Find(const std::string& fullName) {
        auto branch = Options()->GetRootBranch();
        std::string rest = fullName;
        for (auto dot = rest.find('.'); branch && dot != std::string::npos; dot = rest.find('.')) {
            branch = branch->GetBranch(rest.substr(0, dot));
            rest = rest.substr(dot + 1);
        }
        return branch ? branch->GetOption(rest) : nullptr;
    }
    template <class Option>
    static std::shared_ptr<Option> FindAs(const std::string& fullName) {
        return std::dynamic_pointer_cast<Option>(Find(fullName));
    }
    // Writes an option's object as an administrator's tool would.
    static void WriteRecord(const std::string& fullName, const Values& values) {
        WriteObject(*ConfigStore::GetStore(OrbConfigStore::sGlobalNamespace),
                    {fullName.c_str(), "advanced_options", "hostmgmt"}, values);
    }
};

TYPED_TEST_SUITE_P(AdvancedOptionsContract);

TYPED_TEST_P(AdvancedOptionsContract, EveryHostVerifiesTheProxysCertificateByDefault) {
    const auto option = this->template FindAs<AdvancedIntegerOption>(kVerify);
    ASSERT_NE(option, nullptr);
    EXPECT_EQ(option->GetValue(), 1);
    EXPECT_EQ(option->GetName(), "ActiveDirectoryVerifyAPXCertificate");
    EXPECT_EQ(option->GetFullName(), kVerify);
    EXPECT_NE(option->GetDescription(), "");
}

TYPED_TEST_P(AdvancedOptionsContract, AnyIntegerIsStoredAtOnce) {
    const auto option = this->template FindAs<AdvancedIntegerOption>(kVerify);
    for (const std::int64_t value :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{2}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max(),
          std::numeric_limits<std::int64_t>::min()}) {
        option->SetValue(value);
        EXPECT_EQ(option->GetValue(), value);
        EXPECT_EQ(this->template FindAs<AdvancedIntegerOption>(kVerify)->GetValue(), value);
    }
    EXPECT_NE(this->Find(kVerify)->GetDescription(), "");
}

TYPED_TEST_P(AdvancedOptionsContract, MissingBranchesAndOptionsAreNull) {
    const auto root = this->Options()->GetRootBranch();
    for (const std::string name : {"", "uservars", "User", "UserVars.", ".UserVars", kVerify, "Net"}) {
        EXPECT_EQ(root->GetBranch(name), nullptr) << name;
    }
    const auto branch = root->GetBranch("UserVars");
    ASSERT_NE(branch, nullptr);
    for (const std::string name : {"", "ActiveDirectory", "activedirectoryverifyapxcertificate", kVerify, "x"}) {
        EXPECT_EQ(branch->GetOption(name), nullptr) << name;
    }
    EXPECT_EQ(root->GetOption("UserVars"), nullptr);
    EXPECT_EQ(root->GetOption(kVerify), nullptr);
    EXPECT_EQ(root->GetOption("index"), nullptr);
}

TYPED_TEST_P(AdvancedOptionsContract, RemovedOptionIsMissingAndSoIsItsEmptyBranch) {
    const auto option = this->template FindAs<AdvancedIntegerOption>(kVerify);
    const auto branch = this->Options()->GetRootBranch()->GetBranch("UserVars");
    this->Options()->Remove(kVerify);
    EXPECT_EQ(branch->GetOption("ActiveDirectoryVerifyAPXCertificate"), nullptr);
    EXPECT_EQ(this->Options()->GetRootBranch()->GetBranch("UserVars"), nullptr);
    EXPECT_THROW(option->GetValue(), HostMgmtException);
    EXPECT_THROW(option->SetValue(1), HostMgmtException);
    EXPECT_EQ(option->GetDescription(), "");
    this->Options()->Restore(kVerify);
    EXPECT_EQ(option->GetValue(), 1);
}

TYPED_TEST_P(AdvancedOptionsContract, RetypedOptionIsOfItsNewType) {
    const auto integer = this->template FindAs<AdvancedIntegerOption>(kVerify);
    this->Options()->DeclareString(kVerify, "yes", "As a text.");
    EXPECT_EQ(this->template FindAs<AdvancedIntegerOption>(kVerify), nullptr);
    const auto text = this->template FindAs<AdvancedStringOption>(kVerify);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->GetValue(), "yes");
    EXPECT_EQ(text->GetDescription(), "As a text.");
    EXPECT_THROW(integer->GetValue(), HostMgmtException);
    EXPECT_THROW(integer->SetValue(1), HostMgmtException);
    EXPECT_EQ(text->GetValue(), "yes");
    text->SetValue("no");
    EXPECT_EQ(this->template FindAs<AdvancedStringOption>(kVerify)->GetValue(), "no");
}

TYPED_TEST_P(AdvancedOptionsContract, RestoreBringsTheDefaultBack) {
    this->template FindAs<AdvancedIntegerOption>(kVerify)->SetValue(7);
    this->Options()->Restore(kVerify);
    EXPECT_EQ(this->template FindAs<AdvancedIntegerOption>(kVerify)->GetValue(), 1);
}

TYPED_TEST_P(AdvancedOptionsContract, DeclaredOptionsAreFoundAndListed) {
    const auto options = this->Options();
    options->DeclareInteger("Net.Tcp.Retries", 5, "How often.");
    options->DeclareString("Net.Name", "", "");
    options->DeclareString("Motd", "line\n\xff", "");
    const auto root = options->GetRootBranch();
    EXPECT_EQ(root->GetFullName(), "");
    EXPECT_EQ(root->GetBranchNames(), (std::vector<std::string>{"Net", "UserVars"}));
    EXPECT_EQ(root->GetOptionNames(), (std::vector<std::string>{"Motd"}));
    const auto net = root->GetBranch("Net");
    EXPECT_EQ(net->GetFullName(), "Net");
    EXPECT_EQ(net->GetBranchNames(), (std::vector<std::string>{"Tcp"}));
    EXPECT_EQ(net->GetOptionNames(), (std::vector<std::string>{"Name"}));
    EXPECT_EQ(net->GetBranch("Tcp")->GetFullName(), "Net.Tcp");
    EXPECT_EQ(this->template FindAs<AdvancedIntegerOption>("Net.Tcp.Retries")->GetValue(), 5);
    EXPECT_EQ(this->template FindAs<AdvancedStringOption>("Motd")->GetValue(), "line\n\xff");
    options->Remove("Net.Tcp.Retries");
    EXPECT_EQ(net->GetBranch("Tcp"), nullptr);
    options->Restore("Net.Name");
    EXPECT_EQ(root->GetBranch("Net"), nullptr);
    options->Remove("Net.Name");
}

TYPED_TEST_P(AdvancedOptionsContract, NamesMustBeFullNames) {
    for (const std::string name :
         {"", ".", "a.", ".a", "a..b", "a b", "a/b", "a:b", "a@b", "a[b", "a`b", "a{b", "index", "a\nb", "\xc3\xbc"}) {
        EXPECT_THROW(this->Options()->DeclareInteger(name, 1, ""), HostMgmtException) << name;
        EXPECT_THROW(this->Options()->DeclareString(name, "", ""), HostMgmtException) << name;
        EXPECT_THROW(this->Options()->Remove(name), HostMgmtException) << name;
        EXPECT_THROW(this->Options()->Restore(name), HostMgmtException) << name;
    }
    EXPECT_EQ(this->Options()->GetRootBranch()->GetBranchNames(), (std::vector<std::string>{"UserVars"}));
}

TYPED_TEST_P(AdvancedOptionsContract, StoredTextThatIsNoIntegerIsAnError) {
    const auto option = this->template FindAs<AdvancedIntegerOption>(kVerify);
    for (const std::string text : {"", " 1", "1 ", "+1", "0x1", "one", "1.0", "9223372036854775808", "1\n"}) {
        this->WriteRecord(kVerify, {{"type", "integer"}, {"value", text}});
        EXPECT_THROW(option->GetValue(), HostMgmtException) << "'" << text << "'";
    }
    this->WriteRecord(kVerify, {{"type", "integer"}});
    EXPECT_THROW(option->GetValue(), HostMgmtException);
    option->SetValue(0);
    EXPECT_EQ(option->GetValue(), 0);
}

TYPED_TEST_P(AdvancedOptionsContract, StoredTypeThatIsUnknownIsAnError) {
    this->WriteRecord(kVerify, {{"type", "float"}, {"value", "1"}});
    const auto branch = this->Options()->GetRootBranch()->GetBranch("UserVars");
    ASSERT_NE(branch, nullptr);
    EXPECT_THROW(branch->GetOption("ActiveDirectoryVerifyAPXCertificate"), HostMgmtException);
}

TYPED_TEST_P(AdvancedOptionsContract, RecordsWrittenByAToolAreRead) {
    this->WriteRecord(kVerify, {{"type", "integer"}, {"value", "-7"}, {"description", "By hand."}});
    EXPECT_EQ(this->template FindAs<AdvancedIntegerOption>(kVerify)->GetValue(), -7);
    EXPECT_EQ(this->Find(kVerify)->GetDescription(), "By hand.");
    this->WriteRecord(kVerify, {{"type", "removed"}});
    EXPECT_EQ(this->Find(kVerify), nullptr);
}

REGISTER_TYPED_TEST_SUITE_P(AdvancedOptionsContract, EveryHostVerifiesTheProxysCertificateByDefault,
                            AnyIntegerIsStoredAtOnce, MissingBranchesAndOptionsAreNull,
                            RemovedOptionIsMissingAndSoIsItsEmptyBranch, RetypedOptionIsOfItsNewType,
                            RestoreBringsTheDefaultBack, DeclaredOptionsAreFoundAndListed, NamesMustBeFullNames,
                            StoredTextThatIsNoIntegerIsAnError, StoredTypeThatIsUnknownIsAnError,
                            RecordsWrittenByAToolAreRead);

#endif  // TESTS_CONTRACT_ADVANCED_OPTIONS_CONTRACT_H_
