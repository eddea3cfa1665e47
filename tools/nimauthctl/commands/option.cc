// nimauthctl option: the host's advanced options.

#include <limits>
#include <memory>
#include <string>

#include "hostmgmt/advanced_options.h"
#include "tools/nimauthctl/commands/advanced_options.h"
#include "tools/nimauthctl/commands/commands.h"
#include "tools/nimauthctl/failure.h"
#include "tools/nimauthctl/numbers.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {
namespace {

using HostMgmt::Adv::AdvancedIntegerOption;
using HostMgmt::Adv::AdvancedOption;
using HostMgmt::Adv::AdvancedStringOption;
using HostMgmt::Adv::OptionBranch;

std::shared_ptr<OptionBranch> RootBranch() {
    return HostMgmt::HostFactory::GetHost()->GetAdvancedOptions()->GetRootBranch();
}

void AddNames(const OptionBranch& branch, std::vector<std::string>& names) {
    const std::string prefix = branch.GetFullName().empty() ? "" : branch.GetFullName() + '.';
    for (const std::string& name : branch.GetOptionNames()) names.push_back(prefix + name);
    for (const std::string& name : branch.GetBranchNames()) {
        if (const auto below = branch.GetBranch(name)) AddNames(*below, names);
    }
}

std::shared_ptr<AdvancedOption> FindOption(const std::string& fullName) {
    std::shared_ptr<OptionBranch> branch = RootBranch();
    std::size_t begin = 0;
    for (std::size_t dot; branch && (dot = fullName.find('.', begin)) != std::string::npos; begin = dot + 1) {
        branch = branch->GetBranch(fullName.substr(begin, dot - begin));
    }
    auto option = branch == nullptr ? nullptr : branch->GetOption(fullName.substr(begin));
    if (option == nullptr) {
        throw ToolError(ExitCode::Failure, "there is no advanced option '" + fullName + "'", "",
                        "see 'nimauthctl option list'");
    }
    return option;
}

void AddOption(const std::string& name, Report& report) {
    const AdvancedOptionValue option = ReadAdvancedOption(name);
    Row& row = report.AddRow("option", "options", name).Text("type", option.type);
    if (option.IsInteger()) {
        row.Number("value", option.integer);
    } else {
        row.Text("value", option.text);
    }
    row.Text("description", option.description);
}

ExitCode List(const Invocation&, Report& report) {
    report.List("option", "options");
    for (const std::string& name : AdvancedOptionNames()) AddOption(name, report);
    return ExitCode::Ok;
}

void ShowOption(const std::string& name, Report& report) {
    const AdvancedOptionValue option = ReadAdvancedOption(name);
    report.Text("option", name);
    report.Text("type", option.type);
    if (option.IsInteger()) {
        report.Number("value", option.integer);
    } else {
        report.Text("value", option.text);
    }
    report.TextOrNone("description", option.description);
}

ExitCode Get(const Invocation& invocation, Report& report) {
    ShowOption(invocation.Text("NAME"), report);
    return ExitCode::Ok;
}

ExitCode Set(const Invocation& invocation, Report& report) {
    WriteAdvancedOption(invocation.Text("NAME"), invocation.Text("VALUE"));
    ShowOption(invocation.Text("NAME"), report);
    return ExitCode::Ok;
}

constexpr char kAbout[] =
    "Advanced options are named switches of the host, kept in its configuration store. An option holds an integer or a "
    "string. UserVars.ActiveDirectoryVerifyAPXCertificate says whether the certificate of the authentication proxy is "
    "verified (1) or not (0).";

}  // namespace

std::vector<std::string> AdvancedOptionNames() {
    std::vector<std::string> names;
    AddNames(*RootBranch(), names);
    return names;
}

AdvancedOptionValue ReadAdvancedOption(const std::string& name) {
    const auto option = FindOption(name);
    if (const auto* const integer = dynamic_cast<const AdvancedIntegerOption*>(option.get())) {
        return {"integer", integer->GetValue(), "", option->GetDescription()};
    }
    return {"string", 0, dynamic_cast<const AdvancedStringOption&>(*option).GetValue(), option->GetDescription()};
}

void WriteAdvancedOption(const std::string& name, const std::string& value) {
    using Limits = std::numeric_limits<std::int64_t>;
    const auto option = FindOption(name);
    if (auto* const integer = dynamic_cast<AdvancedIntegerOption*>(option.get())) {
        integer->SetValue(ParseInteger("VALUE", value, Limits::min(), Limits::max()));
    } else {
        dynamic_cast<AdvancedStringOption&>(*option).SetValue(value);
    }
}

Command OptionListCommand() {
    return {.name = "option list",
            .summary = "list the advanced options with their values",
            .description = kAbout,
            .examples = {{"nimauthctl option list", "every option"}},
            .exitCodes = {ExitCode::Permission},
            .run = List};
}

Command OptionGetCommand() {
    return {.name = "option get",
            .summary = "show one advanced option",
            .description = kAbout,
            .arguments = {{"NAME", "the option's full name"}},
            .examples = {{"nimauthctl option get UserVars.ActiveDirectoryVerifyAPXCertificate",
                          "is the proxy's certificate verified?"}},
            .exitCodes = {ExitCode::Permission},
            .run = Get};
}

Command OptionSetCommand() {
    return {.name = "option set",
            .summary = "change one advanced option",
            .description = kAbout,
            .arguments = {{"NAME", "the option's full name"}, {"VALUE", "the new value"}},
            .examples = {{"nimauthctl option set UserVars.ActiveDirectoryVerifyAPXCertificate 0",
                          "trust any proxy, in a laboratory"}},
            .exitCodes = {ExitCode::Permission},
            .changes = true,
            .run = Set};
}

}  // namespace nimbrel::nimauthctl
