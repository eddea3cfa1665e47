/* A provider whose modules have several parameters, each too long for a small string. */

#include "authentication/provider_abi.h"

const struct NimauthProviderMetadata ActiveDirectoryClientMetadata = {
    .apiVersion = NIMAUTH_PROVIDER_API_VERSION,
    .pamModule = "pam_worded.so",
    .pamModuleParameters =
        "require_membership_of=CORP\\Administrators use_first_pass_of_the_module_before "
        "the_third_parameter_is_the_longest_of_all",
    .nssModule = "worded",
    .nssModuleParameters = "success=return_when_it_was_found notfound=continue_with_the_next_service"};

const struct NimauthProviderOperations ActiveDirectoryClientOperations = {.tableVersion =
                                                                              NIMAUTH_PROVIDER_TABLE_VERSION};
