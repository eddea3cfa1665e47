// Where plug-ins lie, and opening one.

#ifndef NIMAUTH_ACTIVEDIRECTORY_PLUGIN_FILE_H_
#define NIMAUTH_ACTIVEDIRECTORY_PLUGIN_FILE_H_

#include <string>

namespace nimbrel::authentication {

// Opens /usr/libexec/nimauth/lib64/lib<name>.so, or else /usr/libexec/nimauth/lib<name>.so; the caller closes it. Throws
// `IOError` with `failure` followed by the loader's text for the second attempt.
void* OpenPluginFile(const std::string& name, const std::string& failure);

}  // namespace nimbrel::authentication

#endif  // NIMAUTH_ACTIVEDIRECTORY_PLUGIN_FILE_H_
