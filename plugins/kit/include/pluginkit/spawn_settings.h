#ifndef NIMBREL_PLUGINKIT_SPAWN_SETTINGS_H_
#define NIMBREL_PLUGINKIT_SPAWN_SETTINGS_H_

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace nimbrel::kit {

// How programs of the host are started: in a session of their own, with no signal held back or ignored, nothing but the
// three standard descriptors open, and only the environment that is given. They read from /dev/null.
class SpawnSettings {
 public:
    // Both outputs go to the open descriptor `output`, or to /dev/null without one. Throws `std::bad_alloc`.
    explicit SpawnSettings(int output = -1);
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings();

    // Starts the program that the first word names by its path. The caller collects it (waitpid(2)). -1, with the reason
    // in `errno`, if it cannot be started.
    pid_t Start(const std::vector<std::string>& words, const std::vector<std::string>& environment) const;

 private:
    struct Empty {};
    explicit SpawnSettings(Empty);

    void SendOutput(int number, int output);

    posix_spawn_file_actions_t _actions = {};
    posix_spawnattr_t _attributes = {};
};

}  // namespace nimbrel::kit

#endif  // NIMBREL_PLUGINKIT_SPAWN_SETTINGS_H_
