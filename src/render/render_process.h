// The renderer's objects that exist once per process: "RenderInitMutex", which
// keeps device creation one at a time across sessions and processes, and the
// display object that every session shares. The library makes them when it is
// loaded and drops them when it is unloaded; either may stay null.
#pragma once

#include "render/render_session.h"

namespace corvane::render {

void CreateInitMutex();
void CloseInitMutex();
void CreateDirect3D();
void ReleaseDirect3D();

// What a session opened now borrows: the two objects and the platform's timer.
RenderProcess ProcessObjects();

}  // namespace corvane::render
