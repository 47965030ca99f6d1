// One frame from the caller: rebuild the device when it no longer fits, then
// show the frame at once (no timer) or queue it for the presentation tick.
#include "render/render_session.h"

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

namespace corvane::render {

namespace {

constexpr uint32_t kClearWhite = 0xFFFFFFFFu;

D3DPRESENT_PARAMETERS PresentParameters(WindowId window, int32_t width, int32_t height) {
  D3DPRESENT_PARAMETERS params;
  params.BackBufferWidth = static_cast<uint32_t>(width);
  params.BackBufferHeight = static_cast<uint32_t>(height);
  params.BackBufferFormat = D3DFMT_UNKNOWN;
  params.BackBufferCount = 1;
  params.SwapEffect = D3DSWAPEFFECT_DISCARD;
  params.hDeviceWindow = window;
  params.Windowed = 1;
  params.Flags = D3DPRESENTFLAG_LOCKABLE_BACKBUFFER | D3DPRESENTFLAG_VIDEO;
  params.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
  return params;
}

// Locks and converts; false when the surface didn't lock, which takes no conversion.
bool LockAndConvert(RenderSession* session, IDirect3DSurface9* surface, const uint8_t* pixels,
                    int32_t width, int32_t height) {
  D3DLOCKED_RECT locked;
  if (surface->LockRect(&locked) != 0 || locked.pBits == nullptr) return false;
  ConvertFrame(session, pixels, width, height, static_cast<uint8_t*>(locked.pBits), locked.Pitch);
  return true;
}

// No timer runs: clear, convert into the back buffer, show. The last row keeps
// the clear's white, since the conversion leaves it out.
HResult DirectPath(RenderSession* session, IDirect3DDevice9* device, const uint8_t* pixels,
                   int32_t width, int32_t height) {
  HResult result = device->Clear(kClearWhite);
  if (result != 0) return result;
  // A back buffer that isn't there or doesn't lock counts as a failed device.
  IDirect3DSurface9* backBuffer = nullptr;
  result = device->GetBackBuffer(&backBuffer);
  if (backBuffer == nullptr) return kFailed;
  const bool converted = result == 0 && LockAndConvert(session, backBuffer, pixels, width, height);
  if (converted) backBuffer->UnlockRect();
  backBuffer->Release();
  if (!converted) return kFailed;
  return device->Present();
}

// The timer runs: convert into a free surface (or a new one while fewer than
// `surfaceLimit` wait) and append it for a tick. With no surface to be had the
// newest frame is the one that goes, and that is no failure.
HResult QueuedPath(RenderSession* session, IDirect3DDevice9* device, const uint8_t* pixels,
                   int32_t width, int32_t height) {
  HResult result = 0;
  IDirect3DSurface9* surface = nullptr;
  platform::WaitMutex(session->freeMutex);
  if (session->freeCount.load() != 0) {
    surface = TakeSurface(session->freeSurfaces, session->freeCount);
  } else if (static_cast<int64_t>(session->surfaceLimit) >
             static_cast<int64_t>(session->displayCount.load())) {
    // A surface a tick holds isn't counted: the session owns at most one more than the limit.
    result = device->CreateOffscreenPlainSurface(static_cast<uint32_t>(width),
                                                 static_cast<uint32_t>(height), &surface);
    if (result != 0 && surface != nullptr) {
      surface->Release();
      surface = nullptr;
    }
  }
  platform::ReleaseMutex(session->freeMutex);
  if (surface == nullptr) return result;

  if (!LockAndConvert(session, surface, pixels, width, height)) {
    surface->Release();
    return kFailed;
  }
  result = surface->UnlockRect();
  // Appended even when the unlock failed: the rebuild that follows drains it.
  platform::WaitMutex(session->displayMutex);
  AppendSurface(session->displaySurfaces, session->displayCount, surface);
  platform::ReleaseMutex(session->displayMutex);
  return result;
}

}  // namespace

int32_t SubmitFrame(RenderSession* session, WindowId window, const uint8_t* pixels, int32_t width,
                    int32_t height) {
  if (pixels == nullptr || width <= 0 || height <= 0) return 0;
  if (session->device.load() == nullptr || NeedsRebuild(session, window, width, height)) {
    if (RebuildDevice(session, window, width, height) != 0) {
      ReleaseDevice(session);
      return 0;
    }
  }
  // No lock around the paths: "RenderDeviceMutex" is shared by every session
  // of every process, and one of them presenting slowly must not hold this
  // frame up. A tick that gives the device up meanwhile leaves it alive until
  // the next rebuild, so this frame draws with it to the end.
  HResult result = kFailed;
  if (IDirect3DDevice9* device = session->device.load()) {
    const int32_t mode = session->mode.load();
    result = (mode == RenderModeQueued || mode == RenderModeArmed)
                 ? QueuedPath(session, device, pixels, width, height)
                 : DirectPath(session, device, pixels, width, height);
  }
  if (result != 0) ReleaseDevice(session);
  return 0;
}

bool NeedsRebuild(RenderSession* session, WindowId window, int32_t width, int32_t height) {
  if (session->rebuildPending.exchange(false)) return true;
  if (width != session->frameWidth || height != session->frameHeight || window != session->window) {
    return true;
  }
  RECT rect;
  session->process.direct3d->GetClientRect(window, &rect);
  return !(rect == session->clientRect);
}

HResult RebuildDevice(RenderSession* session, WindowId window, int32_t width, int32_t height) {
  IDirect3D9* direct3d = session->process.direct3d;
  if (direct3d == nullptr) return kFailed;
  RECT rect;
  direct3d->GetClientRect(window, &rect);
  session->window = window;
  session->frameWidth = width;
  session->frameHeight = height;
  session->clientRect = rect;
  session->mode.store(RenderModeRebuild);
  // No mutex held here: the stop waits for a running tick. From here on no
  // tick runs and both lists are empty, so surfaces come anew at the new size,
  // and a device given up earlier can go.
  StopPresentation(session);
  ReleaseRetiredDevice(session);

  sws_freeContext(session->scaler);
  session->scaler = sws_getContext(width, height, AV_PIX_FMT_BGR24, width, height, AV_PIX_FMT_BGRA,
                                   SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);

  platform::WaitMutex(session->process.renderInitMutex);
  D3DCAPS9 caps;
  direct3d->GetDeviceCaps(&caps);
  const uint32_t behaviour = D3DCREATE_MULTITHREADED |
                             (caps.VertexProcessingCaps != 0 ? D3DCREATE_HARDWARE_VERTEXPROCESSING
                                                             : D3DCREATE_SOFTWARE_VERTEXPROCESSING);
  const D3DPRESENT_PARAMETERS params = PresentParameters(window, width, height);
  HResult result;
  if (IDirect3DDevice9* device = session->device.load()) {
    platform::WaitMutex(session->deviceMutex);
    result = device->Reset(params);
  } else {
    IDirect3DDevice9* created = nullptr;
    result = direct3d->CreateDevice(window, behaviour, params, &created);
    if (result == 0 && created == nullptr) result = kFailed;
    if (result != 0 && created != nullptr) {
      created->Release();
      created = nullptr;
    }
    platform::WaitMutex(session->deviceMutex);
    if (created != nullptr) session->device.store(created);
  }
  platform::ReleaseMutex(session->deviceMutex);
  platform::ReleaseMutex(session->process.renderInitMutex);
  if (result != 0) return result;

  session->rebuildPending.store(false);
  StartPresentation(session);
  return 0;
}

void ReleaseDevice(RenderSession* session) {
  session->rebuildPending.store(true);
  // The caller's thread may be drawing with the device while a tick gives it
  // up, and a tick may be presenting with it while the caller's thread does:
  // neither releases it. At most one device waits here, since a new one is
  // made only by a rebuild, which first releases the one waiting.
  if (IDirect3DDevice9* device = session->device.exchange(nullptr))
    session->retiredDevice.store(device);
}

void ReleaseRetiredDevice(RenderSession* session) {
  if (IDirect3DDevice9* device = session->retiredDevice.exchange(nullptr)) device->Release();
}

void ConvertFrame(RenderSession* session, const uint8_t* pixels, int32_t width, int32_t height,
                  uint8_t* target, int32_t pitch) {
  // height - 1 rows: the last row of the target is left as it was.
  if (session->scaler == nullptr || height < 2) return;
  const uint8_t* const sourcePlanes[4] = {pixels, nullptr, nullptr, nullptr};
  const int sourceStrides[4] = {3 * width, 0, 0, 0};
  uint8_t* const targetPlanes[4] = {target, nullptr, nullptr, nullptr};
  const int targetStrides[4] = {pitch, 0, 0, 0};
  sws_scale(session->scaler, sourcePlanes, sourceStrides, 0, height - 1, targetPlanes,
            targetStrides);
}

}  // namespace corvane::render
