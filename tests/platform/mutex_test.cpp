// Mutexes: recursion and exclusion between threads for every kind; for named
// ones also between processes, with concurrent creators, a holder killed while
// holding, and objects a dying creator left half-made.
#include "platform/mutex.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace corvane::platform {
namespace {

// A name of this run only, so that reruns and parallel runs don't meet; its
// shared object is removed when the test ends.
struct ScopedName {
  explicit ScopedName(const char* what) : name("test." + std::to_string(getpid()) + "." + what) {}
  ~ScopedName() { shm_unlink(Object().c_str()); }
  std::string Object() const { return "/corvane." + std::to_string(getuid()) + "." + name; }
  const char* c_str() const { return name.c_str(); }
  std::string name;
};

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(fd), 0); }
  ~Pipe() { CloseWrite(), close(fd[0]); }
  void CloseWrite() {
    if (fd[1] >= 0) close(fd[1]), fd[1] = -1;
  }
  int fd[2] = {-1, -1};
};

// Runs `job` in a child process that exits with what the job returns, after
// end-of-file on `start` if one is given. No other thread runs at the fork.
// Children open their mutexes themselves: the parent opens none before it.
template <typename Job>
pid_t Child(Job job, Pipe* start = nullptr) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  char byte;
  if (start != nullptr) {
    close(start->fd[1]);
    while (read(start->fd[0], &byte, 1) > 0) {
    }
  }
  _exit(job());
}

// Exit code of the child, or -1 if it ended by a signal or didn't end within
// two minutes (it is then killed).
int WaitChild(pid_t pid) {
  int status = 0;
  for (int i = 0; i < 24000 && waitpid(pid, &status, WNOHANG) == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  if (waitpid(pid, &status, WNOHANG) == 0) kill(pid, SIGKILL), waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// One byte from `fd` within `milliseconds`, or -1.
int ReadByteWithin(int fd, int milliseconds) {
  pollfd p{fd, POLLIN, 0};
  unsigned char byte;
  return poll(&p, 1, milliseconds) == 1 && read(fd, &byte, 1) == 1 ? byte : -1;
}

// A child's job: opens `name`, takes it, reports `byte` on `report`, and then
// releases and closes it (or, `hold`, keeps it until killed).
auto Take(const char* name, const Pipe& report, char byte, bool hold = false) {
  return [=, fd = report.fd[1]] {
    Mutex* mutex = CreateMutex(name);
    if (mutex == nullptr) return 10;
    WaitMutex(mutex);
    if (write(fd, &byte, 1) != 1) return 11;
    while (hold) pause();
    ReleaseMutex(mutex);
    CloseMutex(mutex);
    return 0;
  };
}

// The calling thread takes `mine` twice; another thread must not get `theirs`
// until both holds are released. The pauses only give a faulty lock the
// chance to let the other thread in; nothing depends on their length.
void ExpectExcludesAnotherThread(Mutex* mine, Mutex* theirs) {
  WaitMutex(mine);
  WaitMutex(mine);
  std::atomic<bool> entered{false};
  std::thread other([&] {
    WaitMutex(theirs);
    entered = true;
    ReleaseMutex(theirs);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(entered) << "entered while held twice";
  ReleaseMutex(mine);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(entered) << "entered while still held once";
  ReleaseMutex(mine);
  other.join();
  EXPECT_TRUE(entered);
}

// How a mutex is asked for. For a name, `leftover` is the shared object found
// in place as a creator that died half-way may leave it: -2 none, -1 empty,
// else 4096 bytes of that value.
struct Kind {
  const char* label;
  const char* name;
  int leftover;
};
void PrintTo(const Kind& k, std::ostream* os) { *os << k.label; }

class MutexKinds : public ::testing::TestWithParam<Kind> {};

TEST_P(MutexKinds, IsRecursiveAndExcludesOtherThreads) {
  ScopedName name("kind");
  const Kind& kind = GetParam();
  if (kind.leftover > -2) {
    const int fd = shm_open(name.Object().c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(fd, 0);
    const std::vector<unsigned char> bytes(kind.leftover < 0 ? 0 : 4096,
                                           static_cast<unsigned char>(kind.leftover));
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
  }
  Mutex* mutex = CreateMutex(kind.name && *kind.name ? name.c_str() : kind.name);
  ASSERT_NE(mutex, nullptr);
  ExpectExcludesAnotherThread(mutex, mutex);
  ExpectExcludesAnotherThread(mutex, mutex);  // the counts came back to zero
  CloseMutex(mutex);
}

INSTANTIATE_TEST_SUITE_P(
    Platform, MutexKinds,
    ::testing::Values(Kind{"private", nullptr, -2}, Kind{"empty name: private", "", -2},
                      Kind{"named", "x", -2}, Kind{"over an empty object", "x", -1},
                      Kind{"over a zeroed object", "x", 0}, Kind{"over garbage", "x", 0xA5}));

TEST(MutexInput, NullHandleAndUnusableNames) {
  WaitMutex(nullptr);
  ReleaseMutex(nullptr);
  CloseMutex(nullptr);
  EXPECT_EQ(CreateMutex("no/slashes"), nullptr);
  EXPECT_EQ(CreateMutex(std::string(300, 'x').c_str()), nullptr);
}

TEST(NamedMutex, OneNameIsOneMutexForEveryHandleAndProcess) {
  ScopedName name("shared"), other("unrelated");
  Pipe start, report;
  const pid_t child =
      Child([&] { return Take(other.c_str(), report, 'o')() + Take(name.c_str(), report, 't')(); },
            &start);
  ASSERT_GT(child, 0);
  Mutex* a = CreateMutex(name.c_str());
  Mutex* b = CreateMutex(name.c_str());
  ASSERT_TRUE(a && b);
  ExpectExcludesAnotherThread(a, b);
  CloseMutex(a);  // b stays usable
  ExpectExcludesAnotherThread(b, b);
  // Held here, the name keeps another process out; a different name doesn't.
  WaitMutex(b);
  start.CloseWrite();
  EXPECT_EQ(ReadByteWithin(report.fd[0], 60000), 'o');
  EXPECT_EQ(ReadByteWithin(report.fd[0], 300), -1) << "child took a held mutex";
  ReleaseMutex(b);
  EXPECT_EQ(ReadByteWithin(report.fd[0], 60000), 't');
  EXPECT_EQ(WaitChild(child), 0);
  CloseMutex(b);
  // The per-user object stays for later opens.
  const int fd = shm_open(name.Object().c_str(), O_RDONLY, 0);
  EXPECT_GE(fd, 0) << name.Object();
  close(fd);
}

TEST(NamedMutexAcrossProcesses, ManyCreatorsAtOnceShareOneWorkingMutex) {
  constexpr int kChildren = 6, kIncrements = 300;
  ScopedName name("creators");
  void* map =
      mmap(nullptr, sizeof(int64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(map, MAP_FAILED);
  volatile int64_t* counter = static_cast<int64_t*>(map);
  Pipe start;  // closing it starts every child at once
  std::vector<pid_t> children;
  for (int i = 0; i < kChildren; ++i) {
    children.push_back(Child(
        [&] {
          Mutex* mutex = CreateMutex(name.c_str());
          if (mutex == nullptr) return 10;
          // A read-yield-write increment loses counts unless the mutex excludes.
          for (int k = 0; k < kIncrements; ++k) {
            WaitMutex(mutex);
            WaitMutex(mutex);
            const int64_t value = *counter;
            sched_yield();
            *counter = value + 1;
            ReleaseMutex(mutex);
            ReleaseMutex(mutex);
          }
          CloseMutex(mutex);
          return 0;
        },
        &start));
    ASSERT_GT(children.back(), 0);
  }
  start.CloseWrite();
  for (pid_t child : children) EXPECT_EQ(WaitChild(child), 0);
  EXPECT_EQ(*counter, int64_t{kChildren} * kIncrements);
  munmap(map, sizeof(int64_t));
}

TEST(NamedMutexAcrossProcesses, ProcessKilledWhileHoldingDoesNotBlockOthers) {
  ScopedName name("abandoned");
  Pipe report;
  const pid_t holder = Child(Take(name.c_str(), report, 'h', true));
  ASSERT_GT(holder, 0);
  ASSERT_EQ(ReadByteWithin(report.fd[0], 60000), 'h');
  kill(holder, SIGKILL);
  EXPECT_EQ(WaitChild(holder), -1);
  // The next process takes the abandoned mutex over; a hang would end in -1.
  ASSERT_EQ(WaitChild(Child(Take(name.c_str(), report, 't'))), 0);
  EXPECT_EQ(ReadByteWithin(report.fd[0], 0), 't');
  // And the mutex is sound afterwards.
  Mutex* mutex = CreateMutex(name.c_str());
  ASSERT_NE(mutex, nullptr);
  ExpectExcludesAnotherThread(mutex, mutex);
  CloseMutex(mutex);
}

}  // namespace
}  // namespace corvane::platform
