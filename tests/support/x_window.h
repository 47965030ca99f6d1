// Windows of the tests' own X connection for the renderer to draw on, read
// back and compared with the frame stretched over them; and frames to draw.
#pragma once

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace corvane::test {

// BGR24, random but for pixel 0, which holds `number` (blue lowest).
inline std::vector<uint8_t> MakeFrame(int width, int height, uint32_t number) {
  std::vector<uint8_t> frame(size_t(width) * height * 3);
  std::mt19937 random(number * 7919 + width);
  for (auto& byte : frame) byte = uint8_t(random());
  for (int c = 0; c < 3; ++c) frame[c] = uint8_t(number >> (8 * c));
  return frame;
}

// One connection for the run (it keeps the server from resetting between the
// renderer's connections), or null without a server on DISPLAY.
inline xcb_connection_t* TestConnection() {
  static xcb_connection_t* const xcb = [] {
    xcb_connection_t* c = std::getenv("DISPLAY") ? xcb_connect(nullptr, nullptr) : nullptr;
    return c && !xcb_connection_has_error(c) ? c : nullptr;
  }();
  return xcb;
}

inline void Sync() {
  std::free(xcb_get_input_focus_reply(TestConnection(), xcb_get_input_focus(TestConnection()), 0));
}

inline const xcb_screen_t* Screen() {
  return xcb_setup_roots_iterator(xcb_get_setup(TestConnection())).data;
}

// Programs run side by side: each reads back windows in a 440 x 220 cell of its
// own (CORVANE_TEST_CELL) in the second row; the player's open at the top left.
#ifndef CORVANE_TEST_CELL
#define CORVANE_TEST_CELL 0
#endif
constexpr int16_t kCellX = 440 * CORVANE_TEST_CELL, kCellY = 220;

class XWindow {
 public:
  // Mapped in the left (place 0) or right half of this program's cell.
  XWindow(int width, int height, int place = 0, uint32_t background = 0)
      : width_(width), height_(height) {
    const uint32_t values[] = {background, 1};  // back pixel, override redirect
    xcb_create_window(TestConnection(), 0, id_ = xcb_generate_id(TestConnection()), Screen()->root,
                      kCellX + place * 220, kCellY, width, height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      Screen()->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(TestConnection(), id_);
    Sync();
  }
  ~XWindow() { Destroy(); }
  void Destroy() {
    if (id_ != 0) xcb_destroy_window(TestConnection(), std::exchange(id_, 0)), Sync();
  }
  void Resize(int width, int height) {
    const uint32_t size[] = {uint32_t(width_ = width), uint32_t(height_ = height)};
    xcb_configure_window(TestConnection(), id_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         size);
    Sync();
  }
  void Wipe() {  // back to the window's own colour
    xcb_clear_area(TestConnection(), 0, id_, 0, 0, 0, 0);
    Sync();
  }
  // Pixels not showing the BGR24 frame stretched by nearest neighbour, polled
  // for up to `seconds`; its last row (all of a null 1 x 1 frame) shows `lastRow`.
  int Mismatches(const uint8_t* frame, int fw, int fh, uint32_t lastRow, int seconds = 20) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (;; std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
      auto* image = xcb_get_image_reply(TestConnection(),
                                        xcb_get_image(TestConnection(), XCB_IMAGE_FORMAT_Z_PIXMAP,
                                                      id_, 0, 0, width_, height_, ~0u),
                                        0);
      const int all = width_ * height_;
      int bad = image && xcb_get_image_data_length(image) == all * 4 ? 0 : all;
      for (int i = 0; bad < all && i < all; ++i)
        bad += !Shows(xcb_get_image_data(image) + i * 4, i % width_, i / width_, frame, fw, fh,
                      lastRow);
      std::free(image);
      if (bad == 0 || std::chrono::steady_clock::now() > end) return bad;
    }
  }
  xcb_window_t id() const { return id_; }

 private:
  // Whether `got` (BGRX) is a source pixel whose area holds the centre of
  // (x, y), either side of a border.
  bool Shows(const uint8_t* got, int x, int y, const uint8_t* frame, int fw, int fh,
             uint32_t lastRow) const {
    auto sources = [](int d, int dn, int sn) {
      const int64_t num = (2 * int64_t{d} + 1) * sn, den = 2 * int64_t{dn};
      return std::pair<int, int>(num / den - (num % den == 0), num / den);
    };
    const auto [y0, y1] = sources(y, height_, fh);
    const auto [x0, x1] = sources(x, width_, fw);
    const uint8_t last[3] = {uint8_t(lastRow), uint8_t(lastRow >> 8), uint8_t(lastRow >> 16)};
    for (int sy = y0; sy <= y1; ++sy)
      for (int sx = x0; sx <= x1; ++sx)
        if (std::memcmp(got, sy == fh - 1 ? last : frame + (size_t(sy) * fw + sx) * 3, 3) == 0)
          return true;
    return false;
  }

  xcb_window_t id_ = 0;
  int width_, height_;
};

using DrawFn =
    std::function<int32_t(xcb_window_t, const std::vector<uint8_t>& frame, int w, int h)>;

// Frames through `draw` on a window resized in height, width and both, on a
// second window, on one destroyed meanwhile and on a new one after it.
inline void ExpectFramesFollowWindows(const DrawFn& draw, uint32_t lastRow) {
  const int steps[][4] = {{96, 64, 96, 64},   {48, 32, 96, 64},   {48, 32, 48, 32},
                          {48, 17, 48, 32},   {33, 17, 33, 17},   {33, 17, 33, 17},
                          {96, 64, 200, 150}, {200, 150, 97, 61}, {320, 180, 160, 90},
                          {5, 3, 64, 64}};
  XWindow window(96, 64), other(80, 60, 1);
  uint32_t n = 1;
  auto shows = [&](const XWindow& w, int fw, int fh) {
    const std::vector<uint8_t> frame = MakeFrame(fw, fh, n++);
    EXPECT_EQ(draw(w.id(), frame, fw, fh), 0);
    return w.Mismatches(frame.data(), fw, fh, lastRow);
  };
  for (const auto& s : steps) {
    window.Resize(s[2], s[3]);
    EXPECT_EQ(shows(window, s[0], s[1]), 0) << s[0] << "x" << s[1] << " on " << s[2] << "x" << s[3];
  }
  EXPECT_EQ(shows(other, 64, 40), 0) << "another window";
  const xcb_window_t gone = other.id();
  other.Destroy();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(draw(gone, MakeFrame(64, 40, n), 64, 40), 0);
  EXPECT_EQ(shows(XWindow(64, 48, 1), 64, 48), 0) << "a new window after a destroyed one";
}

}  // namespace corvane::test
