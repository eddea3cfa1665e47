#include "pluginkit/rights.h"

#include <sys/xattr.h>

namespace nimbrel::kit {
namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

}  // namespace

bool HasAccessList(const std::string& path) { return getxattr(path.c_str(), kAccessList, nullptr, 0) > 0; }

bool HasAccessList(const Descriptor& file) { return fgetxattr(file.Number(), kAccessList, nullptr, 0) > 0; }

}  // namespace nimbrel::kit
