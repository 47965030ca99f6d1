#include "platform/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/mutex.h"

extern char** environ;

namespace corvane::test {

namespace {

constexpr char kRoleVariable[] = "CORVANE_PLATFORM_CHILD";

// Roles, each exiting with 0 on success:
//  take <mutex>                 waits, writes 't' to fd 4, releases
//  hold <mutex>                 waits, writes 'h' to fd 4, and never releases
//  count <mutex> <shm> <n>      after end-of-file on fd 3, increments the
//                               counter in <shm> n times under the mutex
int RunRole(const std::string& spec) {
  std::istringstream in(spec);
  std::string role, name;
  in >> role >> name;
  platform::Mutex* mutex = platform::CreateMutex(name.c_str());
  if (mutex == nullptr) return 10;
  if (role == "take" || role == "hold") {
    platform::WaitMutex(mutex);
    const char byte = role[0];
    if (write(4, &byte, 1) != 1) return 11;
    if (role == "hold") {
      for (;;) pause();
    }
    platform::ReleaseMutex(mutex);
  } else if (role == "count") {
    std::string counterName;
    int times = 0;
    in >> counterName >> times;
    const int fd = shm_open(counterName.c_str(), O_RDWR, 0);
    if (fd < 0) return 12;
    void* map = mmap(nullptr, sizeof(int64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (map == MAP_FAILED) return 13;
    char byte;
    ssize_t got;
    while ((got = read(3, &byte, 1)) > 0) {
    }
    if (got < 0) return 15;
    // A read-yield-write increment loses counts unless the mutex excludes.
    volatile int64_t* counter = static_cast<int64_t*>(map);
    for (int i = 0; i < times; ++i) {
      platform::WaitMutex(mutex);
      platform::WaitMutex(mutex);
      const int64_t value = *counter;
      sched_yield();
      *counter = value + 1;
      platform::ReleaseMutex(mutex);
      platform::ReleaseMutex(mutex);
    }
  } else {
    return 14;
  }
  platform::CloseMutex(mutex);
  return 0;
}

// Runs before main when this process is a child, so that no test runs in it.
const bool gRanAsChild = [] {
  if (const char* spec = std::getenv(kRoleVariable)) _exit(RunRole(spec));
  return false;
}();

}  // namespace

pid_t SpawnChild(const std::string& roleAndArgs, int startFd, int reportFd) {
  // Copies above the low numbers first: a dup2 onto the same number would
  // leave close-on-exec set, and one target might be the other's source.
  const int start = startFd >= 0 ? fcntl(startFd, F_DUPFD_CLOEXEC, 100) : -1;
  const int report = reportFd >= 0 ? fcntl(reportFd, F_DUPFD_CLOEXEC, 100) : -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (start >= 0) posix_spawn_file_actions_adddup2(&actions, start, 3);
  if (report >= 0) posix_spawn_file_actions_adddup2(&actions, report, 4);
  std::vector<std::string> env;
  for (char** e = environ; *e != nullptr; ++e) env.emplace_back(*e);
  env.push_back(std::string(kRoleVariable) + "=" + roleAndArgs);
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  char exe[] = "/proc/self/exe";
  char* argv[] = {exe, nullptr};
  pid_t pid = -1;
  if (posix_spawn(&pid, exe, &actions, nullptr, argv, envp.data()) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  if (start >= 0) close(start);
  if (report >= 0) close(report);
  return pid;
}

int WaitChild(pid_t pid, int seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int ReadByteWithin(int fd, int milliseconds) {
  pollfd p{fd, POLLIN, 0};
  unsigned char byte;
  if (poll(&p, 1, milliseconds) != 1 || read(fd, &byte, 1) != 1) return -1;
  return byte;
}

}  // namespace corvane::test
