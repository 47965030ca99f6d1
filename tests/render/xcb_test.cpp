// The X11 backend against a real X server (the test command starts Xvfb): what
// reaches the window is read back with get-image and compared with the frame
// stretched to the client area by nearest neighbour.
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <cstdlib>
#include <string>
#include <thread>

#include "render/render_fixture.h"

namespace corvane::test {
namespace {

// A window of the test's own connection, mapped on top, out of the way of
// other processes' windows as far as the screen allows.
class Window {
public:
    Window(xcb_connection_t* xcb, int width, int height) : xcb_(xcb) {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(xcb)).data;
        id_ = xcb_generate_id(xcb);
        const uint32_t values[] = {screen->black_pixel, 1};
        const int16_t x = static_cast<int16_t>(20 + getpid() % 23 * 30);
        xcb_create_window(xcb, XCB_COPY_FROM_PARENT, id_, screen->root, x, 20,
                          static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(xcb, id_);
        std::free(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
    }
    ~Window() { Destroy(); }
    void Destroy() {
        if (id_ == 0) return;
        xcb_destroy_window(xcb_, id_);
        std::free(xcb_get_input_focus_reply(xcb_, xcb_get_input_focus(xcb_), nullptr));
        id_ = 0;
    }
    void Resize(int width, int height) {
        const uint32_t size[] = {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
        xcb_configure_window(xcb_, id_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
        std::free(xcb_get_input_focus_reply(xcb_, xcb_get_input_focus(xcb_), nullptr));
    }
    // BGRX rows of the window's pixels.
    std::vector<uint8_t> Read(int width, int height) const {
        xcb_get_image_reply_t* image = xcb_get_image_reply(
            xcb_, xcb_get_image(xcb_, XCB_IMAGE_FORMAT_Z_PIXMAP, id_, 0, 0, static_cast<uint16_t>(width),
                                static_cast<uint16_t>(height), UINT32_MAX),
            nullptr);
        std::vector<uint8_t> pixels;
        if (image != nullptr) {
            const uint8_t* data = xcb_get_image_data(image);
            pixels.assign(data, data + xcb_get_image_data_length(image));
        }
        std::free(image);
        return pixels;
    }
    render::WindowId id() const { return id_; }

private:
    xcb_connection_t* xcb_;
    xcb_window_t id_ = 0;
};

// Window pixels that match no source pixel next to the point their centre
// maps to. Nearest neighbour may take either neighbour where the centre falls
// between two, and none other; at 1:1 there is one candidate. The frame's
// last row is never converted: it shows `lastRow` (BGR).
int Mismatches(const std::vector<uint8_t>& window, int ww, int wh, const std::vector<uint8_t>& frame,
               int fw, int fh, uint32_t lastRow) {
    if (window.size() != static_cast<size_t>(ww) * wh * 4) return ww * wh;
    auto candidates = [](int d, int dn, int sn, int* lo, int* hi) {
        const double s = (d + 0.5) * sn / dn - 0.5;
        *lo = std::max(0, static_cast<int>(std::floor(s)));
        *hi = std::min(sn - 1, static_cast<int>(std::ceil(s)));
    };
    int bad = 0;
    for (int y = 0; y < wh; ++y) {
        int y0, y1;
        candidates(y, wh, fh, &y0, &y1);
        for (int x = 0; x < ww; ++x) {
            int x0, x1;
            candidates(x, ww, fw, &x0, &x1);
            const uint8_t* got = &window[(static_cast<size_t>(y) * ww + x) * 4];
            bool found = false;
            for (int sy = y0; sy <= y1 && !found; ++sy) {
                for (int sx = x0; sx <= x1 && !found; ++sx) {
                    uint8_t want[3];
                    if (sy == fh - 1) {
                        for (int c = 0; c < 3; ++c) want[c] = static_cast<uint8_t>(lastRow >> (8 * c));
                    } else {
                        std::memcpy(want, &frame[(static_cast<size_t>(sy) * fw + sx) * 3], 3);
                    }
                    found = std::memcmp(want, got, 3) == 0;
                }
            }
            bad += !found;
        }
    }
    return bad;
}

// One connection of the tests' own for the whole run. An X server resets when
// its last client leaves, and refuses clients while it does: held open, it
// keeps the server from resetting between the backend's connections.
xcb_connection_t* TestConnection() {
    static xcb_connection_t* const xcb = [] {
        for (int attempt = 0; attempt < 10; ++attempt) {
            xcb_connection_t* c = xcb_connect(nullptr, nullptr);
            if (xcb_connection_has_error(c) == 0) return c;
            xcb_disconnect(c);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return static_cast<xcb_connection_t*>(nullptr);
    }();
    return xcb;
}

class XcbRenderTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (std::getenv("DISPLAY") == nullptr) GTEST_SKIP() << "DISPLAY is not set: no X server to draw on";
        xcb_ = TestConnection();
        if (xcb_ == nullptr) GTEST_SKIP() << "the X server of DISPLAY does not answer";
        direct3d_ = render::CreateXcbDirect3D(nullptr, GetParam());
        render::RenderProcess process;
        process.direct3d = direct3d_;
        process.renderInitMutex = platform::CreateMutex("RenderInitMutex");
        session_ = render::OpenRenderSession(process);
        ASSERT_NE(session_, nullptr);
    }
    void TearDown() override {
        if (session_ != nullptr) {
            platform::Mutex* initMutex = session_->process.renderInitMutex;
            render::CloseRenderSession(session_);
            platform::CloseMutex(initMutex);
        }
        if (direct3d_ != nullptr) direct3d_->Release();
    }
    // Shows frame `number` on `window` and reads the window back.
    int ShowAndCompare(const Window& window, int fw, int fh, int ww, int wh, uint32_t number) {
        const auto frame = MakeFrame(fw, fh, number, fw * 31 + fh);
        EXPECT_EQ(render::SubmitFrame(session_, window.id(), frame.data(), fw, fh), 0);
        return Mismatches(window.Read(ww, wh), ww, wh, frame, fw, fh, 0xFFFFFF);
    }

    xcb_connection_t* xcb_ = nullptr;
    render::IDirect3D9* direct3d_ = nullptr;
    render::RenderSession* session_ = nullptr;
};

TEST_P(XcbRenderTest, DirectPathStretchesTheFrameOverTheClientArea) {
    struct Case { int fw, fh, ww, wh; };
    const Case cases[] = {{96, 64, 96, 64}, {33, 17, 33, 17}, {96, 64, 200, 150},
                          {200, 150, 97, 61}, {320, 180, 160, 90}, {5, 3, 64, 64}};
    uint32_t number = 1;
    for (const Case& c : cases) {
        Window window(xcb_, c.ww, c.wh);
        EXPECT_EQ(ShowAndCompare(window, c.fw, c.fh, c.ww, c.wh, number++), 0)
            << c.fw << "x" << c.fh << " into " << c.ww << "x" << c.wh;
    }
}

TEST_P(XcbRenderTest, ChangesTakeTheResetRoadOnOneDevice) {
    Window first(xcb_, 120, 90);
    ASSERT_EQ(ShowAndCompare(first, 120, 90, 120, 90, 1), 0);
    render::IDirect3DDevice9* device = session_->device.load();
    ASSERT_NE(device, nullptr);
    first.Resize(150, 100);
    EXPECT_EQ(ShowAndCompare(first, 120, 90, 150, 100, 2), 0) << "resized window";
    EXPECT_EQ(ShowAndCompare(first, 64, 40, 150, 100, 3), 0) << "new frame size";
    Window second(xcb_, 80, 60);
    EXPECT_EQ(ShowAndCompare(second, 64, 40, 80, 60, 4), 0) << "another window";
    EXPECT_EQ(session_->device.load(), device);
}

TEST_P(XcbRenderTest, ADestroyedWindowFailsQuietlyAndANewOneWorks) {
    Window first(xcb_, 64, 48);
    ASSERT_EQ(ShowAndCompare(first, 64, 48, 64, 48, 1), 0);
    const render::WindowId gone = first.id();
    first.Destroy();
    const auto frame = MakeFrame(64, 48, 2);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(render::SubmitFrame(session_, gone, frame.data(), 64, 48), 0);
    EXPECT_EQ(session_->device.load(), nullptr);
    Window second(xcb_, 64, 48);
    EXPECT_EQ(ShowAndCompare(second, 64, 48, 64, 48, 3), 0);
}

TEST_P(XcbRenderTest, QueuedFramesReachTheWindowOnTicks) {
    Window window(xcb_, 100, 80);
    render::SetFramesPerSecond(session_, 25);
    const auto frame = MakeFrame(50, 40, 9);
    ASSERT_EQ(render::SubmitFrame(session_, window.id(), frame.data(), 50, 40), 0);
    // A new surface's last row is black, and the conversion leaves it so.
    int bad = -1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (bad != 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        bad = Mismatches(window.Read(100, 80), 100, 80, frame, 50, 40, 0x000000);
    }
    EXPECT_EQ(bad, 0);
}

INSTANTIATE_TEST_SUITE_P(SharedMemoryAndPlain, XcbRenderTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "SharedMemory" : "PutImage"; });

// No server answering: no device is ever made, every call returns as usual.
void RunWithoutServer(const char* display) {
    render::IDirect3D9* direct3d = render::CreateXcbDirect3D(display);
    ASSERT_NE(direct3d, nullptr);
    render::RenderProcess process;
    process.direct3d = direct3d;
    render::RenderSession* session = render::OpenRenderSession(process);
    ASSERT_NE(session, nullptr);
    const auto frame = MakeFrame(16, 16, 1);
    for (int fps : {0, 25}) {
        EXPECT_EQ(render::SetFramesPerSecond(session, fps), 0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(render::SubmitFrame(session, 0x200001, frame.data(), 16, 16), 0);
        }
        EXPECT_EQ(session->device.load(), nullptr);
    }
    render::CloseRenderSession(session);
    direct3d->Release();
}

TEST(XcbRenderNoServer, EveryCallReturnsAsDesignedWithoutAServer) {
    RunWithoutServer(":87");
    const char* display = std::getenv("DISPLAY");
    const std::string saved = display != nullptr ? display : "";
    unsetenv("DISPLAY");
    RunWithoutServer(nullptr);
    if (display != nullptr) setenv("DISPLAY", saved.c_str(), 1);
}

}  // namespace
}  // namespace corvane::test
