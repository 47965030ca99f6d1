// The display operations on an X server, through XCB. Every request whose
// failure matters is a checked one, so that an X error (a destroyed window, a
// lost connection) comes back to the operation that caused it as a failure;
// nothing installs a process-wide handler, and XCB lets the caller's thread
// and the timer's thread share one connection.
//
// The back buffer is a frame-size BGRX image in memory. Present stretches it
// (nearest neighbour, sampled at pixel centres, so 1:1 is an exact copy) into
// a window-size image and puts that on the window: through a MIT-SHM segment
// when the server takes one, as plain put-image requests otherwise.
#include <sys/mman.h>
#include <unistd.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "render/direct3d.h"

namespace corvane::render {

namespace {

constexpr uint32_t kMaxSide = 16384;  // larger back buffers or surfaces are refused

// One display connection, counted: devices keep the one they were made on
// even after the display object has had to open a new one.
struct Connection {
  xcb_connection_t* xcb = nullptr;
  bool sharedMemory = false;  // MIT-SHM 1.2: segments passed as file descriptors
  size_t maxRequestBytes = 0;
  std::atomic<int> references{1};

  bool Alive() const { return xcb_connection_has_error(xcb) == 0; }
  void Release() {
    if (references.fetch_sub(1) != 1) return;
    xcb_disconnect(xcb);
    delete this;
  }
};

Connection* Connect(const char* displayName, bool useSharedMemory) {
  xcb_connection_t* xcb = xcb_connect(displayName, nullptr);
  Connection* connection = new (std::nothrow) Connection;
  if (xcb_connection_has_error(xcb) != 0 || connection == nullptr) {
    xcb_disconnect(xcb);
    delete connection;
    return nullptr;
  }
  connection->xcb = xcb;
  connection->maxRequestBytes = static_cast<size_t>(xcb_get_maximum_request_length(xcb)) * 4;
  const xcb_query_extension_reply_t* shm = xcb_get_extension_data(xcb, &xcb_shm_id);
  if (useSharedMemory && shm != nullptr && shm->present) {
    xcb_shm_query_version_reply_t* version =
        xcb_shm_query_version_reply(xcb, xcb_shm_query_version(xcb), nullptr);
    connection->sharedMemory =
        version != nullptr && (version->major_version > 1 || version->minor_version >= 2);
    std::free(version);
  }
  return connection;
}

// Waits for a void request and tells whether it went through.
bool Succeeded(xcb_connection_t* xcb, xcb_void_cookie_t cookie) {
  xcb_generic_error_t* error = xcb_request_check(xcb, cookie);
  std::free(error);
  return error == nullptr;
}

bool Geometry(xcb_connection_t* xcb, WindowId window, uint32_t* width, uint32_t* height,
              uint8_t* depth) {
  if (window == 0 || window > UINT32_MAX) return false;
  xcb_get_geometry_reply_t* reply = xcb_get_geometry_reply(
      xcb, xcb_get_geometry(xcb, static_cast<xcb_window_t>(window)), nullptr);
  if (reply == nullptr) return false;
  *width = reply->width;
  *height = reply->height;
  if (depth != nullptr) *depth = reply->depth;
  std::free(reply);
  return true;
}

// Whether the window's pixels are laid out as the back buffer: 32 bits, blue
// in the lowest byte, then green, then red.
bool TakesBgrx(xcb_connection_t* xcb, xcb_window_t window, uint8_t depth) {
  const xcb_setup_t* setup = xcb_get_setup(xcb);
  if (setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST) return false;
  bool format = false;
  for (auto f = xcb_setup_pixmap_formats_iterator(setup); f.rem; xcb_format_next(&f)) {
    format = format || (f.data->depth == depth && f.data->bits_per_pixel == 32);
  }
  xcb_get_window_attributes_reply_t* attributes =
      xcb_get_window_attributes_reply(xcb, xcb_get_window_attributes(xcb, window), nullptr);
  if (!format || attributes == nullptr) {
    std::free(attributes);
    return false;
  }
  const xcb_visualid_t visual = attributes->visual;
  std::free(attributes);
  for (auto s = xcb_setup_roots_iterator(setup); s.rem; xcb_screen_next(&s)) {
    for (auto d = xcb_screen_allowed_depths_iterator(s.data); d.rem; xcb_depth_next(&d)) {
      for (auto v = xcb_depth_visuals_iterator(d.data); v.rem; xcb_visualtype_next(&v)) {
        if (v.data->visual_id != visual) continue;
        return v.data->red_mask == 0xFF0000 && v.data->green_mask == 0xFF00 &&
               v.data->blue_mask == 0xFF;
      }
    }
  }
  return false;
}

class XcbDevice;

class XcbSurface final : public IDirect3DSurface9 {
 public:
  // A back buffer counts its references with its device's.
  explicit XcbSurface(XcbDevice* owner) : owner_(owner) {}
  ~XcbSurface() { std::free(pixels_); }

  bool Allocate(uint32_t width, uint32_t height) {
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) return false;
    void* pixels = std::calloc(static_cast<size_t>(width) * height, 4);
    if (pixels == nullptr) return false;
    std::free(pixels_);
    pixels_ = static_cast<uint8_t*>(pixels);
    width_ = width;
    height_ = height;
    return true;
  }

  HResult LockRect(D3DLOCKED_RECT* locked) override {
    bool expected = false;
    if (!locked_.compare_exchange_strong(expected, true)) return kFailed;
    locked->Pitch = static_cast<int32_t>(Pitch());
    locked->pBits = pixels_;
    return 0;
  }
  HResult UnlockRect() override { return locked_.exchange(false) ? 0 : kFailed; }
  uint32_t AddRef() override;
  uint32_t Release() override;

  size_t Pitch() const { return static_cast<size_t>(width_) * 4; }
  uint8_t* pixels_ = nullptr;
  uint32_t width_ = 0;
  uint32_t height_ = 0;

 private:
  XcbDevice* owner_;
  std::atomic<bool> locked_{false};
  std::atomic<uint32_t> references_{1};
};

// Nearest neighbour sampled at pixel centres: target x takes source
// floor((x + 0.5) · sourceWidth / targetWidth), and so for rows.
void Stretch(const XcbSurface& source, uint8_t* target, uint32_t width, uint32_t height,
             uint32_t* columns) {
  const uint32_t sw = source.width_;
  const uint32_t sh = source.height_;
  for (uint32_t x = 0; x < width; ++x) {
    columns[x] = static_cast<uint32_t>((2 * static_cast<uint64_t>(x) + 1) * sw / (2 * width));
  }
  const size_t targetPitch = static_cast<size_t>(width) * 4;
  uint64_t previous = UINT64_MAX;
  for (uint32_t y = 0; y < height; ++y) {
    const uint64_t sy = (2 * static_cast<uint64_t>(y) + 1) * sh / (2 * height);
    uint8_t* row = target + y * targetPitch;
    if (sy == previous) {
      std::memcpy(row, row - targetPitch, targetPitch);
      continue;
    }
    previous = sy;
    const uint8_t* from = source.pixels_ + sy * source.Pitch();
    if (sw == width) {
      std::memcpy(row, from, targetPitch);
      continue;
    }
    const uint32_t* in = reinterpret_cast<const uint32_t*>(from);
    uint32_t* out = reinterpret_cast<uint32_t*>(row);
    for (uint32_t x = 0; x < width; ++x) out[x] = in[columns[x]];
  }
}

class XcbDevice final : public IDirect3DDevice9 {
 public:
  explicit XcbDevice(Connection* connection) : connection_(connection), xcb_(connection->xcb) {}

  ~XcbDevice() {
    FreeImage();
    if (gc_ != 0) xcb_discard_reply(xcb_, xcb_free_gc_checked(xcb_, gc_).sequence);
    xcb_flush(xcb_);
    connection_->Release();
  }

  HResult Reset(const D3DPRESENT_PARAMETERS& params) override {
    std::lock_guard<std::mutex> hold(lock_);
    const WindowId id = params.hDeviceWindow;
    uint32_t width = 0, height = 0;
    uint8_t depth = 0;
    if (!Geometry(xcb_, id, &width, &height, &depth)) return kFailed;
    const auto window = static_cast<xcb_window_t>(id);
    if (!TakesBgrx(xcb_, window, depth)) return kFailed;
    const xcb_gcontext_t gc = xcb_generate_id(xcb_);
    if (gc == UINT32_MAX || !Succeeded(xcb_, xcb_create_gc_checked(xcb_, gc, window, 0, nullptr))) {
      return kFailed;
    }
    if (!backBuffer_.Allocate(params.BackBufferWidth, params.BackBufferHeight)) {
      xcb_discard_reply(xcb_, xcb_free_gc_checked(xcb_, gc).sequence);
      return kFailed;
    }
    if (gc_ != 0) xcb_discard_reply(xcb_, xcb_free_gc_checked(xcb_, gc_).sequence);
    gc_ = gc;
    window_ = window;
    depth_ = depth;
    return 0;
  }

  HResult Clear(uint32_t colour) override {
    auto* pixels = reinterpret_cast<uint32_t*>(backBuffer_.pixels_);
    const size_t count = static_cast<size_t>(backBuffer_.width_) * backBuffer_.height_;
    for (size_t i = 0; i < count; ++i) pixels[i] = colour;
    return 0;
  }

  HResult GetBackBuffer(IDirect3DSurface9** backBuffer) override {
    AddRef();
    *backBuffer = &backBuffer_;
    return 0;
  }

  HResult Present() override {
    std::lock_guard<std::mutex> hold(lock_);
    uint32_t width = 0, height = 0;
    if (!Geometry(xcb_, window_, &width, &height, nullptr) || !PrepareImage(width, height)) {
      return kFailed;
    }
    Stretch(backBuffer_, image_, width, height, columns_);
    if (segment_ != 0) {
      // Checked: once the server has answered it has read the segment,
      // which the next present may then overwrite.
      return Succeeded(xcb_, xcb_shm_put_image_checked(xcb_, window_, gc_, width, height, 0, 0,
                                                       width, height, 0, 0, depth_,
                                                       XCB_IMAGE_FORMAT_Z_PIXMAP, 0, segment_, 0))
                 ? 0
                 : kFailed;
    }
    return PutBands(width, height);
  }

  HResult CreateOffscreenPlainSurface(uint32_t width, uint32_t height,
                                      IDirect3DSurface9** surface) override {
    *surface = nullptr;
    XcbSurface* made = new (std::nothrow) XcbSurface(nullptr);
    if (made == nullptr) return kFailed;
    if (!made->Allocate(width, height)) {
      made->Release();
      return kFailed;
    }
    *surface = made;
    return 0;
  }

  HResult UpdateSurface(IDirect3DSurface9* source, IDirect3DSurface9* target) override {
    // Both are this backend's: the renderer has no other surfaces.
    const auto* from = static_cast<XcbSurface*>(source);
    auto* to = static_cast<XcbSurface*>(target);
    if (from->width_ != to->width_ || from->height_ != to->height_) return kFailed;
    std::memcpy(to->pixels_, from->pixels_, from->Pitch() * from->height_);
    return 0;
  }

  uint32_t AddRef() override { return references_.fetch_add(1) + 1; }
  uint32_t Release() override {
    const uint32_t left = references_.fetch_sub(1) - 1;
    if (left == 0) delete this;
    return left;
  }

 private:
  // A window-size image to stretch into, kept while the window keeps its size.
  bool PrepareImage(uint32_t width, uint32_t height) {
    if (image_ != nullptr && imageWidth_ == width && imageHeight_ == height) return true;
    FreeImage();
    if (width == 0 || height == 0) return false;
    const size_t bytes = static_cast<size_t>(width) * height * 4;
    columns_ = static_cast<uint32_t*>(std::malloc(sizeof(uint32_t) * width));
    if (columns_ == nullptr) return false;
    if (!(connection_->sharedMemory && AttachSegment(bytes))) {
      image_ = static_cast<uint8_t*>(std::malloc(bytes));
      if (image_ == nullptr) return false;
    }
    imageWidth_ = width;
    imageHeight_ = height;
    return true;
  }

  bool AttachSegment(size_t bytes) {
    const int fd = memfd_create("corvane-present", MFD_CLOEXEC);
    if (fd < 0) return false;
    void* memory = MAP_FAILED;
    if (ftruncate(fd, static_cast<off_t>(bytes)) == 0) {
      memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (memory == MAP_FAILED) {
      close(fd);
      return false;
    }
    // XCB takes the descriptor over and closes it once sent.
    const xcb_shm_seg_t segment = xcb_generate_id(xcb_);
    if (segment == UINT32_MAX ||
        !Succeeded(xcb_, xcb_shm_attach_fd_checked(xcb_, segment, fd, 0))) {
      if (segment == UINT32_MAX) close(fd);
      munmap(memory, bytes);
      return false;
    }
    segment_ = segment;
    image_ = static_cast<uint8_t*>(memory);
    imageBytes_ = bytes;
    return true;
  }

  void FreeImage() {
    if (segment_ != 0) {
      xcb_discard_reply(xcb_, xcb_shm_detach_checked(xcb_, segment_).sequence);
      munmap(image_, imageBytes_);
    } else {
      std::free(image_);
    }
    std::free(columns_);
    segment_ = 0;
    image_ = nullptr;
    columns_ = nullptr;
    imageBytes_ = imageWidth_ = imageHeight_ = 0;
  }

  // Without shared memory the image goes in bands of rows that each fit one request.
  HResult PutBands(uint32_t width, uint32_t height) {
    const size_t pitch = static_cast<size_t>(width) * 4;
    const size_t room = connection_->maxRequestBytes > 64 ? connection_->maxRequestBytes - 64 : 0;
    const uint32_t band = static_cast<uint32_t>(room / pitch < height ? room / pitch : height);
    if (band == 0) return kFailed;
    bool ok = true;
    for (uint32_t y = 0; y < height; y += band) {
      const uint32_t rows = height - y < band ? height - y : band;
      ok = Succeeded(xcb_, xcb_put_image_checked(
                               xcb_, XCB_IMAGE_FORMAT_Z_PIXMAP, window_, gc_, width, rows, 0, y, 0,
                               depth_, static_cast<uint32_t>(pitch * rows), image_ + y * pitch)) &&
           ok;
    }
    return ok ? 0 : kFailed;
  }

  Connection* connection_;
  xcb_connection_t* xcb_;
  std::mutex lock_;  // Reset against Present: window, context and image
  std::atomic<uint32_t> references_{1};
  XcbSurface backBuffer_{this};
  xcb_window_t window_ = 0;
  uint8_t depth_ = 0;
  xcb_gcontext_t gc_ = 0;
  uint8_t* image_ = nullptr;
  uint32_t* columns_ = nullptr;
  size_t imageBytes_ = 0;
  uint32_t imageWidth_ = 0;
  uint32_t imageHeight_ = 0;
  xcb_shm_seg_t segment_ = 0;
};

uint32_t XcbSurface::AddRef() {
  if (owner_ != nullptr) return owner_->AddRef();
  return references_.fetch_add(1) + 1;
}

uint32_t XcbSurface::Release() {
  if (owner_ != nullptr) return owner_->Release();
  const uint32_t left = references_.fetch_sub(1) - 1;
  if (left == 0) delete this;
  return left;
}

class XcbDirect3D final : public IDirect3D9 {
 public:
  XcbDirect3D(char* displayName, bool useSharedMemory)
      : displayName_(displayName), useSharedMemory_(useSharedMemory) {}
  ~XcbDirect3D() {
    if (connection_ != nullptr) connection_->Release();
    std::free(displayName_);
  }

  HResult GetDeviceCaps(D3DCAPS9* caps) override {
    caps->VertexProcessingCaps = 0;  // nothing is drawn with vertices
    return 0;
  }

  HResult CreateDevice(WindowId, uint32_t, const D3DPRESENT_PARAMETERS& params,
                       IDirect3DDevice9** device) override {
    *device = nullptr;
    Connection* connection = AcquireConnection();
    if (connection == nullptr) return kFailed;
    XcbDevice* made = new (std::nothrow) XcbDevice(connection);
    if (made == nullptr) {
      connection->Release();
      return kFailed;
    }
    if (made->Reset(params) != 0) {
      made->Release();
      return kFailed;
    }
    *device = made;
    return 0;
  }

  HResult GetClientRect(WindowId window, RECT* rect) override {
    *rect = RECT{};
    Connection* connection = AcquireConnection();
    if (connection == nullptr) return kFailed;
    uint32_t width = 0, height = 0;
    const bool ok = Geometry(connection->xcb, window, &width, &height, nullptr);
    connection->Release();
    if (!ok) return kFailed;
    rect->right = static_cast<int32_t>(width);
    rect->bottom = static_cast<int32_t>(height);
    return 0;
  }

  uint32_t Release() override {
    delete this;
    return 0;
  }

 private:
  // The live connection with a reference for the caller; opened on first use
  // and again after the old one broke. Null when no server answers.
  Connection* AcquireConnection() {
    std::lock_guard<std::mutex> hold(lock_);
    if (connection_ != nullptr && !connection_->Alive()) {
      connection_->Release();
      connection_ = nullptr;
    }
    if (connection_ == nullptr) connection_ = Connect(displayName_, useSharedMemory_);
    if (connection_ != nullptr) connection_->references.fetch_add(1);
    return connection_;
  }

  char* displayName_;
  bool useSharedMemory_;
  std::mutex lock_;
  Connection* connection_ = nullptr;
};

}  // namespace

IDirect3D9* CreateXcbDirect3D(const char* displayName, bool useSharedMemory) {
  char* name = nullptr;
  if (displayName != nullptr && (name = strdup(displayName)) == nullptr) return nullptr;
  IDirect3D9* direct3d = new (std::nothrow) XcbDirect3D(name, useSharedMemory);
  if (direct3d == nullptr) std::free(name);
  return direct3d;
}

IDirect3D9* Direct3DCreate9(uint32_t) { return CreateXcbDirect3D(nullptr); }

}  // namespace corvane::render
