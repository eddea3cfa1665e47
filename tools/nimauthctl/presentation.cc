#include "tools/nimauthctl/presentation.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace nimbrel::nimauthctl {
namespace {

constexpr int kUsualColumns = 80;

bool IsSet(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool CanColor() {
    const char* const terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

int Columns(int descriptor) {
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

}  // namespace

bool UsesColor(const Settings& settings, int descriptor) {
    if (settings.color != ColorUse::Auto) return settings.color == ColorUse::Always;
    return !IsSet("NO_COLOR") && CanColor() && isatty(descriptor) == 1;
}

std::string Present(const Report& report, const Settings& settings) {
    if (settings.json) return report.AsJson();
    const bool colors = UsesColor(settings, STDOUT_FILENO);
    if (isatty(STDOUT_FILENO) != 1) return report.AsText(colors);
    return report.AsTable(Columns(STDOUT_FILENO), colors);
}

std::string PresentFailures(const Report& report, const Settings& settings) {
    std::string text;
    if (settings.json) return text;
    const bool colors = UsesColor(settings, STDERR_FILENO);
    for (const Failure& failure : report.Failures()) text += FailureAsText(failure, colors);
    return text;
}

}  // namespace nimbrel::nimauthctl
