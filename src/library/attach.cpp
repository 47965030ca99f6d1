// What exists once per process: made when the shared object is loaded, dropped
// when it is unloaded. Nothing here can fail the load; an object that can't be
// made stays null and its users carry on without it.
#include "decoder/decoder.h"
#include "platform/mutex.h"
#include "render/render.h"

namespace corvane {

namespace {

// Created and closed with the library; no operation takes it.
platform::Mutex* g_logMutex = nullptr;

__attribute__((constructor)) void AttachProcess() {
  decoder::CreateInitMutex();
  render::CreateInitMutex();
  g_logMutex = platform::CreateMutex("LogMutex");
  render::CreateDirect3D();
}

__attribute__((destructor)) void DetachProcess() {
  decoder::CloseInitMutex();
  render::CloseInitMutex();
  platform::CloseMutex(g_logMutex);
  g_logMutex = nullptr;
  render::ReleaseDirect3D();
}

}  // namespace

}  // namespace corvane
