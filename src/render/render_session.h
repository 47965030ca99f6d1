// A render session draws a stream of BGR24 frames on one window. Surfaces
// circulate in a ring: a frame takes one from the free list (or makes one),
// fills it and appends it to the display list; the presentation tick takes it
// from there, shows it and gives it back to the free list.
//
// Locks: the five mutexes have fixed names, so every session of every process
// of the user shares them. Nesting happens only as "RenderInitMutex" then
// "RenderDeviceMutex" (device rebuild); a tick holds "RenderMutex" throughout
// and one of the others at a time inside it.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/mutex.h"
#include "platform/timer.h"
#include "render/direct3d.h"
#include "render/render.h"

struct SwsContext;

namespace corvane::render {

enum RenderMode : int32_t {
  RenderModeIdle = 0,     // new, timer failed, or a tick stopped presenting: direct path
  RenderModeQueued = 1,   // the timer runs and has ticked: queued path
  RenderModeRebuild = 2,  // rebuild or close going on; lasting state at rate 0: direct path
  RenderModeArmed = 3,    // the timer was started and has not ticked yet: queued path
};

// One link of a circular doubly linked list whose head carries no surface.
// A node owns one reference to its surface.
struct SurfaceNode {
  SurfaceNode* next = nullptr;
  SurfaceNode* previous = nullptr;
  IDirect3DSurface9* surface = nullptr;
};

// What a session borrows from the process: the shared display object, the
// mutex that keeps device creation one at a time, and the timer facility
// (the platform's own, or a test's).
struct RenderProcess {
  IDirect3D9* direct3d = nullptr;
  platform::Mutex* renderInitMutex = nullptr;
  platform::Timer* (*createTimer)(platform::TimerCallback callback, void* context, uint32_t dueMs,
                                  uint32_t periodMs) = platform::CreateTimer;
  void (*deleteTimer)(platform::Timer* timer) = platform::DeleteTimer;
};

// The caller's thread and the tick both write `mode`, `rebuildPending` and
// `device`, and the frame path reads `displayCount` without its lock: those
// are atomics. Everything else belongs to the caller's thread or to a lock.
struct RenderSession {
  SwsContext* scaler = nullptr;
  SurfaceNode* freeSurfaces = nullptr;
  std::atomic<uint64_t> freeCount{0};
  SurfaceNode* displaySurfaces = nullptr;
  std::atomic<uint64_t> displayCount{0};
  platform::Timer* presentTimer = nullptr;  // guarded by timerMutex
  platform::Mutex* freeMutex = nullptr;     // "RenderFreeMutex"
  platform::Mutex* displayMutex = nullptr;  // "RenderDisplauMutex"
  platform::Mutex* deviceMutex = nullptr;   // "RenderDeviceMutex"
  platform::Mutex* tickMutex = nullptr;     // "RenderMutex"
  platform::Mutex* timerMutex = nullptr;    // "TimerMutex"
  std::atomic<int32_t> mode{RenderModeIdle};
  // One reference owned. Stored by a rebuild under deviceMutex; given up by
  // ReleaseDevice into `retiredDevice`.
  std::atomic<IDirect3DDevice9*> device{nullptr};
  // A device given up while a frame or a tick may still be drawing with it.
  // The caller's thread releases it once no tick runs: at the next rebuild,
  // or at the close.
  std::atomic<IDirect3DDevice9*> retiredDevice{nullptr};
  int32_t framesPerSecond = 0;
  WindowId window = 0;
  int32_t surfaceLimit = 0;
  RECT clientRect;
  std::atomic<bool> rebuildPending{false};
  int32_t frameWidth = 0;
  int32_t frameHeight = 0;
  RenderProcess process;
};

// --- session and lists (render_session.cpp) ---

// A session on the given objects and timer facility (the exports' own is in render.h).
RenderSession* OpenRenderSession(const RenderProcess& process);

// Appends at the tail. On a failed node allocation the surface is released.
void AppendSurface(SurfaceNode* head, std::atomic<uint64_t>& count, IDirect3DSurface9* surface);
// Takes from the head, passing its reference to the caller; null when empty.
IDirect3DSurface9* TakeSurface(SurfaceNode* head, std::atomic<uint64_t>& count);

void DrainSurfaces(RenderSession* session);
void StartPresentation(RenderSession* session);
// On return no tick runs or will run, and both lists are empty.
void StopPresentation(RenderSession* session);

// --- frame submission (frame_submission.cpp) ---

bool NeedsRebuild(RenderSession* session, WindowId window, int32_t width, int32_t height);
HResult RebuildDevice(RenderSession* session, WindowId window, int32_t width, int32_t height);
// Gives up the device and asks the next frame to rebuild. Takes no lock: the
// device is kept until ReleaseRetiredDevice.
void ReleaseDevice(RenderSession* session);
// Releases a device given up earlier. Only on the caller's thread, with no
// tick running.
void ReleaseRetiredDevice(RenderSession* session);
// BGR24 to BGRX into a surface, all rows but the last.
void ConvertFrame(RenderSession* session, const uint8_t* pixels, int32_t width, int32_t height,
                  uint8_t* target, int32_t pitch);

// --- rate and presentation (present_tick.cpp) ---

// Whole milliseconds between ticks, truncated: 60 frames a second give 16.
int32_t PresentationPeriodMs(int32_t framesPerSecond);
int32_t SurfaceLimitFor(int32_t framesPerSecond);
// The timer's callback; the context is the session. Presents at most one surface.
void PresentTick(void* context);

}  // namespace corvane::render
