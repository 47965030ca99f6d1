// What the renderer's tests share: frames that carry their number in the first
// pixel, a timer that ticks only when the test says so, and a session on the
// recording backend.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "render/recording_direct3d.h"
#include "render/render_session.h"

namespace corvane::test {

// BGR24, width × 3 bytes a row. Pixel 0 holds `number` (blue lowest); the rest is random.
inline std::vector<uint8_t> MakeFrame(int width, int height, uint32_t number, uint32_t seed = 1) {
    std::vector<uint8_t> frame(static_cast<size_t>(width) * height * 3);
    std::mt19937 random(seed * 7919 + number);
    for (auto& byte : frame) byte = static_cast<uint8_t>(random());
    frame[0] = number & 0xFF;
    frame[1] = (number >> 8) & 0xFF;
    frame[2] = (number >> 16) & 0xFF;
    return frame;
}

// What pixel 0 of frame `number` reads as once widened to BGRX by the renderer.
inline uint32_t Stamp(uint32_t number) { return 0xFF000000u | number; }

// The one timer of a test: it runs only when Tick() is called.
struct ManualTimer {
    static inline platform::TimerCallback callback = nullptr;
    static inline void* context = nullptr;
    static inline uint32_t due = 0;
    static inline uint32_t period = 0;
    static inline int created = 0;
    static inline int deleted = 0;

    static platform::Timer* Create(platform::TimerCallback cb, void* ctx, uint32_t d, uint32_t p) {
        callback = cb;
        context = ctx;
        due = d;
        period = p;
        ++created;
        return reinterpret_cast<platform::Timer*>(&callback);
    }
    static void Delete(platform::Timer*) {
        callback = nullptr;
        ++deleted;
    }
    static void Tick() {
        if (callback != nullptr) callback(context);
    }
    static bool Running() { return callback != nullptr; }
    static void Clear() {
        callback = nullptr;
        created = deleted = 0;
    }
};

inline size_t ListLength(const render::SurfaceNode* head) {
    size_t n = 0;
    for (const render::SurfaceNode* node = head->next; node != head; node = node->next) {
        if (node->next->previous != node) return SIZE_MAX;  // a broken link
        ++n;
    }
    return n;
}

// Both lists are well linked and their counts agree with them.
inline void ExpectListsConsistent(const render::RenderSession* session) {
    EXPECT_EQ(ListLength(session->freeSurfaces), session->freeCount.load());
    EXPECT_EQ(ListLength(session->displaySurfaces), session->displayCount.load());
}

// A session on a recording backend; the manual timer unless `realTimer`.
class RecordingSession : public ::testing::Test {
protected:
    void Open(bool realTimer = false) {
        ManualTimer::Clear();
        render::RenderProcess process;
        process.direct3d = &backend;
        process.renderInitMutex = platform::CreateMutex("RenderInitMutex");
        if (!realTimer) {
            process.createTimer = ManualTimer::Create;
            process.deleteTimer = ManualTimer::Delete;
        }
        session = render::OpenRenderSession(process);
        ASSERT_NE(session, nullptr);
    }
    void TearDown() override {
        if (session == nullptr) return;
        platform::Mutex* initMutex = session->process.renderInitMutex;
        render::CloseRenderSession(session);
        platform::CloseMutex(initMutex);
        EXPECT_EQ(backend.liveDevices.load(), 0);
        EXPECT_EQ(backend.liveSurfaces.load(), 0);
    }
    int32_t Frame(uint32_t number, int width = 32, int height = 24, render::WindowId window = 7) {
        const auto frame = MakeFrame(width, height, number);
        return render::SubmitFrame(session, window, frame.data(), width, height);
    }

    RecordingDirect3D backend;
    render::RenderSession* session = nullptr;
};

}  // namespace corvane::test
