// /usr/libexec/nimauth/logins-helper: what `nimauthctl logins` does in processes of their own. Not for people.
//
//   watch ID         takes change ID back at its deadline unless it is confirmed; returns as soon as it watches
//   watch-over ID    the same, started by a timer at the deadline
//   open FOLDER SERVICE...   tries to open PAM services of a copy
//   enter FOLDER SERVICE...  tries to log root in through them, to change the password and to open a session
//   load FILE...             tries to load shared objects
//   authselect FOLDER WORD...  lets authselect work on a copy

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/loginfiles/logins_error.h"
#include "tools/loginfiles/numbers.h"
#include "tools/loginfiles/plan.h"
#include "tools/loginfiles/trial.h"
#include "tools/loginfiles/watch.h"

namespace {

int CarryOut(const std::vector<std::string>& words) {
    using namespace nimbrel::logins;
    const std::string task = words.empty() ? "" : words[0];
    const std::string first = words.size() < 2 ? "" : words[1];
    const std::vector<std::string> rest(words.begin() + (words.size() < 2 ? 0 : 2), words.end());
    if (task == "watch" || task == "watch-over") return Watch(LeadingNumber<int>(first), task == "watch-over");
    if (task == "open") return OpenServices(first, rest);
    if (task == "enter") return EnterServices(first, rest);
    if (task == "load") return LoadLibraries({words.begin() + 1, words.end()});
    if (task == "authselect") {
        MakeAuthselectCandidate(first, rest);
        return 0;
    }
    static_cast<void>(std::fputs("logins-helper belongs to 'nimauthctl logins'\n", stderr));
    return 2;
}

int Guarded(const std::vector<std::string>& words) {
    try {
        return CarryOut(words);
    } catch (const nimbrel::logins::LoginsError& error) {
        static_cast<void>(std::fprintf(stderr, "logins-helper: %s\n", error.what()));
        if (!error.Remedy().empty()) {
            static_cast<void>(std::fprintf(stderr, "%s%s\n", nimbrel::logins::kRemedyMark, error.Remedy().c_str()));
        }
        return 1;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "logins-helper: %s\n", error.what()));
        return 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    umask(022);  // for the programs that it runs, too
    const int status = Guarded({argv + (argc > 0 ? 1 : 0), argv + argc});
    // Handlers that a module has left for the exit do not run.
    static_cast<void>(std::fflush(nullptr));
    _exit(status);
}
