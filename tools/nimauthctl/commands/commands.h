// What each command's source gives to the command table.

#ifndef NIMAUTHCTL_COMMANDS_COMMANDS_H_
#define NIMAUTHCTL_COMMANDS_COMMANDS_H_

#include "tools/nimauthctl/command.h"

namespace nimbrel::nimauthctl {

Command CheckCommand();
Command JoinCommand();
Command LeaveCommand();
Command StatusCommand();
Command TrustsCommand();
Command ExplainCommand();

Command ControllerListCommand();
Command ControllerPreferCommand();
Command ControllerAnyCommand();

Command UserCanonicalCommand();
Command HostPrincipalCommand();

Command SmartCardListCommand();
Command SmartCardSetCommand();
Command SmartCardChangeCommand();
Command SmartCardDecideCommand();

Command StoreListCommand();
Command StoreShowCommand();
Command StoreSetCommand();

Command ConfigShowCommand();

Command OptionListCommand();
Command OptionGetCommand();
Command OptionSetCommand();

Command LoginsShowCommand();
Command LoginsEnableCommand();
Command LoginsDisableCommand();
Command LoginsConfirmCommand();
Command LoginsUndoCommand();
Command LoginsHistoryCommand();
Command ProxyDomainCommand();
Command ProxyCertImportCommand();
Command ProxyCertShowCommand();

Command DirectoryShowCommand();
Command DirectoryDomainAddCommand();
Command DirectoryDomainRemoveCommand();
Command DirectoryDomainListCommand();
Command DirectoryUserAddCommand();
Command DirectoryUserSetCommand();
Command DirectoryUserRemoveCommand();
Command DirectoryUserListCommand();
Command DirectoryUnitAddCommand();
Command DirectoryUnitRemoveCommand();
Command DirectoryUnitListCommand();
Command DirectoryComputerStageCommand();
Command DirectoryComputerEnableCommand();
Command DirectoryComputerDisableCommand();
Command DirectoryComputerResetCommand();
Command DirectoryComputerRemoveCommand();
Command DirectoryComputerListCommand();
Command DirectoryTrustAddCommand();
Command DirectoryTrustRemoveCommand();
Command DirectoryTrustListCommand();
Command DirectoryControllerAddCommand();
Command DirectoryControllerSetCommand();
Command DirectoryControllerRemoveCommand();
Command DirectoryControllerListCommand();
Command DirectoryRehearseCommand();

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_COMMANDS_COMMANDS_H_
