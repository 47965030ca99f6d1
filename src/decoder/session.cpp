#include "decoder/session.h"

#include <new>

#include "decoder/conversion.h"
#include "decoder/filter_stage.h"

namespace corvane::decoder {

namespace {

platform::Mutex* g_codecInitMutex = nullptr;

}  // namespace

void CreateInitMutex() { g_codecInitMutex = platform::CreateMutex("H264initMutex"); }

void CloseInitMutex() {
  platform::CloseMutex(g_codecInitMutex);
  g_codecInitMutex = nullptr;
}

platform::Mutex* InitMutex() { return g_codecInitMutex; }

void ReleaseDecoderObjects(CodecSession& session) {
  Calls().freeContext(&session.codecContext);
  av_frame_free(&session.frame);
  compat::FreePacket(&session.packet);
  compat::ClearQueue(&session.pending);
}

CodecSession* OpenSession() {
  auto* session = new (std::nothrow) CodecSession;
  if (!session) return nullptr;
  session->mutex = platform::CreateMutex(nullptr);
  if (!session->mutex) {
    // A session that can't keep its calls apart isn't handed out.
    delete session;
    return nullptr;
  }
  compat::RegisterAll();
  return session;
}

int32_t ResetSession(CodecSession* session) {
  ScopedLock sessionLock(session->mutex);
  {
    ScopedLock initLock(InitMutex());
    ReleaseDecoderObjects(*session);
    ReleaseConversion(*session);
    ReleaseFilterScratch(*session);
    session->codecId.store(0, std::memory_order_relaxed);
  }
  session->needsInit = true;
  session->draining = false;
  return 1;
}

int32_t CloseSession(CodecSession* session) {
  ResetSession(session);
  platform::CloseMutex(session->mutex);
  delete session;
  return 1;
}

void SetFrameCallback(CodecSession* session, FrameCallback callback) {
  session->frameCallback.store(callback, std::memory_order_relaxed);
}

int32_t SetOptions(CodecSession* session, uint32_t options) {
  if (options & ~KnownOptions) return ResultBadArgument;
  ScopedLock sessionLock(session->mutex);
  session->options = options;
  return 0;
}

}  // namespace corvane::decoder
