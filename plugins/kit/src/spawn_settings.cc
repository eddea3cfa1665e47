#include "pluginkit/spawn_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <new>

namespace nimbrel::kit {
namespace {

// Without it the program would start with what it must not have.
void Require(int error) {
    if (error != 0) throw std::bad_alloc();
}

// posix_spawn(3) writes to none of the texts.
std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

SpawnSettings::SpawnSettings(Empty) {
    posix_spawn_file_actions_init(&_actions);
    posix_spawnattr_init(&_attributes);
}

SpawnSettings::SpawnSettings(int output) : SpawnSettings(Empty()) {
    Require(posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    SendOutput(STDOUT_FILENO, output);
    SendOutput(STDERR_FILENO, output);
    Require(posix_spawn_file_actions_addclosefrom_np(&_actions, STDERR_FILENO + 1));
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&_attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&_attributes, &signals);
    posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

SpawnSettings::~SpawnSettings() {
    posix_spawn_file_actions_destroy(&_actions);
    posix_spawnattr_destroy(&_attributes);
}

void SpawnSettings::SendOutput(int number, int output) {
    Require(output < 0 ? posix_spawn_file_actions_addopen(&_actions, number, "/dev/null", O_WRONLY, 0)
                       : posix_spawn_file_actions_adddup2(&_actions, output, number));
}

pid_t SpawnSettings::Start(const std::vector<std::string>& words, const std::vector<std::string>& environment) const {
    pid_t child = -1;
    const int error = posix_spawn(&child, words.front().c_str(), &_actions, &_attributes, Pointers(words).data(),
                                  Pointers(environment).data());
    if (error == 0) return child;
    errno = error;
    return -1;
}

}  // namespace nimbrel::kit
