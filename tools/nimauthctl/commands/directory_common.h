// What the commands of the embedded directory have in common.

#ifndef NIMAUTHCTL_COMMANDS_DIRECTORY_COMMON_H_
#define NIMAUTHCTL_COMMANDS_DIRECTORY_COMMON_H_

#include <string>
#include <vector>

#include "embeddeddirectory/directory.h"
#include "tools/nimauthctl/command.h"
#include "tools/nimauthctl/report.h"

namespace nimbrel::nimauthctl {

// The host's directory file, which must exist.
embedded::Directory OpenDirectory();

// One row for one object, the same in every command.
void AddDomainRow(const embedded::DomainInfo& domain, Report& report);
void AddUserRow(const embedded::UserInfo& user, Report& report);
void AddUnitRow(const embedded::OrganizationalUnitInfo& unit, Report& report);
void AddComputerRow(const embedded::ComputerInfo& computer, Report& report);
void AddTrustRow(const embedded::TrustInfo& trust, Report& report);
void AddControllerRow(const embedded::ControllerInfo& controller, Report& report);
void AddRehearsalRow(const embedded::RehearsalInfo& rehearsal, Report& report);

// The description of a command: what it does, then what the embedded directory is and is not.
std::string Describe(const std::string& what);

extern const Argument kDomainArgument;
extern const Argument kOptionalDomainArgument;

// What any change of the directory may end with.
std::vector<ExitCode> ChangeExitCodes();

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_DIRECTORY_COMMON_H_
