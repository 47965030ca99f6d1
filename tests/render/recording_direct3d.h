// A display backend for tests: it keeps surfaces in memory, records every
// operation in order, and makes any chosen call fail. It counts its live
// devices and surfaces, so that a test can tell a leak from a release.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <vector>

#include "render/direct3d.h"

namespace corvane::test {

enum class Op {
    GetDeviceCaps, CreateDevice, GetClientRect, Reset, Clear, GetBackBuffer, Present,
    CreateOffscreenPlainSurface, UpdateSurface, LockRect, UnlockRect,
};
const char* OpName(Op op);

struct Call {
    Op op;
    render::WindowId window = 0;  // CreateDevice, Reset, GetClientRect
    uint32_t width = 0;           // back buffer or surface size
    uint32_t height = 0;
    uint32_t flags = 0;           // CreateDevice: behaviour flags
    uint32_t stamp = 0;           // Present, UpdateSurface: first pixel of what is shown or copied
};

class RecordingDirect3D final : public render::IDirect3D9 {
public:
    // Runs before an operation is recorded, on the thread that calls it.
    std::function<void(Op)> beforeCall;
    uint32_t vertexProcessingCaps = 1;

    void FailCall(size_t index);  // the call with this index in the log fails
    void FailEvery(Op op, bool fail = true);
    void SetClientRect(int32_t width, int32_t height);
    // Back to a fresh backend's state; the live counts stay.
    void Forget();

    std::vector<Call> Calls() const;
    size_t CountOf(Op op) const;
    size_t CallCount() const;
    // BGRX rows of the last presented back buffer, width × 4 bytes each.
    std::vector<uint8_t> LastPresented(uint32_t* width, uint32_t* height) const;

    std::atomic<int> liveDevices{0};
    std::atomic<int> liveSurfaces{0};  // offscreen ones; back buffers go with their device

    // Records the call; its result is the failure chosen for it, if any.
    render::HResult Record(Call call);
    void KeepPresented(const uint8_t* pixels, int32_t pitch, uint32_t width, uint32_t height);

    render::HResult GetDeviceCaps(render::D3DCAPS9* caps) override;
    render::HResult CreateDevice(render::WindowId window, uint32_t flags,
                                 const render::D3DPRESENT_PARAMETERS& params,
                                 render::IDirect3DDevice9** device) override;
    render::HResult GetClientRect(render::WindowId window, render::RECT* rect) override;
    uint32_t Release() override { return 0; }  // the test owns it

private:
    mutable std::mutex lock_;
    std::vector<Call> calls_;
    std::set<size_t> failCalls_;
    std::set<Op> failOps_;
    render::RECT clientRect_{0, 0, 640, 480};
    std::vector<uint8_t> presented_;
    uint32_t presentedWidth_ = 0;
    uint32_t presentedHeight_ = 0;
};

}  // namespace corvane::test
