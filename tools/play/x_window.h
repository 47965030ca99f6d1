// The player's own window: a top-level X window of the client's connection,
// whose id goes to VideoRenderFrame as any client's would.
#pragma once

#include <cstdint>
#include <string>

struct xcb_connection_t;

namespace corvane::tools {

class XWindow {
 public:
  // Throws std::runtime_error when no X server answers.
  XWindow();
  ~XWindow();
  XWindow(const XWindow&) = delete;
  XWindow& operator=(const XWindow&) = delete;

  void Open(int width, int height, const std::string& title);
  uintptr_t id() const { return window_; }
  // Handles what arrived; false once the window was asked to close.
  bool Poll();

 private:
  xcb_connection_t* xcb_ = nullptr;
  uint32_t window_ = 0;
  uint32_t deleteAtom_ = 0;
};

}  // namespace corvane::tools
