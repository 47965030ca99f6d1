// The rate a session presents at, and the timer's tick that presents one
// queued surface.
#include "render/render_session.h"

namespace corvane::render {

namespace {

constexpr uint32_t kClearWhite = 0xFFFFFFFFu;

// Back buffer, clear, copy, present; the first failure skips the rest.
HResult PresentSurface(IDirect3DDevice9* device, IDirect3DSurface9* surface) {
  IDirect3DSurface9* backBuffer = nullptr;
  HResult result = device->GetBackBuffer(&backBuffer);
  if (result == 0 && backBuffer == nullptr) result = kFailed;
  if (result == 0) result = device->Clear(kClearWhite);
  if (result == 0) result = device->UpdateSurface(surface, backBuffer);
  if (backBuffer != nullptr) backBuffer->Release();
  if (result == 0) result = device->Present();
  return result;
}

}  // namespace

int32_t SetFramesPerSecond(RenderSession* session, int32_t framesPerSecond) {
  if (framesPerSecond == session->framesPerSecond) return 0;
  // Neither timer nor lists change here: the next frame rebuilds, and until
  // then ticks do nothing.
  session->framesPerSecond = framesPerSecond;
  session->rebuildPending.store(true);
  session->surfaceLimit = SurfaceLimitFor(framesPerSecond);
  return 0;
}

int32_t PresentationPeriodMs(int32_t framesPerSecond) {
  // Single precision and truncation, so that the period is the same whole
  // number of milliseconds wherever the library runs: 60 give 16, 24 give 41.
  const float period = (1.0f / static_cast<float>(framesPerSecond)) * 1000.0f;
  return static_cast<int32_t>(period);
}

int32_t SurfaceLimitFor(int32_t framesPerSecond) {
  // About half a second of video may wait.
  return framesPerSecond / 2;
}

void PresentTick(void* context) {
  RenderSession* session = static_cast<RenderSession*>(context);
  // Ticks of the timer may overlap; they take turns here.
  platform::WaitMutex(session->tickMutex);
  const int32_t mode = session->mode.load();
  if (mode == RenderModeIdle || mode == RenderModeRebuild || session->rebuildPending.load()) {
    session->mode.store(RenderModeIdle);
    platform::ReleaseMutex(session->tickMutex);
    return;
  }
  // Only an armed session becomes queued: a rebuild that set mode 2 meanwhile keeps it.
  int32_t armed = RenderModeArmed;
  session->mode.compare_exchange_strong(armed, RenderModeQueued);

  platform::WaitMutex(session->displayMutex);
  IDirect3DSurface9* surface = TakeSurface(session->displaySurfaces, session->displayCount);
  platform::ReleaseMutex(session->displayMutex);
  if (surface == nullptr) {
    // The window keeps its last picture.
    platform::ReleaseMutex(session->tickMutex);
    return;
  }

  platform::WaitMutex(session->deviceMutex);
  IDirect3DDevice9* device = session->device.load();
  // The caller's thread may have given the device up since: that is a failure too.
  if (device == nullptr || PresentSurface(device, surface) != 0) {
    session->mode.store(RenderModeIdle);
    ReleaseDevice(session);
  }
  platform::ReleaseMutex(session->deviceMutex);

  // Shown once or lost, never queued again.
  platform::WaitMutex(session->freeMutex);
  AppendSurface(session->freeSurfaces, session->freeCount, surface);
  platform::ReleaseMutex(session->freeMutex);
  platform::ReleaseMutex(session->tickMutex);
}

}  // namespace corvane::render
