// Render sessions on a display backend that keeps surfaces in memory, logs
// every call, fails any chosen one and counts its live objects; on a timer
// that ticks only when the test says so.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <tuple>

#include "render/render_session.h"
#include "support/x_window.h"

namespace corvane::test {

using render::HResult;
using render::kFailed;

// clang-format off
enum class Op { GetDeviceCaps, CreateDevice, GetClientRect, Reset, Clear, GetBackBuffer, Present,
                CreateOffscreenPlainSurface, UpdateSurface, LockRect, UnlockRect };
// clang-format on

// Pixel 0 of frame `number` once the renderer widened it to BGRX.
inline uint32_t Stamp(uint32_t number) { return 0xFF000000u | number; }

struct Backend final : render::IDirect3D9 {
  struct Call {
    Op op;
    uint32_t value;  // CreateDevice: behaviour flags; Present, UpdateSurface: pixel 0
  };
  std::function<void(Op)> beforeCall;              // on the caller's thread, before the log
  std::function<bool(size_t index, Op)> failWhen;  // set before other threads call
  uint32_t caps = 1;
  std::atomic<int> live{0};  // devices and surfaces, back buffers included
  std::mutex lock;
  std::vector<Call> calls;
  render::RECT client{0, 0, 640, 480};

  HResult Record(Op op, uint32_t value = 0) {
    if (beforeCall) beforeCall(op);
    std::lock_guard<std::mutex> hold(lock);
    calls.push_back({op, value});
    return failWhen && failWhen(calls.size() - 1, op) ? kFailed : 0;
  }
  std::vector<Call> Calls() {
    std::lock_guard<std::mutex> hold(lock);
    return calls;
  }
  std::vector<uint32_t> ValuesOf(Op op) {
    std::vector<uint32_t> values;
    for (const Call& c : Calls())
      if (c.op == op) values.push_back(c.value);
    return values;
  }
  HResult GetDeviceCaps(render::D3DCAPS9* c) override {
    const HResult result = Record(Op::GetDeviceCaps);
    return c->VertexProcessingCaps = result ? 0 : caps, result;
  }
  HResult GetClientRect(render::WindowId, render::RECT* rect) override {
    const HResult result = Record(Op::GetClientRect);
    std::lock_guard<std::mutex> hold(lock);
    return *rect = result ? render::RECT{} : client, result;
  }
  HResult CreateDevice(render::WindowId, uint32_t flags, const render::D3DPRESENT_PARAMETERS& p,
                       render::IDirect3DDevice9** device) override;
  uint32_t Release() override { return 0; }  // the test's own
};

// A surface, or a device with one for its back buffer; rows padded past width × 4.
struct Object final : render::IDirect3DSurface9, render::IDirect3DDevice9 {
  Object(Backend* b, uint32_t w, uint32_t h, bool device)
      : backend(b), back(device ? new Object(b, w, h, false) : nullptr) {
    ++b->live, Allocate(w, h);
  }
  ~Object() {
    if (back) back->Release();
    --backend->live;
  }
  void Allocate(uint32_t w, uint32_t h) {
    height = h, pitch = int32_t(w * 4 + 64), pixels.assign(size_t(pitch) * h, 0xAB);
  }
  uint32_t First() const {
    return pixels[0] | pixels[1] << 8 | pixels[2] << 16 | uint32_t(pixels[3]) << 24;
  }
  uint32_t AddRef() override { return ++refs; }
  uint32_t Release() override { return --refs ? refs.load() : (delete this, 0); }
  HResult LockRect(render::D3DLOCKED_RECT* r) override {
    if (backend->Record(Op::LockRect) || locked) return kFailed;
    return *r = {pitch, pixels.data()}, locked = true, 0;
  }
  HResult UnlockRect() override {  // unlocked even when the call fails
    const bool was = std::exchange(locked, false);
    return backend->Record(Op::UnlockRect) || !was ? kFailed : 0;
  }
  HResult Reset(const render::D3DPRESENT_PARAMETERS& p) override {
    return backend->Record(Op::Reset) ? kFailed
                                      : (back->Allocate(p.BackBufferWidth, p.BackBufferHeight), 0);
  }
  HResult Clear(uint32_t colour) override {
    if (backend->Record(Op::Clear)) return kFailed;
    for (size_t i = 0; i < back->pixels.size(); i += 4) std::memcpy(&back->pixels[i], &colour, 4);
    return 0;
  }
  HResult GetBackBuffer(render::IDirect3DSurface9** out) override {
    *out = nullptr;
    return backend->Record(Op::GetBackBuffer) ? kFailed : (back->AddRef(), *out = back, 0);
  }
  HResult Present() override { return backend->Record(Op::Present, back->First()); }
  HResult CreateOffscreenPlainSurface(uint32_t w, uint32_t h,
                                      render::IDirect3DSurface9** out) override {
    *out = nullptr;
    return backend->Record(Op::CreateOffscreenPlainSurface)
               ? kFailed
               : (*out = new Object(backend, w, h, false), 0);
  }
  HResult UpdateSurface(render::IDirect3DSurface9* source,
                        render::IDirect3DSurface9* target) override {
    auto *from = static_cast<Object*>(source), *to = static_cast<Object*>(target);
    if (backend->Record(Op::UpdateSurface, from->First()) || from->pitch != to->pitch ||
        from->height != to->height)
      return kFailed;
    return to->pixels = from->pixels, 0;
  }
  Backend* backend;
  Object* back;
  uint32_t height = 0;
  int32_t pitch = 0;
  std::vector<uint8_t> pixels;
  bool locked = false;
  std::atomic<uint32_t> refs{1};
};

inline HResult Backend::CreateDevice(render::WindowId, uint32_t flags,
                                     const render::D3DPRESENT_PARAMETERS& p,
                                     render::IDirect3DDevice9** device) {
  *device = nullptr;
  if (Record(Op::CreateDevice, flags)) return kFailed;
  return *device = new Object(this, p.BackBufferWidth, p.BackBufferHeight, true), 0;
}

// The one timer of a test, run by hand.
struct ManualTimer {
  static inline platform::TimerCallback callback = nullptr;
  static inline void* context = nullptr;
  static inline uint32_t due = 0, period = 0;
  static platform::Timer* Create(platform::TimerCallback cb, void* c, uint32_t d, uint32_t p) {
    std::tie(callback, context, due, period) = std::tie(cb, c, d, p);
    return reinterpret_cast<platform::Timer*>(&callback);
  }
  static void Delete(platform::Timer*) { callback = nullptr; }
  static void Tick() { callback ? callback(context) : void(); }
};

// A session on a recording backend, on the manual timer unless `realTimer`;
// nothing of the backend's may outlive it.
struct Rig {
  explicit Rig(bool realTimer = false) {
    process.direct3d = &backend;
    process.renderInitMutex = platform::CreateMutex("RenderInitMutex");
    if (!realTimer) {
      ManualTimer::callback = nullptr;
      process.createTimer = ManualTimer::Create, process.deleteTimer = ManualTimer::Delete;
    }
    session = render::OpenRenderSession(process);
  }
  ~Rig() {
    Close();
    platform::CloseMutex(process.renderInitMutex);
    EXPECT_EQ(backend.live.load(), 0);
  }
  void Close() { render::CloseRenderSession(std::exchange(session, nullptr)); }
  int32_t Frame(uint32_t n, int w = 32, int h = 24, render::WindowId window = 7) {
    return render::SubmitFrame(session, window, MakeFrame(w, h, n).data(), w, h);
  }
  Backend backend;
  render::RenderProcess process;
  render::RenderSession* session = nullptr;
};

}  // namespace corvane::test
