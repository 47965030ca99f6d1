// Operating-system mutexes with the semantics the library relies on:
//  - unnamed: recursive, private to the process;
//  - named: shared by every process of the same user that uses the name,
//    recursive for the owning thread, created race-free by concurrent
//    processes, and taken over when a process died holding it.
// Waits are infinite. A wait that finds the mutex abandoned by a thread or
// process that ended holding it takes it over. Every operation accepts a null
// handle and then does nothing.
#pragma once

namespace corvane::platform {

struct Mutex;

// nullptr name: a private recursive mutex. Returns nullptr on failure.
Mutex* CreateMutex(const char* name);
void WaitMutex(Mutex* mutex);
void ReleaseMutex(Mutex* mutex);
// Drops the handle; the caller must not hold the mutex through it. A named
// mutex's shared object may outlive it.
void CloseMutex(Mutex* mutex);

}  // namespace corvane::platform
