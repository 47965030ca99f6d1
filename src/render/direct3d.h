// The display operations the renderer draws with: a process-wide display
// object, the device it makes for a window, and the surfaces a device fills and
// shows. The renderer's logic sees only these interfaces; the real backend
// speaks to the X server (xcb_direct3d.cpp), and the tests put a recording one
// in its place. No window-system header is needed to use them.
//
// Every operation that can fail returns 0 on success and any other value on
// failure, with no meaning given to the value. AddRef/Release count references
// the usual way: an object goes when its last reference does.
#pragma once

#include <cstdint>

namespace corvane::render {

using WindowId = uintptr_t;  // an X11 window id (XID)
using HResult = int32_t;     // 0 success, anything else failure

constexpr HResult kFailed = -1;

// Pixel format of every surface and back buffer: 4 bytes a pixel, blue, green,
// red, unused (what swscale calls BGRA).
constexpr uint32_t D3DFMT_UNKNOWN = 0;
constexpr uint32_t D3DFMT_X8R8G8B8 = 22;
constexpr uint32_t D3DSWAPEFFECT_DISCARD = 1;
constexpr uint32_t D3DPRESENTFLAG_LOCKABLE_BACKBUFFER = 0x1;
constexpr uint32_t D3DPRESENTFLAG_VIDEO = 0x10;
constexpr uint32_t D3DPRESENT_INTERVAL_IMMEDIATE = 0x80000000u;
constexpr uint32_t D3DCREATE_SOFTWARE_VERTEXPROCESSING = 0x20;
constexpr uint32_t D3DCREATE_HARDWARE_VERTEXPROCESSING = 0x40;
constexpr uint32_t D3DCREATE_MULTITHREADED = 0x4;

struct RECT {
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;
};

inline bool operator==(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

struct D3DCAPS9 {
  uint32_t VertexProcessingCaps = 0;
};

struct D3DLOCKED_RECT {
  int32_t Pitch = 0;      // bytes from one row to the next
  void* pBits = nullptr;  // the first row
};

// The back buffer has the frame's size, not the window's: Present shows it
// stretched over the window's whole client area.
struct D3DPRESENT_PARAMETERS {
  uint32_t BackBufferWidth = 0;
  uint32_t BackBufferHeight = 0;
  uint32_t BackBufferFormat = D3DFMT_UNKNOWN;
  uint32_t BackBufferCount = 0;
  uint32_t MultiSampleType = 0;
  uint32_t MultiSampleQuality = 0;
  uint32_t SwapEffect = 0;
  WindowId hDeviceWindow = 0;
  int32_t Windowed = 0;
  int32_t EnableAutoDepthStencil = 0;
  uint32_t AutoDepthStencilFormat = D3DFMT_UNKNOWN;
  uint32_t Flags = 0;
  uint32_t FullScreen_RefreshRateInHz = 0;
  uint32_t PresentationInterval = 0;
};

// A lockable image of D3DFMT_X8R8G8B8 pixels.
class IDirect3DSurface9 {
 public:
  // The whole surface; fails when it is locked already.
  virtual HResult LockRect(D3DLOCKED_RECT* locked) = 0;
  virtual HResult UnlockRect() = 0;
  virtual uint32_t AddRef() = 0;
  virtual uint32_t Release() = 0;

 protected:
  ~IDirect3DSurface9() = default;
};

// One window's device: a back buffer, and the means to show it. Present and
// CreateOffscreenPlainSurface may run on two threads at once.
class IDirect3DDevice9 {
 public:
  // Takes the window and back-buffer size of `params`; the old back buffer goes.
  virtual HResult Reset(const D3DPRESENT_PARAMETERS& params) = 0;
  // Fills the whole back buffer with `colour` (0xAARRGGBB).
  virtual HResult Clear(uint32_t colour) = 0;
  // A new reference to the back buffer.
  virtual HResult GetBackBuffer(IDirect3DSurface9** backBuffer) = 0;
  // Shows the back buffer over the whole client area of the device's window.
  virtual HResult Present() = 0;
  // A system-memory surface of the given size; *surface stays null on failure.
  virtual HResult CreateOffscreenPlainSurface(uint32_t width, uint32_t height,
                                              IDirect3DSurface9** surface) = 0;
  // Copies the whole of `source` into `target`, which must be as large.
  virtual HResult UpdateSurface(IDirect3DSurface9* source, IDirect3DSurface9* target) = 0;
  virtual uint32_t AddRef() = 0;
  virtual uint32_t Release() = 0;

 protected:
  ~IDirect3DDevice9() = default;
};

// The process-wide display object. The window's client rectangle is asked of it
// too, since it holds the connection to the window system.
class IDirect3D9 {
 public:
  virtual HResult GetDeviceCaps(D3DCAPS9* caps) = 0;
  // *device stays null on failure.
  virtual HResult CreateDevice(WindowId focusWindow, uint32_t behaviourFlags,
                               const D3DPRESENT_PARAMETERS& params, IDirect3DDevice9** device) = 0;
  // {0, 0, width, height} of the window; on failure the rectangle is all 0.
  virtual HResult GetClientRect(WindowId window, RECT* rect) = 0;
  virtual uint32_t Release() = 0;

 protected:
  ~IDirect3D9() = default;
};

// The X11 backend. Cheap: the display connection opens on first use (and opens
// again after it was lost). `displayName` null means $DISPLAY. With
// `useSharedMemory` false frames always go as plain images over the socket.
IDirect3D9* CreateXcbDirect3D(const char* displayName, bool useSharedMemory = true);

// The display object of the library: the X11 backend on $DISPLAY. Null if it
// cannot be allocated.
IDirect3D9* Direct3DCreate9(uint32_t sdkVersion);

}  // namespace corvane::render
