// Windows of the tests' own X connection for the renderer to draw on, read
// back with get-image and compared with a frame stretched over them.
#pragma once

#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <thread>

namespace corvane::test {

// A round trip: every request sent before it has been carried out.
inline void Sync(xcb_connection_t* xcb) {
  std::free(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
}

// One connection for the whole run, or null without a server. An X server
// resets when its last client leaves and refuses clients while it does: held
// open, this keeps it from resetting between the renderer's connections.
inline xcb_connection_t* TestConnection() {
  static xcb_connection_t* const xcb = [] {
    for (int attempt = 0; std::getenv("DISPLAY") != nullptr && attempt < 10; ++attempt) {
      xcb_connection_t* c = xcb_connect(nullptr, nullptr);
      if (xcb_connection_has_error(c) == 0) return c;
      xcb_disconnect(c);
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return static_cast<xcb_connection_t*>(nullptr);
  }();
  return xcb;
}

// Window pixel `d` of `dn` shows source pixel floor((d + 0.5) · sn / dn): the
// one whose area holds its centre. A centre on a border may take either side,
// so the candidates run from *first to the one returned.
inline int NearestSource(int d, int dn, int sn, int* first) {
  const int64_t num = (2 * int64_t{d} + 1) * sn, den = 2 * int64_t{dn};
  *first = static_cast<int>(num / den - (num % den == 0 ? 1 : 0));
  return static_cast<int>(num / den);
}

// A mapped window in one of 64 places by process id, in a band of the screen
// of each test program's own: another window on top would hide what is drawn.
class XWindow {
 public:
  XWindow(int width, int height, int band, uint32_t background)
      : xcb_(TestConnection()), width_(width), height_(height) {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(xcb_)).data;
    const uint32_t values[] = {background, 1};
    xcb_create_window(xcb_, XCB_COPY_FROM_PARENT, id_ = xcb_generate_id(xcb_), screen->root,
                      static_cast<int16_t>(20 + getpid() % 16 * 110),
                      static_cast<int16_t>(20 + band * 540 + getpid() / 16 % 4 * 100),
                      static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(xcb_, id_);
    Sync(xcb_);
  }
  XWindow(const XWindow&) = delete;
  ~XWindow() { Destroy(); }
  void Destroy() {
    if (id_ != 0) xcb_destroy_window(xcb_, id_);
    Sync(xcb_);
    id_ = 0;
  }
  void Resize(int width, int height) {
    const uint32_t size[] = {static_cast<uint32_t>(width_ = width),
                             static_cast<uint32_t>(height_ = height)};
    xcb_configure_window(xcb_, id_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    Sync(xcb_);
  }
  // Back to the window's own colour, so that any later drawing shows.
  void Wipe() {
    xcb_clear_area(xcb_, 0, id_, 0, 0, 0, 0);
    Sync(xcb_);
  }

  // Window pixels that are not what the BGR24 frame stretched over the window
  // by nearest neighbour shows; all of them if the window can't be read. The
  // frame's last row is never converted: it shows `lastRow` (0xRRGGBB).
  int Mismatches(const uint8_t* frame, int fw, int fh, uint32_t lastRow) const {
    const int all = width_ * height_;
    xcb_get_image_reply_t* image = xcb_get_image_reply(
        xcb_,
        xcb_get_image(xcb_, XCB_IMAGE_FORMAT_Z_PIXMAP, id_, 0, 0, static_cast<uint16_t>(width_),
                      static_cast<uint16_t>(height_), UINT32_MAX),
        nullptr);
    int bad = all;
    if (image != nullptr && xcb_get_image_data_length(image) == all * 4) {
      const uint8_t* got = xcb_get_image_data(image);  // BGRX
      bad = 0;
      for (int i = 0; i < all; ++i)
        bad += !Shows(&got[i * 4], i % width_, i / width_, frame, fw, fh, lastRow);
    }
    std::free(image);
    return bad;
  }
  // Pixels not of `colour`: a one-row frame is all last row.
  int NotOfColour(uint32_t colour) const { return Mismatches(nullptr, 1, 1, colour); }
  // Polls until nothing mismatches, for as long as a loaded machine may need.
  int AwaitMismatches(const uint8_t* frame, int fw, int fh, uint32_t lastRow) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int bad;
    while ((bad = Mismatches(frame, fw, fh, lastRow)) != 0 &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return bad;
  }
  xcb_window_t id() const { return id_; }
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  bool Shows(const uint8_t* got, int x, int y, const uint8_t* frame, int fw, int fh,
             uint32_t lastRow) const {
    int y0, x0;
    const int y1 = NearestSource(y, height_, fh, &y0), x1 = NearestSource(x, width_, fw, &x0);
    for (int sy = y0; sy <= y1; ++sy) {
      for (int sx = x0; sx <= x1; ++sx) {
        bool same = true;
        for (int c = 0; c < 3; ++c) {
          same =
              same && got[c] == (sy == fh - 1 ? static_cast<uint8_t>(lastRow >> (8 * c))
                                              : frame[(static_cast<size_t>(sy) * fw + sx) * 3 + c]);
        }
        if (same) return true;
      }
    }
    return false;
  }

  xcb_connection_t* xcb_;
  xcb_window_t id_ = 0;
  int width_, height_;
};

}  // namespace corvane::test
