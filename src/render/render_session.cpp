// Session record, its two surface lists and the presentation timer's start and stop.
#include "render/render_session.h"

#include <new>

extern "C" {
#include <libswscale/swscale.h>
}

namespace corvane::render {

namespace {

constexpr const char* kMutexNames[5] = {"RenderFreeMutex", "RenderDisplauMutex",
                                        "RenderDeviceMutex", "RenderMutex", "TimerMutex"};

platform::Mutex* RenderSession::*const kMutexFields[5] = {
    &RenderSession::freeMutex, &RenderSession::displayMutex, &RenderSession::deviceMutex,
    &RenderSession::tickMutex, &RenderSession::timerMutex};

SurfaceNode* NewListHead() {
  SurfaceNode* head = new (std::nothrow) SurfaceNode;
  if (head != nullptr) head->next = head->previous = head;
  return head;
}

void FreeSession(RenderSession* session) {
  for (auto field : kMutexFields) platform::CloseMutex(session->*field);
  delete session->displaySurfaces;
  delete session->freeSurfaces;
  delete session;
}

void ReleaseAll(platform::Mutex* mutex, SurfaceNode* head, std::atomic<uint64_t>& count) {
  platform::WaitMutex(mutex);
  while (count.load() != 0) TakeSurface(head, count)->Release();
  platform::ReleaseMutex(mutex);
}

}  // namespace

RenderSession* OpenRenderSession(const RenderProcess& process) {
  RenderSession* session = new (std::nothrow) RenderSession;
  if (session == nullptr) return nullptr;
  session->process = process;
  session->freeSurfaces = NewListHead();
  session->displaySurfaces = NewListHead();
  // A session without its locks would race its own timer: refuse it instead.
  bool complete = session->freeSurfaces != nullptr && session->displaySurfaces != nullptr;
  for (int i = 0; i < 5; ++i) {
    session->*kMutexFields[i] = platform::CreateMutex(kMutexNames[i]);
    complete = complete && session->*kMutexFields[i] != nullptr;
  }
  if (!complete) {
    FreeSession(session);
    return nullptr;
  }
  return session;
}

void CloseRenderSession(RenderSession* session) {
  if (session == nullptr) return;
  // A tick that starts from here on does nothing.
  session->mode.store(RenderModeRebuild);
  StopPresentation(session);
  // The surfaces went with the drain; the device goes after them.
  if (IDirect3DDevice9* device = session->device.exchange(nullptr)) device->Release();
  ReleaseRetiredDevice(session);
  sws_freeContext(session->scaler);
  session->scaler = nullptr;
  FreeSession(session);
}

void AppendSurface(SurfaceNode* head, std::atomic<uint64_t>& count, IDirect3DSurface9* surface) {
  SurfaceNode* node = new (std::nothrow) SurfaceNode;
  if (node == nullptr) {
    surface->Release();
    return;
  }
  node->surface = surface;
  node->next = head;
  node->previous = head->previous;
  head->previous->next = node;
  head->previous = node;
  count.fetch_add(1);
}

IDirect3DSurface9* TakeSurface(SurfaceNode* head, std::atomic<uint64_t>& count) {
  SurfaceNode* node = head->next;
  if (node == head) return nullptr;
  head->next = node->next;
  node->next->previous = head;
  count.fetch_sub(1);
  IDirect3DSurface9* surface = node->surface;
  delete node;
  return surface;
}

void DrainSurfaces(RenderSession* session) {
  // Queued frames are dropped, not shown. Neither lock is held during the other's loop.
  ReleaseAll(session->displayMutex, session->displaySurfaces, session->displayCount);
  ReleaseAll(session->freeMutex, session->freeSurfaces, session->freeCount);
}

void StartPresentation(RenderSession* session) {
  platform::WaitMutex(session->timerMutex);
  if (session->framesPerSecond != 0 && session->presentTimer == nullptr) {
    const int32_t period = PresentationPeriodMs(session->framesPerSecond);
    // A negative rate gives a negative period: no timer can run on that.
    if (period >= 0) {
      session->presentTimer = session->process.createTimer(
          PresentTick, session, static_cast<uint32_t>(period), static_cast<uint32_t>(period));
    }
    session->mode.store(session->presentTimer != nullptr ? RenderModeArmed : RenderModeIdle);
  }
  platform::ReleaseMutex(session->timerMutex);
}

void StopPresentation(RenderSession* session) {
  platform::WaitMutex(session->timerMutex);
  if (session->presentTimer != nullptr) {
    // Safe under timerMutex: returns once a running tick has ended, and a
    // tick never takes timerMutex.
    session->process.deleteTimer(session->presentTimer);
    session->presentTimer = nullptr;
  }
  platform::ReleaseMutex(session->timerMutex);
  DrainSurfaces(session);
}

}  // namespace corvane::render
