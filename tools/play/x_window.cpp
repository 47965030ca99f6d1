#include "x_window.h"

#include <xcb/xcb.h>

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

}  // namespace

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

void XWindow::Open(int width, int height, const std::string& title) {
  const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(xcb_)).data;
  window_ = xcb_generate_id(xcb_);
  const uint32_t values[] = {screen->black_pixel, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
  xcb_create_window(xcb_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0,
                    static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                    XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
  xcb_change_property(xcb_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                      static_cast<uint32_t>(title.size()), title.data());
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

bool XWindow::Poll() {
  bool open = xcb_connection_has_error(xcb_) == 0;
  while (xcb_generic_event_t* event = xcb_poll_for_event(xcb_)) {
    const uint8_t type = event->response_type & 0x7F;
    if (type == XCB_CLIENT_MESSAGE) {
      const auto* message = reinterpret_cast<xcb_client_message_event_t*>(event);
      if (message->data.data32[0] == deleteAtom_) open = false;
    } else if (type == XCB_DESTROY_NOTIFY) {
      open = false;
    }
    std::free(event);
  }
  return open;
}

}  // namespace corvane::tools
