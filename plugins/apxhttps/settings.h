// The plug-in's own settings, /etc/nimbrel/nimauth/apxhttps.conf, which need not exist:
//
//     port = "8443"
//     connect-seconds = "10"
//     total-seconds = "60"
//     client-certificate = "/etc/nimbrel/nimauth/proxy-client.pem"
//     client-key = "/etc/nimbrel/nimauth/proxy-client.key"
//
// The last two are for a service that asks its clients for a certificate; both are PEM files, the key without a pass phrase.

#ifndef NIMBREL_APXHTTPS_SETTINGS_H_
#define NIMBREL_APXHTTPS_SETTINGS_H_

#include <string>

namespace nimbrel::apxhttps {

inline constexpr char kSettingsFile[] = "/etc/nimbrel/nimauth/apxhttps.conf";

struct Settings {
    long port = 8443;
    long connectSeconds = 10;
    long totalSeconds = 60;  // of one question and its answer
    std::string clientCertificate;
    std::string clientKey;
};

// Throws `std::runtime_error` "FILE:LINE: what is wrong".
Settings ParseSettings(const std::string& text, const std::string& file);

// The settings as they are now; a missing file gives the values above.
Settings ReadSettings(const std::string& file = kSettingsFile);

}  // namespace nimbrel::apxhttps

#endif  // NIMBREL_APXHTTPS_SETTINGS_H_
