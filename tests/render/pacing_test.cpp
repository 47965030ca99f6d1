// Sessions on the platform's real timer: what comes out, in which order, and
// how many surfaces wait. Nothing here depends on how punctual the timer is;
// waits are polls with generous limits.
#include <chrono>
#include <condition_variable>
#include <thread>

#include "render/render_fixture.h"

namespace corvane::test {
namespace {

using namespace std::chrono_literals;

template <typename Condition>
bool WaitFor(Condition done, std::chrono::milliseconds limit = 20s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

// Stamps of the surfaces copied to the back buffer, in order.
std::vector<uint32_t> Shown(const RecordingDirect3D& backend) {
    std::vector<uint32_t> shown;
    for (const Call& c : backend.Calls()) {
        if (c.op == Op::UpdateSurface) shown.push_back(c.stamp);
    }
    return shown;
}

void ExpectOldestFirstNeverTwice(const std::vector<uint32_t>& shown) {
    for (size_t i = 1; i < shown.size(); ++i) EXPECT_LT(shown[i - 1], shown[i]) << "at " << i;
}

class RenderPacingTest : public RecordingSession {
protected:
    void SetUp() override { Open(true); }
};

TEST_F(RenderPacingTest, FasterFramesWaitUpToTheLimitAndGoOutOldestFirst) {
    render::SetFramesPerSecond(session, 25);  // limit 12
    std::atomic<int> mostSurfaces{0};
    backend.beforeCall = [&](Op op) {
        if (op != Op::CreateOffscreenPlainSurface) return;
        const int now = backend.liveSurfaces.load() + 1;
        if (now > mostSurfaces.load()) mostSurfaces = now;
    };
    for (uint32_t n = 1; n <= 60; ++n) {
        EXPECT_EQ(Frame(n), 0);
        EXPECT_LE(session->displayCount.load(), 12u);
    }
    ASSERT_TRUE(WaitFor([&] { return session->displayCount.load() == 0; }));
    const auto shown = Shown(backend);
    ASSERT_GE(shown.size(), 12u);
    EXPECT_LT(shown.size(), 60u);  // some were dropped
    EXPECT_EQ(shown.front(), Stamp(1));
    ExpectOldestFirstNeverTwice(shown);
    EXPECT_LE(mostSurfaces.load(), 13);
    EXPECT_EQ(backend.CountOf(Op::Present), shown.size());
}

TEST_F(RenderPacingTest, SlowerFramesAreEachShownOnceAndEmptyTicksDoNothing) {
    render::SetFramesPerSecond(session, 50);
    for (uint32_t n = 1; n <= 8; ++n) {
        Frame(n);
        std::this_thread::sleep_for(60ms);
    }
    ASSERT_TRUE(WaitFor([&] { return session->displayCount.load() == 0; }));
    std::this_thread::sleep_for(100ms);
    std::vector<uint32_t> expected;
    for (uint32_t n = 1; n <= 8; ++n) expected.push_back(Stamp(n));
    EXPECT_EQ(Shown(backend), expected);
    EXPECT_EQ(backend.CountOf(Op::Present), 8u);
}

TEST_F(RenderPacingTest, RateAboveOneThousandTicksOnce) {
    render::SetFramesPerSecond(session, 2000);
    Frame(1);
    std::this_thread::sleep_for(100ms);
    for (uint32_t n = 2; n <= 6; ++n) Frame(n);
    std::this_thread::sleep_for(200ms);
    EXPECT_LE(backend.CountOf(Op::Present), 1u);
    EXPECT_GE(session->displayCount.load(), 5u);
}

TEST_F(RenderPacingTest, CloseWaitsForARunningTickAndNoneFollows) {
    std::mutex lock;
    std::condition_variable changed;
    bool inTick = false, release = false;
    backend.beforeCall = [&](Op op) {
        if (op != Op::Present) return;
        std::unique_lock<std::mutex> hold(lock);
        inTick = true;
        changed.notify_all();
        changed.wait(hold, [&] { return release; });
    };
    render::SetFramesPerSecond(session, 100);
    Frame(1);
    {
        std::unique_lock<std::mutex> hold(lock);
        ASSERT_TRUE(changed.wait_for(hold, 20s, [&] { return inTick; }));
    }
    std::atomic<bool> closed{false};
    std::thread closer([&] {
        render::CloseRenderSession(session);
        closed = true;
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(closed.load()) << "close returned while a tick was running";
    {
        std::lock_guard<std::mutex> hold(lock);
        release = true;
    }
    changed.notify_all();
    closer.join();
    session = nullptr;
    const size_t calls = backend.CallCount();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(backend.CallCount(), calls);
    EXPECT_EQ(backend.liveDevices.load(), 0);
    EXPECT_EQ(backend.liveSurfaces.load(), 0);
}

TEST(RenderPacing, TwoSessionsOnTheSharedMutexesRunSideBySide) {
    auto run = [](int rate, int windowResizeAt) {
        RecordingDirect3D backend;
        render::RenderProcess process;
        process.direct3d = &backend;
        process.renderInitMutex = platform::CreateMutex("RenderInitMutex");
        render::RenderSession* session = render::OpenRenderSession(process);
        ASSERT_NE(session, nullptr);
        render::SetFramesPerSecond(session, rate);
        for (uint32_t n = 1; n <= 150; ++n) {
            if (static_cast<int>(n) == windowResizeAt) backend.SetClientRect(200, 100);
            if (n == 100) render::SetFramesPerSecond(session, rate * 2);
            const auto frame = MakeFrame(16, 8, n);
            EXPECT_EQ(render::SubmitFrame(session, 3, frame.data(), 16, 8), 0);
            std::this_thread::sleep_for(1ms);
        }
        render::CloseRenderSession(session);
        platform::CloseMutex(process.renderInitMutex);
        ExpectOldestFirstNeverTwice(Shown(backend));
        EXPECT_GT(backend.CountOf(Op::Present), 0u);
        EXPECT_EQ(backend.liveDevices.load() + backend.liveSurfaces.load(), 0);
    };
    std::thread a(run, 200, 40);
    std::thread b(run, 300, 70);
    a.join();
    b.join();
}

}  // namespace
}  // namespace corvane::test
