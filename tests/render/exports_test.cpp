// The render exports as a client calls them through the shared object, drawing
// on real windows of the X server of $DISPLAY (the test command starts Xvfb).
// What reaches a window is read back with get-image and compared with the
// frame: exactly at 1:1, or blown up to 2 × 2 blocks where the window is twice
// the frame. The last row of a frame is never converted: it keeps the clear's
// white on the direct path and a new surface's black on the paced path.
#include <gtest/gtest.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <thread>
#include <vector>

#include "corvane.h"

namespace {

using Picture = std::vector<uint8_t>;  // BGR24, width × 3 bytes a row

constexpr uint32_t kBackground = 0x3C8A5A;  // a window's own colour (0xRRGGBB), no frame's
constexpr uint32_t kWhite = 0xFFFFFF;
constexpr uint32_t kBlack = 0x000000;

// A round trip: every request sent before it has been carried out.
void Sync(xcb_connection_t* xcb) {
    std::free(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
}

// A mapped window of the test's own connection, below the part of the screen
// that the renderer's other tests draw on, in one of 64 places by process id:
// another process's window on top would hide what is drawn.
class Window {
public:
    Window(xcb_connection_t* xcb, int width, int height) : xcb_(xcb), width_(width), height_(height) {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(xcb)).data;
        id_ = xcb_generate_id(xcb);
        const uint32_t values[] = {kBackground, 1};
        xcb_create_window(xcb, XCB_COPY_FROM_PARENT, id_, screen->root,
                          static_cast<int16_t>(20 + getpid() % 16 * 110),
                          static_cast<int16_t>(560 + getpid() / 16 % 4 * 100),
                          static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(xcb, id_);
        Sync(xcb);
    }
    ~Window() {
        xcb_destroy_window(xcb_, id_);
        Sync(xcb_);
    }
    void Resize(int width, int height) {
        const uint32_t size[] = {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
        xcb_configure_window(xcb_, id_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
        Sync(xcb_);
        width_ = width;
        height_ = height;
    }
    // Back to the window's own colour, so that any later drawing shows.
    void Wipe() {
        xcb_clear_area(xcb_, 0, id_, 0, 0, 0, 0);
        Sync(xcb_);
    }
    // Pixels that differ from `want`; all of them if the window can't be read.
    int Mismatches(const Picture& want) const {
        const int all = width_ * height_;
        xcb_get_image_reply_t* image = xcb_get_image_reply(
            xcb_, xcb_get_image(xcb_, XCB_IMAGE_FORMAT_Z_PIXMAP, id_, 0, 0, static_cast<uint16_t>(width_),
                                static_cast<uint16_t>(height_), UINT32_MAX), nullptr);
        int bad = all;
        if (image != nullptr && xcb_get_image_data_length(image) == all * 4) {
            const uint8_t* got = xcb_get_image_data(image);  // BGRX
            bad = 0;
            for (int i = 0; i < all; ++i) bad += std::memcmp(&got[i * 4], &want[i * 3], 3) != 0;
        }
        std::free(image);
        return bad;
    }
    // Polls until the window shows `want`, for as long as a loaded machine may need.
    int AwaitMismatches(const Picture& want) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        int bad = Mismatches(want);
        while (bad != 0 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            bad = Mismatches(want);
        }
        return bad;
    }
    WindowHandle id() const { return id_; }
    int width() const { return width_; }
    int height() const { return height_; }

private:
    xcb_connection_t* xcb_;
    xcb_window_t id_ = 0;
    int width_, height_;
};

// A frame as a client holds it: random BGR24 rows and a top-down header.
struct Frame {
    Frame(int width, int height, uint32_t seed)
        : pixels(static_cast<size_t>(width) * height * 3),
          header{sizeof(BITMAPINFOHEADER), width, -height, 1, 24, 0, 0, 0, 0, 0, 0} {
        std::mt19937 random(seed);
        for (uint8_t& byte : pixels) byte = static_cast<uint8_t>(random());
    }
    // The window `scale` times the frame's size: each frame pixel a scale × scale
    // block; the frame's last row in `lastRow`.
    Picture Seen(int scale, uint32_t lastRow) const {
        const int fw = header.biWidth, fh = -header.biHeight, ww = fw * scale, wh = fh * scale;
        Picture want(static_cast<size_t>(ww) * wh * 3);
        for (int y = 0; y < wh; ++y) {
            for (int x = 0; x < ww; ++x) {
                uint8_t* to = &want[(static_cast<size_t>(y) * ww + x) * 3];
                if (y / scale == fh - 1) {
                    for (int c = 0; c < 3; ++c) to[c] = static_cast<uint8_t>(lastRow >> (8 * c));
                } else {
                    std::memcpy(to, &pixels[(static_cast<size_t>(y / scale) * fw + x / scale) * 3], 3);
                }
            }
        }
        return want;
    }

    Picture pixels;
    BITMAPINFOHEADER header;
};

Picture Plain(const Window& window, uint32_t colour) {
    Picture want(static_cast<size_t>(window.width()) * window.height() * 3);
    for (size_t i = 0; i < want.size(); ++i) want[i] = static_cast<uint8_t>(colour >> (8 * (i % 3)));
    return want;
}

// Reserved arguments carry junk: none of them may be read.
int32_t Draw(RenderHandle session, WindowHandle window, const uint8_t* pixels,
             const BITMAPINFOHEADER* header) {
    return VideoRenderFrame(window, 2, 3, 4, 5, 6, 7, 8, 9, pixels, header, 12, session);
}
int32_t Draw(RenderHandle session, const Window& window, const Frame& frame) {
    return Draw(session, window.id(), frame.pixels.data(), &frame.header);
}

// Long enough for several ticks at 25 frames a second to draw, were any due.
void QuietSpell() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

TEST(RenderExports, NullHandlesGiveTheirResults) {
    const Frame frame(16, 8, 1);
    EXPECT_EQ(Draw(nullptr, 0x200001, frame.pixels.data(), &frame.header), ResultBadArgument);
    EXPECT_EQ(VideoRenderSetFPS(nullptr, 25), ResultBadArgument);
    EXPECT_EQ(VideoRenderClose(nullptr), 1);
}

struct Path {
    const char* name;
    int32_t fps;       // 0: drawn at once; else paced by the timer
    uint32_t lastRow;  // what the unconverted last row shows
};
void PrintTo(const Path& path, std::ostream* out) { *out << path.name; }

class RenderExportsOnX : public ::testing::TestWithParam<Path> {
protected:
    void SetUp() override {
        if (std::getenv("DISPLAY") == nullptr) GTEST_SKIP() << "DISPLAY is not set: no X server to draw on";
        xcb_ = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(xcb_) != 0) GTEST_SKIP() << "the X server of DISPLAY does not answer";
        session_ = VideoRenderOpen();
        ASSERT_NE(session_, nullptr);
        ASSERT_EQ(VideoRenderSetFPS(session_, GetParam().fps), 0);
    }
    void TearDown() override {
        if (session_ != nullptr) {
            EXPECT_EQ(VideoRenderClose(session_), 1);
        }
        if (xcb_ != nullptr) xcb_disconnect(xcb_);
    }
    // Draws and waits for the window to show the frame at `scale`.
    int Shown(const Window& window, const Frame& frame, int scale = 1) {
        EXPECT_EQ(Draw(session_, window, frame), 0);
        return window.AwaitMismatches(frame.Seen(scale, GetParam().lastRow));
    }

    xcb_connection_t* xcb_ = nullptr;
    RenderHandle session_ = nullptr;
};

TEST_P(RenderExportsOnX, FramesFollowChangesOfFrameAndWindowSize) {
    struct Step { int ww, wh, fw, fh; const char* what; };
    const Step steps[] = {{96, 64, 96, 64, "first frame"},      {96, 64, 48, 32, "smaller frame"},
                          {48, 32, 48, 32, "window shrunk"},    {96, 64, 48, 32, "window grown"},
                          {33, 17, 33, 17, "odd sizes"},        {33, 17, 33, 17, "same size again"},
                          {40, 30, 20, 15, "odd half size"}};
    Window window(xcb_, steps[0].ww, steps[0].wh);
    uint32_t seed = 1;
    for (const Step& s : steps) {
        if (s.ww != window.width() || s.wh != window.height()) window.Resize(s.ww, s.wh);
        EXPECT_EQ(Shown(window, Frame(s.fw, s.fh, seed++), s.ww / s.fw), 0) << s.what;
    }
}

TEST_P(RenderExportsOnX, BadFramesReturnZeroAndDrawNothing) {
    Window window(xcb_, 64, 48);
    const Frame good(64, 48, 5);
    ASSERT_EQ(Shown(window, good), 0);
    window.Wipe();
    struct Bad { int32_t width, height; bool pixels, header; const char* what; };
    const Bad cases[] = {{0, -48, true, true, "zero width"},     {-64, -48, true, true, "negative width"},
                         {64, 0, true, true, "zero height"},     {64, 48, true, true, "bottom-up height"},
                         {64, -48, false, true, "null pixels"},  {64, -48, true, false, "null header"}};
    for (const Bad& c : cases) {
        BITMAPINFOHEADER header = good.header;
        header.biWidth = c.width;
        header.biHeight = c.height;
        EXPECT_EQ(Draw(session_, window.id(), c.pixels ? good.pixels.data() : nullptr,
                       c.header ? &header : nullptr), 0) << c.what;
    }
    QuietSpell();
    EXPECT_EQ(window.Mismatches(Plain(window, kBackground)), 0);
    EXPECT_EQ(Shown(window, Frame(64, 48, 6)), 0) << "a good frame after the bad ones";
}

TEST_P(RenderExportsOnX, ADestroyedWindowFailsQuietlyAndANewOneWorks) {
    auto first = std::make_unique<Window>(xcb_, 64, 48);
    ASSERT_EQ(Shown(*first, Frame(64, 48, 7)), 0);
    const WindowHandle gone = first->id();
    EXPECT_EQ(Draw(session_, *first, Frame(64, 48, 8)), 0);  // may still wait for a tick
    first.reset();
    const Frame frame(64, 48, 9);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Draw(session_, gone, frame.pixels.data(), &frame.header), 0);
    Window second(xcb_, 64, 48);
    EXPECT_EQ(Shown(second, Frame(64, 48, 10)), 0);
}

// On the paced path frames still wait in the queue when the session closes:
// the close stops the running timer and drops them.
TEST_P(RenderExportsOnX, CloseReturnsAndNothingIsDrawnAfterIt) {
    Window window(xcb_, 80, 60);
    ASSERT_EQ(Shown(window, Frame(80, 60, 20)), 0);
    for (uint32_t seed = 21; seed < 33; ++seed) EXPECT_EQ(Draw(session_, window, Frame(80, 60, seed)), 0);
    EXPECT_EQ(VideoRenderClose(session_), 1);
    session_ = nullptr;
    window.Wipe();
    QuietSpell();
    EXPECT_EQ(window.Mismatches(Plain(window, kBackground)), 0);
}

INSTANTIATE_TEST_SUITE_P(Paths, RenderExportsOnX,
                         ::testing::Values(Path{"Direct", 0, kWhite}, Path{"Paced25", 25, kBlack}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
