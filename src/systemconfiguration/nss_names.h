// The databases of the name-service switch.

#ifndef NIMAUTH_SYSTEMCONFIGURATION_NSS_NAMES_H_
#define NIMAUTH_SYSTEMCONFIGURATION_NSS_NAMES_H_

#include "systemconfiguration/names.h"
#include "systemconfiguration/nss_configuration.h"

namespace SystemConfiguration {

inline constexpr NamedValue<NSSDatabase::Database> kDatabaseNames[] = {
    {NSSDatabase::Passwd, "passwd"},       {NSSDatabase::Group, "group"},
    {NSSDatabase::Shadow, "shadow"},       {NSSDatabase::Hosts, "hosts"},
    {NSSDatabase::Netmasks, "netmasks"},   {NSSDatabase::Networks, "networks"},
    {NSSDatabase::Protocols, "protocols"}, {NSSDatabase::Services, "services"},
    {NSSDatabase::Ethers, "ethers"},       {NSSDatabase::Rpc, "rpc"},
    {NSSDatabase::Netgroup, "netgroup"},   {NSSDatabase::Bootparams, "bootparams"},
    {NSSDatabase::Publickey, "publickey"}, {NSSDatabase::Automount, "automount"},
    {NSSDatabase::Aliases, "aliases"}};

}  // namespace SystemConfiguration

#endif  // NIMAUTH_SYSTEMCONFIGURATION_NSS_NAMES_H_
