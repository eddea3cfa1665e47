// The settings of the proxy plug-in "apxhttps", as far as the tool goes by them.
//
//     1  # the proxy in the cellar
//     2  port = 9443
//     3  client-key = "/etc/nimbrel/client.pem"
//
// Line 1 says nothing, as an empty one; the quotes of line 3 may be left out.

#ifndef NIMAUTHCTL_APXHTTPS_SETTINGS_H_
#define NIMAUTHCTL_APXHTTPS_SETTINGS_H_

#include <string>
#include <string_view>

namespace nimbrel::nimauthctl {

inline constexpr char kApxhttpsSettings[] = "/etc/nimbrel/nimauth/apxhttps.conf";

// The value of the key in the file's text, the last one if there are several; empty if there is none. Lines that the
// plug-in refuses are passed over: it says so itself, whenever it is asked.
std::string ApxhttpsSetting(const std::string& text, std::string_view key);

}  // namespace nimbrel::nimauthctl

#endif  // NIMAUTHCTL_APXHTTPS_SETTINGS_H_
