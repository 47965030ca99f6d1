// Mutexes: recursive and exclusive between threads, of every kind; named ones
// also between processes, with many creators at once, a holder killed while it
// held, and objects that a creator dying half-way left behind.
#include "platform/mutex.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace corvane::platform {
namespace {

using namespace std::chrono_literals;

// A name of this run only; its shared object goes with the test.
struct Name {
  explicit Name(const char* what) : name("test." + std::to_string(getpid()) + "." + what) {}
  ~Name() { shm_unlink(Object().c_str()); }
  std::string Object() const { return "/corvane." + std::to_string(getuid()) + "." + name; }
  std::string name;
};

// Waits up to 20 s for `done`.
template <typename Done>
bool Within20s(Done done) {
  for (auto end = std::chrono::steady_clock::now() + 20s; !done(); std::this_thread::sleep_for(5ms))
    if (std::chrono::steady_clock::now() > end) return false;
  return true;
}

// This thread holds `mine` twice; another must not get `theirs` until both
// holds are gone. The pauses only give a faulty lock its chance.
void ExpectExcludes(Mutex* mine, Mutex* theirs) {
  WaitMutex(mine), WaitMutex(mine);
  std::atomic<bool> entered{false};
  std::thread other([&] { WaitMutex(theirs), entered = true, ReleaseMutex(theirs); });
  for (int held = 2; held > 0; --held, ReleaseMutex(mine)) {
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(entered) << "entered while held " << held << " times";
  }
  other.join();
}

TEST(Mutex, EveryKindIsRecursiveAndExclusive) {
  // A name's object found in place, as a creator dying half-way may leave it:
  // none (-2), empty (-1), else 4096 bytes of that value.
  const std::pair<const char*, int> kinds[] = {{nullptr, -2}, {"", -2}, {"x", -2},
                                               {"x", -1},     {"x", 0}, {"x", 0xA5}};
  for (const auto& [name, leftover] : kinds) {
    Name named("kind");
    if (leftover > -2) {
      const int fd = shm_open(named.Object().c_str(), O_RDWR | O_CREAT, 0600);
      const std::string bytes(leftover < 0 ? 0 : 4096, char(leftover));
      ASSERT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
      close(fd);
    }
    Mutex* mutex = CreateMutex(name && *name ? named.name.c_str() : name);
    ASSERT_NE(mutex, nullptr) << leftover;
    ExpectExcludes(mutex, mutex);
    ExpectExcludes(mutex, mutex);  // the counts came back to zero
    CloseMutex(mutex);
  }
  WaitMutex(nullptr), ReleaseMutex(nullptr), CloseMutex(nullptr);
  EXPECT_EQ(CreateMutex("no/slashes"), nullptr);
  EXPECT_EQ(CreateMutex(std::string(300, 'x').c_str()), nullptr);
}

// One name, one mutex for every handle and every process of the user: held by
// another process, it keeps this one out until that process is killed, and
// then it passes to the next waiter; it stays sound, and its object stays.
TEST(NamedMutex, IsSharedWithOtherProcessesAndOutlivesAKilledHolder) {
  Name name("shared");
  Mutex *a = CreateMutex(name.name.c_str()), *b = CreateMutex(name.name.c_str());
  ExpectExcludes(a, b);
  int taken[2];
  ASSERT_EQ(pipe(taken), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    Mutex* mutex = CreateMutex(name.name.c_str());
    WaitMutex(mutex);
    for (char byte = 'h';; pause()) (void)!write(taken[1], &byte, 1);
  }
  char byte;
  ASSERT_EQ(read(taken[0], &byte, 1), 1);
  std::atomic<bool> entered{false};
  std::thread waiter([&] { WaitMutex(a), entered = true, ReleaseMutex(a); });
  std::this_thread::sleep_for(100ms);
  EXPECT_FALSE(entered) << "took a mutex another process held";
  kill(holder, SIGKILL), waitpid(holder, nullptr, 0);
  EXPECT_TRUE(Within20s([&] { return entered.load(); }))
      << "the killed holder's mutex never passed on";
  waiter.join();
  ExpectExcludes(b, a);
  CloseMutex(a), CloseMutex(b);
  EXPECT_EQ(access(("/dev/shm" + name.Object()).c_str(), F_OK), 0);
  close(taken[0]), close(taken[1]);
}

// Six processes make one name at once and count to 1800 under it, with a
// read-yield-write that loses counts unless the mutex excludes.
TEST(NamedMutex, ManyCreatorsAtOnceShareOneWorkingMutex) {
  Name name("creators");
  auto* counter = static_cast<volatile int64_t*>(
      mmap(nullptr, 8, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  int start[2];  // closed: every child starts at once
  ASSERT_EQ(pipe(start), 0);
  std::vector<pid_t> children(6);
  for (pid_t& child : children)
    if ((child = fork()) == 0) {
      char byte;
      close(start[1]);
      Mutex* mutex = read(start[0], &byte, 1) == 0 ? CreateMutex(name.name.c_str()) : nullptr;
      for (int k = 0; mutex && k < 300; ++k) {
        WaitMutex(mutex), WaitMutex(mutex);
        const int64_t value = *counter;
        std::this_thread::yield();
        *counter = value + 1;
        ReleaseMutex(mutex), ReleaseMutex(mutex);
      }
      _exit(mutex ? 0 : 1);
    }
  close(start[1]);
  for (pid_t child : children) {
    int status = -1;
    EXPECT_TRUE(Within20s([&] { return waitpid(child, &status, WNOHANG) == child; }));
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(*counter, 1800);
}

}  // namespace
}  // namespace corvane::platform
