#include "render/recording_direct3d.h"

#include <cstring>

namespace corvane::test {

using render::HResult;
using render::kFailed;

namespace {

class RecordingDevice;

// Rows are padded past width × 4 so that a writer that ignores the pitch shows.
// New pixels hold 0xAB: a row nobody wrote stays recognisable.
class RecordingSurface final : public render::IDirect3DSurface9 {
public:
    RecordingSurface(RecordingDirect3D* backend, RecordingDevice* owner)
        : backend_(backend), owner_(owner) {
        if (owner_ == nullptr) ++backend_->liveSurfaces;
    }
    ~RecordingSurface() {
        if (owner_ == nullptr) --backend_->liveSurfaces;
    }
    void Allocate(uint32_t width, uint32_t height) {
        width_ = width;
        height_ = height;
        pitch_ = static_cast<int32_t>((width * 4 + 63) / 64 * 64 + 64);
        pixels_.assign(static_cast<size_t>(pitch_) * height, 0xAB);
    }
    HResult LockRect(render::D3DLOCKED_RECT* locked) override {
        if (backend_->Record({Op::LockRect}) != 0 || locked_) return kFailed;
        locked_ = true;
        locked->Pitch = pitch_;
        locked->pBits = pixels_.data();
        return 0;
    }
    HResult UnlockRect() override {
        const bool wasLocked = locked_;
        locked_ = false;  // unlocked even when the call reports a failure
        return backend_->Record({Op::UnlockRect}) != 0 || !wasLocked ? kFailed : 0;
    }
    uint32_t AddRef() override;
    uint32_t Release() override;
    uint32_t FirstPixel() const {
        uint32_t v;
        std::memcpy(&v, pixels_.data(), 4);
        return v;
    }

    uint32_t width_ = 0;
    uint32_t height_ = 0;
    int32_t pitch_ = 0;
    std::vector<uint8_t> pixels_;
    bool locked_ = false;

private:
    RecordingDirect3D* backend_;
    RecordingDevice* owner_;
    std::atomic<uint32_t> references_{1};
};

class RecordingDevice final : public render::IDirect3DDevice9 {
public:
    explicit RecordingDevice(RecordingDirect3D* backend) : backend_(backend), backBuffer_(backend, this) {
        ++backend_->liveDevices;
    }
    ~RecordingDevice() { --backend_->liveDevices; }

    HResult Reset(const render::D3DPRESENT_PARAMETERS& p) override {
        if (backend_->Record({Op::Reset, p.hDeviceWindow, p.BackBufferWidth, p.BackBufferHeight}) != 0) {
            return kFailed;
        }
        backBuffer_.Allocate(p.BackBufferWidth, p.BackBufferHeight);
        return 0;
    }
    void AllocateBackBuffer(uint32_t width, uint32_t height) { backBuffer_.Allocate(width, height); }
    HResult Clear(uint32_t colour) override {
        if (backend_->Record({Op::Clear}) != 0) return kFailed;
        for (size_t i = 0; i + 4 <= backBuffer_.pixels_.size(); i += 4) {
            std::memcpy(&backBuffer_.pixels_[i], &colour, 4);
        }
        return 0;
    }
    HResult GetBackBuffer(render::IDirect3DSurface9** out) override {
        *out = nullptr;
        if (backend_->Record({Op::GetBackBuffer}) != 0) return kFailed;
        AddRef();
        *out = &backBuffer_;
        return 0;
    }
    HResult Present() override {
        Call call{Op::Present};
        call.stamp = backBuffer_.FirstPixel();
        if (backend_->Record(call) != 0) return kFailed;
        backend_->KeepPresented(backBuffer_.pixels_.data(), backBuffer_.pitch_, backBuffer_.width_,
                                backBuffer_.height_);
        return 0;
    }
    HResult CreateOffscreenPlainSurface(uint32_t w, uint32_t h, render::IDirect3DSurface9** out) override {
        *out = nullptr;
        if (backend_->Record({Op::CreateOffscreenPlainSurface, 0, w, h}) != 0) return kFailed;
        auto* surface = new RecordingSurface(backend_, nullptr);
        surface->Allocate(w, h);
        *out = surface;
        return 0;
    }
    HResult UpdateSurface(render::IDirect3DSurface9* source, render::IDirect3DSurface9* target) override {
        auto* from = static_cast<RecordingSurface*>(source);
        auto* to = static_cast<RecordingSurface*>(target);
        Call call{Op::UpdateSurface, 0, from->width_, from->height_};
        call.stamp = from->FirstPixel();
        if (backend_->Record(call) != 0 || from->width_ != to->width_ || from->height_ != to->height_) {
            return kFailed;
        }
        for (uint32_t y = 0; y < from->height_; ++y) {
            std::memcpy(&to->pixels_[y * to->pitch_], &from->pixels_[y * from->pitch_], from->width_ * 4);
        }
        return 0;
    }
    uint32_t AddRef() override { return ++references_; }
    uint32_t Release() override {
        const uint32_t left = --references_;
        if (left == 0) delete this;
        return left;
    }

private:
    RecordingDirect3D* backend_;
    RecordingSurface backBuffer_;
    std::atomic<uint32_t> references_{1};
};

uint32_t RecordingSurface::AddRef() {
    return owner_ != nullptr ? owner_->AddRef() : ++references_;
}

uint32_t RecordingSurface::Release() {
    if (owner_ != nullptr) return owner_->Release();
    const uint32_t left = --references_;
    if (left == 0) delete this;
    return left;
}

}  // namespace

const char* OpName(Op op) {
    static const char* const names[] = {
        "GetDeviceCaps", "CreateDevice", "GetClientRect", "Reset", "Clear", "GetBackBuffer",
        "Present", "CreateOffscreenPlainSurface", "UpdateSurface", "LockRect", "UnlockRect"};
    return names[static_cast<int>(op)];
}

void RecordingDirect3D::FailCall(size_t index) {
    std::lock_guard<std::mutex> hold(lock_);
    failCalls_.insert(index);
}

void RecordingDirect3D::FailEvery(Op op, bool fail) {
    std::lock_guard<std::mutex> hold(lock_);
    if (fail) failOps_.insert(op); else failOps_.erase(op);
}

void RecordingDirect3D::SetClientRect(int32_t width, int32_t height) {
    std::lock_guard<std::mutex> hold(lock_);
    clientRect_ = {0, 0, width, height};
}

void RecordingDirect3D::Forget() {
    std::lock_guard<std::mutex> hold(lock_);
    beforeCall = nullptr;
    vertexProcessingCaps = 1;
    calls_.clear();
    failCalls_.clear();
    failOps_.clear();
    clientRect_ = {0, 0, 640, 480};
    presented_.clear();
    presentedWidth_ = presentedHeight_ = 0;
}

std::vector<Call> RecordingDirect3D::Calls() const {
    std::lock_guard<std::mutex> hold(lock_);
    return calls_;
}

size_t RecordingDirect3D::CountOf(Op op) const {
    std::lock_guard<std::mutex> hold(lock_);
    size_t n = 0;
    for (const Call& c : calls_) n += c.op == op;
    return n;
}

size_t RecordingDirect3D::CallCount() const {
    std::lock_guard<std::mutex> hold(lock_);
    return calls_.size();
}

std::vector<uint8_t> RecordingDirect3D::LastPresented(uint32_t* width, uint32_t* height) const {
    std::lock_guard<std::mutex> hold(lock_);
    *width = presentedWidth_;
    *height = presentedHeight_;
    return presented_;
}

HResult RecordingDirect3D::Record(Call call) {
    if (beforeCall) beforeCall(call.op);
    std::lock_guard<std::mutex> hold(lock_);
    const size_t index = calls_.size();
    calls_.push_back(call);
    return failCalls_.count(index) != 0 || failOps_.count(call.op) != 0 ? kFailed : 0;
}

void RecordingDirect3D::KeepPresented(const uint8_t* pixels, int32_t pitch, uint32_t width,
                                      uint32_t height) {
    std::lock_guard<std::mutex> hold(lock_);
    presented_.resize(static_cast<size_t>(width) * height * 4);
    for (uint32_t y = 0; y < height; ++y) {
        std::memcpy(&presented_[y * width * 4], pixels + static_cast<size_t>(y) * pitch, width * 4);
    }
    presentedWidth_ = width;
    presentedHeight_ = height;
}

HResult RecordingDirect3D::GetDeviceCaps(render::D3DCAPS9* caps) {
    caps->VertexProcessingCaps = vertexProcessingCaps;
    if (Record({Op::GetDeviceCaps}) == 0) return 0;
    caps->VertexProcessingCaps = 0;
    return kFailed;
}

HResult RecordingDirect3D::CreateDevice(render::WindowId window, uint32_t flags,
                                        const render::D3DPRESENT_PARAMETERS& p,
                                        render::IDirect3DDevice9** device) {
    *device = nullptr;
    Call call{Op::CreateDevice, window, p.BackBufferWidth, p.BackBufferHeight, flags};
    if (Record(call) != 0) return kFailed;
    auto* made = new RecordingDevice(this);
    made->AllocateBackBuffer(p.BackBufferWidth, p.BackBufferHeight);
    *device = made;
    return 0;
}

HResult RecordingDirect3D::GetClientRect(render::WindowId window, render::RECT* rect) {
    {
        std::lock_guard<std::mutex> hold(lock_);
        *rect = clientRect_;
    }
    if (Record({Op::GetClientRect, window}) == 0) return 0;
    *rect = render::RECT{};
    return kFailed;
}

}  // namespace corvane::test
