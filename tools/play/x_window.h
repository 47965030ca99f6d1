// The player's own window: a top-level X window of the client's connection,
// whose id goes to VideoRenderFrame as any client's would.
#pragma once

#include <cstdint>
#include <string>

struct xcb_connection_t;

namespace corvane::tools {

// What the user asked for since the last look.
struct WindowInput {
  bool quit = false;         // q, Escape, or the window closed
  bool togglePause = false;  // space
};

class XWindow {
 public:
  // Throws std::runtime_error when no X server answers.
  XWindow();
  ~XWindow();
  XWindow(const XWindow&) = delete;
  XWindow& operator=(const XWindow&) = delete;

  // A window of the picture's shape, `displayWidth` x `height` (the picture's
  // width times its pixel aspect), scaled down as a whole when the screen is
  // smaller; the window manager is asked to keep that shape when the user
  // resizes it, since the renderer fills the whole window.
  void Open(int displayWidth, int height, const std::string& title);
  uintptr_t id() const { return window_; }
  int width() const { return width_; }
  int height() const { return height_; }
  // Handles what arrived.
  WindowInput Poll();

 private:
  uint32_t KeySym(uint8_t keycode);

  xcb_connection_t* xcb_ = nullptr;
  uint32_t window_ = 0;
  uint32_t deleteAtom_ = 0;
  int width_ = 0;
  int height_ = 0;
};

// The largest size of the shape `width` x `height` that fits `maxWidth` x
// `maxHeight`: the size itself when it fits. Sides of at least 1.
void FitInside(int maxWidth, int maxHeight, int& width, int& height);

}  // namespace corvane::tools
