// The renderer as the exports see it: one RenderSession per stream of frames
// drawn on a window, and the objects that exist once per process.
#pragma once

#include <cstdint>

namespace corvane::render {

struct RenderSession;

// "RenderInitMutex", which keeps device creation one at a time across sessions
// and processes, and the display object every session shares. Made when the
// library is loaded, dropped when it is unloaded; either may stay null.
void CreateInitMutex();
void CloseInitMutex();
void CreateDirect3D();
void ReleaseDirect3D();

// A session on the process's objects and the platform's timer. Null if the
// record, its lists or its mutexes can't be had.
RenderSession* OpenRenderSession();
// Stops the timer (waiting for a running tick), drops queued frames, releases
// the device and frees everything. Null does nothing.
void CloseRenderSession(RenderSession* session);

// One BGR24 frame, `width` × 3 bytes a row, top row first, for the X11 window
// `window`. Always 0: a dropped frame and a failed device are no error of the
// caller's.
int32_t SubmitFrame(RenderSession* session, uintptr_t window, const uint8_t* pixels, int32_t width,
                    int32_t height);
// Takes effect at the next frame, which rebuilds. Always 0.
int32_t SetFramesPerSecond(RenderSession* session, int32_t framesPerSecond);

}  // namespace corvane::render
