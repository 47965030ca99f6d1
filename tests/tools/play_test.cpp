// corvane-play as a user runs it: every frame, a window of the picture's shape
// that fits the screen, the keys.
#include <future>
#include <regex>

#include "support/clips.h"
#include "support/x_window.h"
#include "tools/shell.h"

namespace corvane::test {
namespace {

Ran Play(const std::string& args) { return Shell("'" CORVANE_PLAY_TOOL "' " + args + " 2>&1"); }

// The player's window, found by its title, or 0 after five seconds.
xcb_window_t WaitForWindow(const std::string& title) {
  xcb_connection_t* xcb = TestConnection();
  xcb_window_t found = 0;
  for (int attempt = 0; attempt < 100 && !found; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    auto* tree = xcb_query_tree_reply(xcb, xcb_query_tree(xcb, Screen()->root), nullptr);
    for (int i = 0; tree && i < xcb_query_tree_children_length(tree); ++i) {
      const xcb_window_t w = xcb_query_tree_children(tree)[i];
      auto* name = xcb_get_property_reply(
          xcb, xcb_get_property(xcb, 0, w, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 0, 256), nullptr);
      if (name && title == std::string(static_cast<const char*>(xcb_get_property_value(name)),
                                       xcb_get_property_value_length(name)))
        found = w;
      std::free(name);
    }
    std::free(tree);
  }
  return found;
}

// A key press as the server would send it, for the key that gives `keysym`.
void Press(xcb_window_t window, uint32_t keysym) {
  xcb_connection_t* xcb = TestConnection();
  const xcb_setup_t* setup = xcb_get_setup(xcb);
  const int count = setup->max_keycode - setup->min_keycode + 1;
  auto* map = xcb_get_keyboard_mapping_reply(
      xcb, xcb_get_keyboard_mapping(xcb, setup->min_keycode, count), nullptr);
  xcb_key_press_event_t event{};
  for (int k = 0; map && k < count && !event.detail; ++k)
    if (xcb_get_keyboard_mapping_keysyms(map)[k * map->keysyms_per_keycode] == keysym)
      event.detail = setup->min_keycode + k;
  std::free(map);
  event.response_type = XCB_KEY_PRESS, event.event = window, event.root = Screen()->root,
  event.same_screen = 1;
  xcb_send_event(xcb, 0, window, XCB_EVENT_MASK_KEY_PRESS, reinterpret_cast<char*>(&event));
  xcb_flush(xcb);
}

// Every frame to the last (the drain's) in a window of the picture's size; pixels
// twice as wide make a window twice as wide, scaled to the screen, where space
// pauses and q quits a 4 s clip after a handful of frames.
TEST(Play, EveryFrameAWindowOfThePicturesShapeAndTheKeys) {
  if (TestConnection() == nullptr) GTEST_SKIP() << "no X server answers on DISPLAY";
  const std::string clip = MakeClip({"play.mkv", 160, 96, 14, "-c:v libx264 -bf 3"});
  Ran run = Play("'" + clip + "' --fps 100");
  EXPECT_NE(run.out.find(": 14 frames shown at 100 frames a second in a 160x96 window"),
            std::string::npos)
      << run.out;

  const int screen = Screen()->width_in_pixels, width = screen * 3 / 4;  // twice that shown
  const std::string wide = MakeClip({"play_wide.mkv", width, 96, 100, "-c:v libx264 -vf setsar=2"});
  auto player = std::async(std::launch::async, [&] { return Play("'" + wide + "' --fps 25"); });
  const xcb_window_t window = WaitForWindow(wide);
  ASSERT_NE(window, 0u);
  Press(window, ' ');
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  Press(window, 'q');
  if (player.wait_for(std::chrono::seconds(3)) != std::future_status::ready) {
    ADD_FAILURE() << "q did not quit";
    Press(window, ' ');  // a player left paused plays to its end
  }
  run = player.get();
  EXPECT_EQ(run.status, 0) << run.out;
  std::smatch shown;
  const std::string size = std::to_string(screen) + "x" + std::to_string(96 * screen / (2 * width));
  ASSERT_TRUE(std::regex_search(run.out, shown,
                                std::regex(": ([0-9]+) frames shown .* in a " + size + " window")))
      << run.out;
  EXPECT_LT(std::stoi(shown[1]), 15) << run.out;
}

}  // namespace
}  // namespace corvane::test
