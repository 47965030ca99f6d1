// Mutexes on pthreads. A named mutex lives in a POSIX shared-memory object
// "/corvane.<uid>.<name>" so that every process of the user that opens the
// name shares it. Within one process a name is mapped once and its handles are
// counted, so that the lock has a single address in the process.
#include "platform/mutex.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

namespace corvane::platform {

namespace {

// Written last by whoever initialises the shared block; any other value means
// that the block was never finished (a creator died or an older layout).
constexpr uint32_t kSharedReady = 0x43564d31;  // "CVM1"

struct SharedBlock {
  std::atomic<uint32_t> ready;
  pthread_mutex_t lock;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free,
              "the ready word is shared between processes");

constexpr size_t kMaxName = 240;  // the object name must fit NAME_MAX with its prefix

}  // namespace

struct Mutex {
  pthread_mutex_t* lock = nullptr;  // &own, or the lock inside `block`
  pthread_mutex_t own;
  SharedBlock* block = nullptr;  // named only: the mapping
  int handles = 0;               // named only: open handles in this process
  Mutex* next = nullptr;         // named only: the process's list of names
  char name[kMaxName + 1] = {};
};

namespace {

// Guards the list of named mutexes mapped by this process.
pthread_mutex_t gNamedListLock = PTHREAD_MUTEX_INITIALIZER;
Mutex* gNamedList = nullptr;

bool InitLock(pthread_mutex_t* lock, bool shared) {
  pthread_mutexattr_t attr;
  if (pthread_mutexattr_init(&attr) != 0) return false;
  bool ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0;
  if (shared) {
    ok = ok && pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
         pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST) == 0;
  }
  ok = ok && pthread_mutex_init(lock, &attr) == 0;
  pthread_mutexattr_destroy(&attr);
  return ok;
}

// Opens or creates the shared object and makes sure that its lock is
// initialised exactly once. Initialisation runs under an exclusive flock on the
// object: the kernel drops that lock with a process that dies, so a creator
// that dies half-way leaves a block that the next opener finishes, and nobody
// waits for it forever. Nobody touches the pthread lock before it is ready.
SharedBlock* MapShared(const char* name) {
  char objectName[kMaxName + 64];
  std::snprintf(objectName, sizeof objectName, "/corvane.%u.%s", static_cast<unsigned>(getuid()),
                name);
  const int fd = shm_open(objectName, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  int locked;
  while ((locked = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
  }
  SharedBlock* block = nullptr;
  struct stat st;
  if (locked == 0 && fstat(fd, &st) == 0 &&
      (st.st_size >= static_cast<off_t>(sizeof(SharedBlock)) ||
       ftruncate(fd, sizeof(SharedBlock)) == 0)) {
    void* p = mmap(nullptr, sizeof(SharedBlock), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (p != MAP_FAILED) {
      block = static_cast<SharedBlock*>(p);
      if (block->ready.load(std::memory_order_acquire) != kSharedReady) {
        if (InitLock(&block->lock, true)) {
          block->ready.store(kSharedReady, std::memory_order_release);
        } else {
          munmap(block, sizeof(SharedBlock));
          block = nullptr;
        }
      }
    }
  }
  // Unlock explicitly: the mapping keeps the open file, and with it the flock,
  // alive after close.
  if (locked == 0) flock(fd, LOCK_UN);
  close(fd);
  return block;
}

Mutex* OpenNamed(const char* name) {
  if (std::strlen(name) > kMaxName) return nullptr;
  pthread_mutex_lock(&gNamedListLock);
  Mutex* m = gNamedList;
  while (m != nullptr && std::strcmp(m->name, name) != 0) m = m->next;
  if (m == nullptr) {
    SharedBlock* block = MapShared(name);
    if (block != nullptr && (m = new (std::nothrow) Mutex) == nullptr)
      munmap(block, sizeof(SharedBlock));
    if (m != nullptr) {
      m->block = block;
      m->lock = &block->lock;
      std::strcpy(m->name, name);
      m->next = gNamedList;
      gNamedList = m;
    }
  }
  if (m != nullptr) ++m->handles;
  pthread_mutex_unlock(&gNamedListLock);
  return m;
}

void CloseNamed(Mutex* mutex) {
  pthread_mutex_lock(&gNamedListLock);
  const bool last = --mutex->handles == 0;
  if (last) {
    Mutex** link = &gNamedList;
    while (*link != mutex) link = &(*link)->next;
    *link = mutex->next;
  }
  pthread_mutex_unlock(&gNamedListLock);
  if (last) {
    // The shared object stays for other processes and later opens.
    munmap(mutex->block, sizeof(SharedBlock));
    delete mutex;
  }
}

}  // namespace

Mutex* CreateMutex(const char* name) {
  // An empty name, like none, asks for a private mutex.
  if (name != nullptr && name[0] != '\0') return OpenNamed(name);
  Mutex* m = new (std::nothrow) Mutex;
  if (m == nullptr) return nullptr;
  if (!InitLock(&m->own, false)) {
    delete m;
    return nullptr;
  }
  m->lock = &m->own;
  return m;
}

void WaitMutex(Mutex* mutex) {
  if (mutex == nullptr) return;
  // A holder that died abandoned the lock; its data may be half-updated, but
  // the caller goes on as the new owner rather than waiting forever.
  if (pthread_mutex_lock(mutex->lock) == EOWNERDEAD) pthread_mutex_consistent(mutex->lock);
}

void ReleaseMutex(Mutex* mutex) {
  if (mutex == nullptr) return;
  pthread_mutex_unlock(mutex->lock);
}

void CloseMutex(Mutex* mutex) {
  if (mutex == nullptr) return;
  if (mutex->block != nullptr) {
    CloseNamed(mutex);
    return;
  }
  pthread_mutex_destroy(&mutex->own);
  delete mutex;
}

}  // namespace corvane::platform
