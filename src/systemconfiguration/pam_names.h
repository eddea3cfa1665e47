// The words of a PAM policy file.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_PAM_NAMES_H_
#define NIMAUTH_SYSTEMCONFIGURATION_PAM_NAMES_H_

#include <string_view>

#include "systemconfiguration/names.h"
#include "systemconfiguration/pam_policy.h"

namespace SystemConfiguration {

inline constexpr NamedValue<PAMFacility::Facility> kFacilityNames[] = {{PAMFacility::Account, "account"},
                                                                       {PAMFacility::Auth, "auth"},
                                                                       {PAMFacility::Password, "password"},
                                                                       {PAMFacility::Session, "session"}};

inline constexpr NamedValue<PAMControl::Control> kControlNames[] = {
    {PAMControl::Required, "required"}, {PAMControl::Requisite, "requisite"}, {PAMControl::Sufficient, "sufficient"},
    {PAMControl::Optional, "optional"}, {PAMControl::Include, "include"},     {PAMControl::Substack, "substack"}};

// A lone "[" is not a bracket.
inline bool IsBracketed(std::string_view text) { return text.size() > 1 && text.front() == '[' && text.back() == ']'; }

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_PAM_NAMES_H_
