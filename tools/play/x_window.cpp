#include "x_window.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace corvane::tools {

namespace {

uint32_t Atom(xcb_connection_t* xcb, const char* name) {
  xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
      xcb, xcb_intern_atom(xcb, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
  const uint32_t atom = reply != nullptr ? reply->atom : 0;
  std::free(reply);
  return atom;
}

// The keysyms the player answers to (X11's keysymdef.h).
constexpr uint32_t kKeyQ = 0x71;
constexpr uint32_t kKeyEscape = 0xff1b;
constexpr uint32_t kKeySpace = 0x20;

// WM_NORMAL_HINTS as ICCCM lays it out: flags, then 17 words.
struct SizeHints {
  uint32_t flags;
  int32_t x, y, width, height, minWidth, minHeight, maxWidth, maxHeight;
  int32_t widthInc, heightInc, minAspectNum, minAspectDen, maxAspectNum, maxAspectDen;
  int32_t baseWidth, baseHeight;
  uint32_t gravity;
};
constexpr uint32_t kHintProgramSize = 1u << 3;
constexpr uint32_t kHintAspect = 1u << 7;

}  // namespace

void FitInside(int maxWidth, int maxHeight, int& width, int& height) {
  if (width > maxWidth || height > maxHeight) {
    const double scale =
        std::min(static_cast<double>(maxWidth) / width, static_cast<double>(maxHeight) / height);
    width = static_cast<int>(std::lround(width * scale));
    height = static_cast<int>(std::lround(height * scale));
  }
  width = std::max(width, 1);
  height = std::max(height, 1);
}

XWindow::XWindow() {
  xcb_ = xcb_connect(nullptr, nullptr);
  if (xcb_connection_has_error(xcb_) != 0) {
    xcb_disconnect(xcb_);
    xcb_ = nullptr;
    const char* display = std::getenv("DISPLAY");
    throw std::runtime_error(std::string("no X server answers on DISPLAY=") +
                             (display != nullptr ? display : "(unset)"));
  }
}

XWindow::~XWindow() {
  if (window_ != 0) xcb_destroy_window(xcb_, window_);
  xcb_disconnect(xcb_);
}

void XWindow::Open(int displayWidth, int height, const std::string& title) {
  const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(xcb_)).data;
  width_ = displayWidth;
  height_ = height;
  FitInside(screen->width_in_pixels, screen->height_in_pixels, width_, height_);
  window_ = xcb_generate_id(xcb_);
  const uint32_t values[] = {screen->black_pixel,
                             XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_KEY_PRESS};
  xcb_create_window(xcb_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0,
                    static_cast<uint16_t>(width_), static_cast<uint16_t>(height_), 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                    XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
  xcb_change_property(xcb_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                      static_cast<uint32_t>(title.size()), title.data());
  SizeHints hints{};
  hints.flags = kHintProgramSize | kHintAspect;
  hints.width = width_;
  hints.height = height_;
  hints.minAspectNum = hints.maxAspectNum = width_;
  hints.minAspectDen = hints.maxAspectDen = height_;
  xcb_change_property(xcb_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NORMAL_HINTS,
                      XCB_ATOM_WM_SIZE_HINTS, 32, sizeof hints / 4, &hints);
  // Ask the window manager to tell us of a close instead of cutting the connection.
  const uint32_t protocols = Atom(xcb_, "WM_PROTOCOLS");
  deleteAtom_ = Atom(xcb_, "WM_DELETE_WINDOW");
  if (protocols != 0 && deleteAtom_ != 0) {
    xcb_change_property(xcb_, XCB_PROP_MODE_REPLACE, window_, protocols, XCB_ATOM_ATOM, 32, 1,
                        &deleteAtom_);
  }
  xcb_map_window(xcb_, window_);
  xcb_flush(xcb_);
}

// The first keysym of the key: what it gives without a modifier.
uint32_t XWindow::KeySym(uint8_t keycode) {
  xcb_get_keyboard_mapping_reply_t* reply =
      xcb_get_keyboard_mapping_reply(xcb_, xcb_get_keyboard_mapping(xcb_, keycode, 1), nullptr);
  uint32_t sym = 0;
  if (reply != nullptr && xcb_get_keyboard_mapping_keysyms_length(reply) > 0)
    sym = xcb_get_keyboard_mapping_keysyms(reply)[0];
  std::free(reply);
  return sym;
}

WindowInput XWindow::Poll() {
  WindowInput input;
  input.quit = xcb_connection_has_error(xcb_) != 0;
  while (xcb_generic_event_t* event = xcb_poll_for_event(xcb_)) {
    const uint8_t type = event->response_type & 0x7F;
    if (type == XCB_CLIENT_MESSAGE) {
      const auto* message = reinterpret_cast<xcb_client_message_event_t*>(event);
      if (message->data.data32[0] == deleteAtom_) input.quit = true;
    } else if (type == XCB_DESTROY_NOTIFY) {
      input.quit = true;
    } else if (type == XCB_KEY_PRESS) {
      const uint32_t sym = KeySym(reinterpret_cast<xcb_key_press_event_t*>(event)->detail);
      if (sym == kKeyQ || sym == kKeyEscape) input.quit = true;
      if (sym == kKeySpace) input.togglePause = !input.togglePause;
    }
    std::free(event);
  }
  return input;
}

}  // namespace corvane::tools
