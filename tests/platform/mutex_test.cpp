#include "platform/mutex.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/child_process.h"

namespace corvane::platform {
namespace {

using test::ReadByteWithin;
using test::SpawnChild;
using test::WaitChild;

// A name of this run only, so that reruns and parallel runs don't meet.
std::string UniqueName(const char* what) { return "test." + std::to_string(getpid()) + "." + what; }

std::string ObjectName(const std::string& name) {
  return "/corvane." + std::to_string(getuid()) + "." + name;
}

// Removes the shared object of a test mutex when the test ends.
struct ScopedName {
  explicit ScopedName(const char* what) : name(UniqueName(what)) {}
  ~ScopedName() { shm_unlink(ObjectName(name).c_str()); }
  const char* c_str() const { return name.c_str(); }
  std::string name;
};

struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(fd, O_CLOEXEC), 0); }
  ~Pipe() { CloseRead(), CloseWrite(); }
  void CloseRead() { if (fd[0] >= 0) close(fd[0]), fd[0] = -1; }
  void CloseWrite() { if (fd[1] >= 0) close(fd[1]), fd[1] = -1; }
  int fd[2] = {-1, -1};
};

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

class MutexKinds : public ::testing::TestWithParam<bool> {};

TEST_P(MutexKinds, IsRecursiveAndExcludesOtherThreads) {
  ScopedName name("recursive");
  Mutex* mutex = CreateMutex(GetParam() ? name.c_str() : nullptr);
  ASSERT_NE(mutex, nullptr);
  ExpectExcludesAnotherThread(mutex, mutex);
  ExpectExcludesAnotherThread(mutex, mutex);  // the counts came back to zero
  CloseMutex(mutex);
}

INSTANTIATE_TEST_SUITE_P(Platform, MutexKinds, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Named" : "Unnamed"; });

TEST(NamedMutex, HandlesOfOneNameAreOneMutex) {
  ScopedName name("twohandles");
  Mutex* a = CreateMutex(name.c_str());
  Mutex* b = CreateMutex(name.c_str());
  ASSERT_TRUE(a && b);
  ExpectExcludesAnotherThread(a, b);
  CloseMutex(a);  // b stays usable
  ExpectExcludesAnotherThread(b, b);
  // A different name is a different mutex: another process gets it at once.
  ScopedName other("unrelated");
  Pipe report;
  WaitMutex(b);
  EXPECT_EQ(WaitChild(SpawnChild("take " + other.name, -1, report.fd[1]), 60), 0);
  ReleaseMutex(b);
  CloseMutex(b);
}

TEST(NamedMutex, ObjectIsPerUserAndOutlivesItsHandles) {
  ScopedName name("object");
  Mutex* mutex = CreateMutex(name.c_str());
  ASSERT_NE(mutex, nullptr);
  CloseMutex(mutex);
  const int fd = shm_open(ObjectName(name.name).c_str(), O_RDONLY, 0);
  EXPECT_GE(fd, 0) << ObjectName(name.name);
  if (fd >= 0) close(fd);
}

// Objects as a creator may leave them when it dies half-way through.
enum class Leftover { Empty, Zeroed, Garbage };

class HalfMadeObject : public ::testing::TestWithParam<Leftover> {};

TEST_P(HalfMadeObject, IsFinishedByTheNextOpener) {
  ScopedName name("halfmade");
  const int fd = shm_open(ObjectName(name.name).c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  ASSERT_GE(fd, 0);
  if (GetParam() != Leftover::Empty) {
    std::vector<unsigned char> bytes(4096, GetParam() == Leftover::Garbage ? 0xA5 : 0);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  close(fd);
  Mutex* mutex = CreateMutex(name.c_str());
  ASSERT_NE(mutex, nullptr);
  ExpectExcludesAnotherThread(mutex, mutex);
  CloseMutex(mutex);
}

INSTANTIATE_TEST_SUITE_P(Platform, HalfMadeObject,
                         ::testing::Values(Leftover::Empty, Leftover::Zeroed, Leftover::Garbage));

TEST(MutexInput, NullHandleAndUnusableNames) {
  WaitMutex(nullptr);
  ReleaseMutex(nullptr);
  CloseMutex(nullptr);
  EXPECT_EQ(CreateMutex("no/slashes"), nullptr);
  EXPECT_EQ(CreateMutex(std::string(300, 'x').c_str()), nullptr);
  Mutex* empty = CreateMutex("");  // no name: private
  ASSERT_NE(empty, nullptr);
  ExpectExcludesAnotherThread(empty, empty);
  CloseMutex(empty);
}

TEST(NamedMutexAcrossProcesses, ExcludesAnotherProcess) {
  ScopedName name("twoprocesses");
  Mutex* mutex = CreateMutex(name.c_str());
  ASSERT_NE(mutex, nullptr);
  WaitMutex(mutex);
  Pipe report;
  const pid_t child = SpawnChild("take " + name.name, -1, report.fd[1]);
  ASSERT_GT(child, 0);
  report.CloseWrite();
  EXPECT_EQ(ReadByteWithin(report.fd[0], 300), -1) << "child took a held mutex";
  ReleaseMutex(mutex);
  EXPECT_EQ(ReadByteWithin(report.fd[0], 60000), 't');
  EXPECT_EQ(WaitChild(child, 60), 0);
  CloseMutex(mutex);
}

TEST(NamedMutexAcrossProcesses, ManyCreatorsAtOnceShareOneWorkingMutex) {
  constexpr int kChildren = 6, kIncrements = 300;
  ScopedName name("creators");
  const std::string counterName = "/corvane-test." + std::to_string(getpid()) + ".counter";
  const int fd = shm_open(counterName.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, sizeof(int64_t)), 0);
  void* map = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, fd, 0);
  close(fd);
  ASSERT_NE(map, MAP_FAILED);
  Pipe start;  // every child blocks on it; closing it starts them all at once
  std::vector<pid_t> children;
  for (int i = 0; i < kChildren; ++i) {
    children.push_back(SpawnChild("count " + name.name + " " + counterName + " " + std::to_string(kIncrements),
                                  start.fd[0], -1));
    ASSERT_GT(children.back(), 0);
  }
  start.CloseWrite();
  for (pid_t child : children) EXPECT_EQ(WaitChild(child, 120), 0);
  EXPECT_EQ(*static_cast<const int64_t*>(map), int64_t{kChildren} * kIncrements);
  munmap(map, sizeof(int64_t));
  shm_unlink(counterName.c_str());
}

TEST(NamedMutexAcrossProcesses, ProcessKilledWhileHoldingDoesNotBlockOthers) {
  ScopedName name("abandoned");
  Pipe report;
  const pid_t holder = SpawnChild("hold " + name.name, -1, report.fd[1]);
  ASSERT_GT(holder, 0);
  ASSERT_EQ(ReadByteWithin(report.fd[0], 60000), 'h');
  kill(holder, SIGKILL);
  EXPECT_EQ(WaitChild(holder, 60), -1);
  // The next process takes the abandoned mutex over; a hang would end in -1.
  const pid_t next = SpawnChild("take " + name.name, -1, report.fd[1]);
  ASSERT_GT(next, 0);
  ASSERT_EQ(WaitChild(next, 60), 0);
  EXPECT_EQ(ReadByteWithin(report.fd[0], 0), 't');
  // And the mutex is sound afterwards.
  Mutex* mutex = CreateMutex(name.c_str());
  ASSERT_NE(mutex, nullptr);
  ExpectExcludesAnotherThread(mutex, mutex);
  CloseMutex(mutex);
}

}  // namespace
}  // namespace corvane::platform
