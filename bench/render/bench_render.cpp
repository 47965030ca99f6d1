// The direct path (convert BGR24 to BGRX, clear, stretch, put on the window)
// against the floor: one plain XCB put-image of a frame that is BGRX at the
// window's size already. Both wait for the server to have taken the image.
// Needs an X server on $DISPLAY, for example Xvfb.
#include <benchmark/benchmark.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "render/render_session.h"

namespace {

using corvane::render::RenderSession;

xcb_connection_t* Connection() {
  static xcb_connection_t* const xcb = [] {
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    return xcb_connection_has_error(c) == 0 ? c : nullptr;
  }();
  return xcb;
}

struct Window {
  explicit Window(int width, int height) {
    xcb_connection_t* xcb = Connection();
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(xcb)).data;
    id = xcb_generate_id(xcb);
    const uint32_t values[] = {1};
    xcb_create_window(xcb, XCB_COPY_FROM_PARENT, id, screen->root, 0, 0,
                      static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_OVERRIDE_REDIRECT,
                      values);
    xcb_map_window(xcb, id);
    gc = xcb_generate_id(xcb);
    xcb_create_gc(xcb, gc, id, 0, nullptr);
    std::free(xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
  }
  ~Window() {
    xcb_free_gc(Connection(), gc);
    xcb_destroy_window(Connection(), id);
    xcb_flush(Connection());
  }
  xcb_window_t id = 0;
  xcb_gcontext_t gc = 0;
};

std::vector<uint8_t> Noise(size_t bytes) {
  std::vector<uint8_t> data(bytes);
  std::mt19937 random(5);
  for (auto& b : data) b = static_cast<uint8_t>(random());
  return data;
}

bool NeedServer(benchmark::State& state) {
  if (Connection() != nullptr) return true;
  state.SkipWithError("no X server on DISPLAY");
  return false;
}

// Arguments: frame width, frame height, window width, window height, shared memory.
void BM_DirectPath(benchmark::State& state) {
  if (!NeedServer(state)) return;
  const int fw = static_cast<int>(state.range(0)), fh = static_cast<int>(state.range(1));
  Window window(static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
  corvane::render::RenderProcess process;
  process.direct3d = corvane::render::CreateXcbDirect3D(nullptr, state.range(4) != 0);
  RenderSession* session = corvane::render::OpenRenderSession(process);
  const auto frame = Noise(static_cast<size_t>(fw) * fh * 3);
  corvane::render::SubmitFrame(session, window.id, frame.data(), fw, fh);  // builds the device
  if (session->device.load() == nullptr) state.SkipWithError("no device on this server");
  for (auto _ : state) corvane::render::SubmitFrame(session, window.id, frame.data(), fw, fh);
  state.SetItemsProcessed(state.iterations());
  corvane::render::CloseRenderSession(session);
  process.direct3d->Release();
}
BENCHMARK(BM_DirectPath)
    ->ArgNames({"fw", "fh", "ww", "wh", "shm"})
    ->Args({1280, 720, 1280, 720, 1})
    ->Args({1920, 1080, 960, 540, 1})
    ->Args({1280, 720, 1280, 720, 0})
    ->Args({1920, 1080, 960, 540, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The floor: a BGRX image of the window's size, put as it is.
void BM_PutImageFloor(benchmark::State& state) {
  if (!NeedServer(state)) return;
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  Window window(w, h);
  xcb_connection_t* xcb = Connection();
  const auto image = Noise(static_cast<size_t>(w) * h * 4);
  for (auto _ : state) {
    xcb_generic_error_t* error = xcb_request_check(
        xcb, xcb_put_image_checked(xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, window.id, window.gc, w, h, 0, 0,
                                   0, 24, static_cast<uint32_t>(image.size()), image.data()));
    if (error != nullptr) state.SkipWithError("put-image failed");
    std::free(error);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PutImageFloor)
    ->ArgNames({"w", "h"})
    ->Args({1280, 720})
    ->Args({960, 540})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
