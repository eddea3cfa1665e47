#include "tools/nimauthctl/prompt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

#include "tools/nimauthctl/report.h"
#include "tools/nimauthctl/standard_streams.h"

namespace nimbrel::nimauthctl {
namespace {

constexpr std::array<int, 5> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile std::sig_atomic_t pendingSignal = 0;
std::array<struct sigaction, kSignals.size()> actionsBefore;
sigset_t maskBefore;

void Remember(int number) { pendingSignal = number; }

// They are blocked but while the process waits for input, so that none can slip in between a look and the wait.
void HoldSignals() {
    struct sigaction action {};
    action.sa_handler = Remember;
    sigemptyset(&action.sa_mask);
    sigset_t held;
    sigemptyset(&held);
    for (const int number : kSignals) sigaddset(&held, number);
    pendingSignal = 0;
    pthread_sigmask(SIG_BLOCK, &held, &maskBefore);
    for (std::size_t at = 0; at < kSignals.size(); ++at) sigaction(kSignals[at], &action, &actionsBefore[at]);
}

void ReleaseSignals() {
    for (std::size_t at = 0; at < kSignals.size(); ++at) sigaction(kSignals[at], &actionsBefore[at], nullptr);
    if (pendingSignal != 0) static_cast<void>(raise(pendingSignal));
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

bool WaitForInput(int descriptor) {
    pollfd input{descriptor, POLLIN, 0};
    return ppoll(&input, 1, nullptr, &maskBefore) == 1;
}

}  // namespace

SilentTerminal::SilentTerminal() : _descriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (_descriptor < 0) return;
    HoldSignals();
    if (tcgetattr(_descriptor, &_before) != 0) return;
    termios silent = _before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ICANON | ECHONL;
    _silenced = tcsetattr(_descriptor, TCSAFLUSH, &silent) == 0;
}

SilentTerminal::~SilentTerminal() {
    if (_descriptor < 0) return;
    if (_silenced) tcsetattr(_descriptor, TCSAFLUSH, &_before);
    close(_descriptor);
    ReleaseSignals();
}

void SilentTerminal::Show(const std::string& text) { static_cast<void>(WriteAll(_descriptor, Printable(text))); }

bool SilentTerminal::ReadByte(char* byte) {
    while (pendingSignal == 0) {
        if (WaitForInput(_descriptor)) return read(_descriptor, byte, 1) == 1;
        if (errno != EINTR) return false;
    }
    return false;
}

}  // namespace nimbrel::nimauthctl
