// What the renderer's tests share: a display backend that keeps surfaces in
// memory, records every operation in order, makes any chosen call fail and
// counts its live devices and surfaces (a leak shows); frames that carry their
// number in the first pixel; a timer that ticks only when the test says so;
// and a session on all that.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <random>
#include <tuple>
#include <vector>

#include "render/direct3d.h"
#include "render/render_session.h"

namespace corvane::test {

using render::HResult;
using render::kFailed;

enum class Op {
  GetDeviceCaps,
  CreateDevice,
  GetClientRect,
  Reset,
  Clear,
  GetBackBuffer,
  Present,
  CreateOffscreenPlainSurface,
  UpdateSurface,
  LockRect,
  UnlockRect,
};

inline const char* OpName(Op op) {
  static const char* const names[] = {
      "GetDeviceCaps", "CreateDevice",  "GetClientRect", "Reset",
      "Clear",         "GetBackBuffer", "Present",       "CreateOffscreenPlainSurface",
      "UpdateSurface", "LockRect",      "UnlockRect"};
  return names[static_cast<int>(op)];
}

struct Call {
  Op op;
  uint32_t value =
      0;  // CreateDevice: behaviour flags; Present, UpdateSurface: first pixel shown or copied
};

template <typename T>
uint32_t Unreference(T* object, std::atomic<uint32_t>& references) {
  const uint32_t left = --references;
  if (left == 0) delete object;
  return left;
}

class RecordingDirect3D final : public render::IDirect3D9 {
 public:
  std::function<void(Op)> beforeCall;  // runs on the calling thread, before the call is recorded
  uint32_t vertexProcessingCaps = 1;
  std::atomic<int> liveDevices{0};
  std::atomic<int> liveSurfaces{0};  // back buffers included

  // Whether the call with this index in the log fails. Set it before any other thread calls.
  std::function<bool(size_t index, Op op)> failWhen;

  void SetClientRect(int32_t width, int32_t height) {
    std::lock_guard<std::mutex> hold(lock_);
    clientRect_ = {0, 0, width, height};
  }
  std::vector<Call> Calls() const {
    std::lock_guard<std::mutex> hold(lock_);
    return calls_;
  }
  size_t CallCount() const { return Calls().size(); }
  size_t CountOf(Op op) const { return ValuesOf(op).size(); }
  std::vector<uint32_t> ValuesOf(Op op) const {
    std::vector<uint32_t> values;
    for (const Call& c : Calls()) {
      if (c.op == op) values.push_back(c.value);
    }
    return values;
  }
  // The result is the failure chosen for this call, if any.
  HResult Record(Call call) {
    if (beforeCall) beforeCall(call.op);
    std::lock_guard<std::mutex> hold(lock_);
    calls_.push_back(call);
    return failWhen && failWhen(calls_.size() - 1, call.op) ? kFailed : 0;
  }

  HResult GetDeviceCaps(render::D3DCAPS9* caps) override {
    const bool ok = Record({Op::GetDeviceCaps}) == 0;
    caps->VertexProcessingCaps = ok ? vertexProcessingCaps : 0;
    return ok ? 0 : kFailed;
  }
  HResult CreateDevice(render::WindowId, uint32_t flags, const render::D3DPRESENT_PARAMETERS& p,
                       render::IDirect3DDevice9** device) override;
  HResult GetClientRect(render::WindowId, render::RECT* rect) override {
    const bool ok = Record({Op::GetClientRect}) == 0;
    std::lock_guard<std::mutex> hold(lock_);
    *rect = ok ? clientRect_ : render::RECT{};
    return ok ? 0 : kFailed;
  }
  uint32_t Release() override { return 0; }  // the test owns it

 private:
  mutable std::mutex lock_;
  std::vector<Call> calls_;
  render::RECT clientRect_{0, 0, 640, 480};
};

// Rows are padded past width × 4 so that a writer that ignores the pitch shows.
// New pixels hold 0xAB: a row nobody wrote stays recognisable.
class RecordingSurface final : public render::IDirect3DSurface9 {
 public:
  RecordingSurface(RecordingDirect3D* backend, uint32_t w, uint32_t h) : backend_(backend) {
    ++backend_->liveSurfaces;
    Allocate(w, h);
  }
  ~RecordingSurface() { --backend_->liveSurfaces; }
  void Allocate(uint32_t w, uint32_t h) {
    width = w;
    height = h;
    pitch = static_cast<int32_t>((w * 4 + 63) / 64 * 64 + 64);
    pixels.assign(static_cast<size_t>(pitch) * h, 0xAB);
  }
  HResult LockRect(render::D3DLOCKED_RECT* locked) override {
    if (backend_->Record({Op::LockRect}) != 0 || locked_) return kFailed;
    locked_ = true;
    *locked = {pitch, pixels.data()};
    return 0;
  }
  HResult UnlockRect() override {
    const bool wasLocked = locked_;
    locked_ = false;  // unlocked even when the call fails
    return backend_->Record({Op::UnlockRect}) != 0 || !wasLocked ? kFailed : 0;
  }
  uint32_t AddRef() override { return ++references_; }
  uint32_t Release() override { return Unreference(this, references_); }
  uint32_t FirstPixel() const {
    uint32_t v;
    std::memcpy(&v, pixels.data(), 4);
    return v;
  }
  // BGRX, width × 4 bytes a row.
  std::vector<uint8_t> Rows() const {
    std::vector<uint8_t> rows(static_cast<size_t>(width) * height * 4);
    for (uint32_t y = 0; y < height; ++y)
      std::memcpy(&rows[y * width * 4], &pixels[y * pitch], width * 4);
    return rows;
  }

  uint32_t width = 0, height = 0;
  int32_t pitch = 0;
  std::vector<uint8_t> pixels;

 private:
  RecordingDirect3D* backend_;
  bool locked_ = false;
  std::atomic<uint32_t> references_{1};
};

class RecordingDevice final : public render::IDirect3DDevice9 {
 public:
  RecordingDevice(RecordingDirect3D* backend, uint32_t w, uint32_t h)
      : backend_(backend), backBuffer_(new RecordingSurface(backend, w, h)) {
    ++backend_->liveDevices;
  }
  ~RecordingDevice() {
    backBuffer_->Release();
    --backend_->liveDevices;
  }

  HResult Reset(const render::D3DPRESENT_PARAMETERS& p) override {
    if (backend_->Record({Op::Reset}) != 0) return kFailed;
    backBuffer_->Allocate(p.BackBufferWidth, p.BackBufferHeight);
    return 0;
  }
  HResult Clear(uint32_t colour) override {
    if (backend_->Record({Op::Clear}) != 0) return kFailed;
    for (size_t i = 0; i + 4 <= backBuffer_->pixels.size(); i += 4) {
      std::memcpy(&backBuffer_->pixels[i], &colour, 4);
    }
    return 0;
  }
  HResult GetBackBuffer(render::IDirect3DSurface9** out) override {
    *out = nullptr;
    if (backend_->Record({Op::GetBackBuffer}) != 0) return kFailed;
    backBuffer_->AddRef();
    *out = backBuffer_;
    return 0;
  }
  HResult Present() override {
    if (backend_->Record({Op::Present, backBuffer_->FirstPixel()}) != 0) return kFailed;
    shown = backBuffer_->Rows();
    return 0;
  }
  HResult CreateOffscreenPlainSurface(uint32_t w, uint32_t h,
                                      render::IDirect3DSurface9** out) override {
    *out = nullptr;
    if (backend_->Record({Op::CreateOffscreenPlainSurface}) != 0) return kFailed;
    *out = new RecordingSurface(backend_, w, h);
    return 0;
  }
  HResult UpdateSurface(render::IDirect3DSurface9* source,
                        render::IDirect3DSurface9* target) override {
    auto* from = static_cast<RecordingSurface*>(source);
    auto* to = static_cast<RecordingSurface*>(target);
    if (backend_->Record({Op::UpdateSurface, from->FirstPixel()}) != 0 ||
        from->width != to->width || from->height != to->height) {
      return kFailed;
    }
    to->pixels = from->pixels;  // same size, same pitch
    return 0;
  }
  uint32_t AddRef() override { return ++references_; }
  uint32_t Release() override { return Unreference(this, references_); }

  std::vector<uint8_t> shown;  // the back buffer's rows at the last Present

 private:
  RecordingDirect3D* backend_;
  RecordingSurface* backBuffer_;
  std::atomic<uint32_t> references_{1};
};

inline HResult RecordingDirect3D::CreateDevice(render::WindowId, uint32_t flags,
                                               const render::D3DPRESENT_PARAMETERS& p,
                                               render::IDirect3DDevice9** device) {
  *device = nullptr;
  if (Record({Op::CreateDevice, flags}) != 0) return kFailed;
  *device = new RecordingDevice(this, p.BackBufferWidth, p.BackBufferHeight);
  return 0;
}

// BGR24, width × 3 bytes a row. Pixel 0 holds `number` (blue lowest); the rest is random.
inline std::vector<uint8_t> MakeFrame(int width, int height, uint32_t number, uint32_t seed = 1) {
  std::vector<uint8_t> frame(static_cast<size_t>(width) * height * 3);
  std::mt19937 random(seed * 7919 + number);
  for (auto& byte : frame) byte = static_cast<uint8_t>(random());
  for (int c = 0; c < 3; ++c) frame[c] = static_cast<uint8_t>(number >> (8 * c));
  return frame;
}

// What pixel 0 of frame `number` reads as once widened to BGRX by the renderer.
inline uint32_t Stamp(uint32_t number) { return 0xFF000000u | number; }

// The one hand-driven timer of a test: it runs only on Tick().
struct ManualTimer {
  static inline platform::TimerCallback callback = nullptr;
  static inline void* context = nullptr;
  static inline uint32_t due = 0, period = 0;
  static inline int created = 0;

  static platform::Timer* Create(platform::TimerCallback cb, void* ctx, uint32_t d, uint32_t p) {
    std::tie(callback, context, due, period) = std::tie(cb, ctx, d, p);
    ++created;
    return reinterpret_cast<platform::Timer*>(&callback);
  }
  static void Delete(platform::Timer*) { callback = nullptr; }
  static void Tick() { callback != nullptr ? callback(context) : void(); }
  static bool Running() { return callback != nullptr; }
};

// Both lists are well linked and their counts agree with them.
inline void ExpectListsConsistent(const render::RenderSession* session) {
  auto length = [](const render::SurfaceNode* head) {
    size_t n = 0;
    for (const render::SurfaceNode* node = head->next; node != head; node = node->next) {
      if (node->next->previous != node) return SIZE_MAX;  // a broken link
      ++n;
    }
    return n;
  };
  EXPECT_EQ(length(session->freeSurfaces), session->freeCount.load());
  EXPECT_EQ(length(session->displaySurfaces), session->displayCount.load());
}

// A session on a recording backend; the manual timer unless `realTimer`. When
// it goes, nothing of the backend's may be left alive.
struct Rig {
  explicit Rig(bool realTimer = false) {
    process.direct3d = &backend;
    process.renderInitMutex = platform::CreateMutex("RenderInitMutex");
    if (!realTimer) {
      ManualTimer::callback = nullptr;
      ManualTimer::created = 0;
      process.createTimer = ManualTimer::Create;
      process.deleteTimer = ManualTimer::Delete;
    }
    session = render::OpenRenderSession(process);
    EXPECT_NE(session, nullptr);
  }
  ~Rig() {
    Close();
    platform::CloseMutex(process.renderInitMutex);
    EXPECT_EQ(backend.liveDevices.load(), 0);
    EXPECT_EQ(backend.liveSurfaces.load(), 0);
  }
  void Close() {
    render::CloseRenderSession(session);
    session = nullptr;
  }
  int32_t Frame(uint32_t number, int width = 32, int height = 24, render::WindowId window = 7) {
    const auto frame = MakeFrame(width, height, number);
    return render::SubmitFrame(session, window, frame.data(), width, height);
  }

  RecordingDirect3D backend;
  render::RenderProcess process;
  render::RenderSession* session = nullptr;
};

}  // namespace corvane::test
