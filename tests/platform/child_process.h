// Other processes for the cross-process mutex tests: the test binary runs
// itself again with a role in its environment, and that copy does the one job
// and exits before any test starts.
#pragma once

#include <sys/types.h>

#include <string>

namespace corvane::test {

// Starts this binary as a child with `role` and its arguments separated by
// spaces. `startFd`, if not -1, becomes the child's fd 3 (it starts when it
// reads end-of-file there); `reportFd`, if not -1, its fd 4.
pid_t SpawnChild(const std::string& roleAndArgs, int startFd, int reportFd);

// Exit code of the child, or -1 if it didn't end within `seconds` (it is then
// killed) or ended by a signal.
int WaitChild(pid_t pid, int seconds);

// Reads one byte from `fd` within `milliseconds`; -1 if none came.
int ReadByteWithin(int fd, int milliseconds);

}  // namespace corvane::test
