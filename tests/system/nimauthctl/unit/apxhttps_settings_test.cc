#include "tools/nimauthctl/apxhttps_settings.h"

#include <gtest/gtest.h>

namespace nimbrel::nimauthctl {
namespace {

struct SettingCase {
    const char* text;
    const char* port;
};

TEST(ApxhttpsSettingTest, IsReadAsThePluginReadsIt) {
    constexpr SettingCase kCases[] = {{"port = 9443\n", "9443"},
                                      {"port=\"9443\"", "9443"},
                                      {"# the proxy in the cellar\n\n\tport =\t9443 \r\n", "9443"},
                                      {"port = 1\nport = 2\n", "2"},
                                      {"connect-seconds = 5\nport = 9443\n", "9443"},
                                      {"port = \"\"\n", ""},
                                      {"port\n", ""},
                                      {"#port = 9443\n", ""},
                                      {"support = 9443\n", ""},
                                      {"", ""}};
    for (const SettingCase& row : kCases) EXPECT_EQ(row.port, ApxhttpsSetting(row.text, "port")) << row.text;
}

}  // namespace
}  // namespace nimbrel::nimauthctl
