// What makes a change revert by itself: a process of its own that waits for the deadline and then, unless somebody
// confirmed or undid the change, puts the files back. It runs from before the first file is touched, so that it also
// cleans up after a tool that was killed half-way.

#ifndef NIMBREL_LOGINS_WATCH_H_
#define NIMBREL_LOGINS_WATCH_H_

#include <string>

namespace nimbrel::logins {

inline constexpr char kHelper[] = "/usr/libexec/nimauth/logins-helper";

// Starts the watcher of change `id`, which will be `milliseconds` of waiting away from its deadline, and returns when it
// is armed: a transient timer where systemd runs, so that it outlives the log-in session of whoever runs the tool, else
// a detached process. Throws `LoginsError` if neither can be had.
void StartWatcher(int id, long milliseconds);

// The watcher's own work (the helper calls it): returns 0 in the calling process as soon as the watch is on, and goes on
// in a detached one. With `now` it does not wait: the timer has done that.
int Watch(int id, bool now);

}  // namespace nimbrel::logins

#endif  // NIMBREL_LOGINS_WATCH_H_
