// The renderer's objects that exist once per process, and the sessions the
// exports open on them.
#include "render/render_session.h"

namespace corvane::render {

namespace {

platform::Mutex* g_renderInitMutex = nullptr;
IDirect3D9* g_direct3d = nullptr;

constexpr uint32_t kSdkVersion = 32;

}  // namespace

void CreateInitMutex() { g_renderInitMutex = platform::CreateMutex("RenderInitMutex"); }

void CloseInitMutex() {
  platform::CloseMutex(g_renderInitMutex);
  g_renderInitMutex = nullptr;
}

// Cheap: the display connection opens with the first device.
void CreateDirect3D() { g_direct3d = Direct3DCreate9(kSdkVersion); }

void ReleaseDirect3D() {
  if (g_direct3d != nullptr) g_direct3d->Release();
  g_direct3d = nullptr;
}

RenderSession* OpenRenderSession() {
  RenderProcess process;
  process.direct3d = g_direct3d;
  process.renderInitMutex = g_renderInitMutex;
  return OpenRenderSession(process);
}

}  // namespace corvane::render
