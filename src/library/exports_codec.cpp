// The decoder family of exports. A handle is the session record itself; a null
// handle is the one argument these exports test.
#include "corvane.h"
#include "decoder/decoder.h"

namespace {

using corvane::decoder::CodecSession;

CodecSession* Session(CodecHandle handle) { return static_cast<CodecSession*>(handle); }

int32_t Decompress(CodecHandle handle, const uint8_t* data, int32_t size, BITMAPINFOHEADER* header,
                   uint8_t* out, int32_t outSize, int32_t mode, int32_t codecId) {
  if (!handle || !header) return ResultBadArgument;
  return corvane::decoder::CodecDecompress(Session(handle), data, size, header, out, outSize, mode,
                                           codecId);
}

}  // namespace

extern "C" {

CodecHandle H264CodecOpen(void) { return corvane::decoder::OpenSession(); }

int32_t H264CodecReset(CodecHandle session) {
  if (!session) return ResultBadArgument;
  return corvane::decoder::ResetSession(Session(session));
}

int32_t H264CodecResetEx(CodecHandle session) { return H264CodecReset(session); }

int32_t H264CodecClose(CodecHandle session) {
  if (!session) return ResultBadArgument;
  return corvane::decoder::CloseSession(Session(session));
}

int32_t H264CodecSetCallback(CodecHandle session, FrameCallback callback) {
  if (!session) return ResultBadArgument;
  corvane::decoder::SetFrameCallback(Session(session), callback);
  return 0;
}

// The output format is fixed (BGR24); nothing behind the handle is read.
int32_t H264CodecGetFormat(CodecHandle session) { return session ? 1 : ResultBadArgument; }

int32_t H264CodecDecompress(CodecHandle session, const uint8_t* data, int32_t size,
                            BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
  return Decompress(session, data, size, header, out, outSize, corvane::decoder::ModePlain,
                    corvane::decoder::CodecH264);
}

int32_t H264CodecDecompressMedian(CodecHandle session, const uint8_t* data, int32_t size,
                                  BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
  return Decompress(session, data, size, header, out, outSize, corvane::decoder::ModeMedian,
                    corvane::decoder::CodecH264);
}

int32_t H265CodecDecompress(CodecHandle session, const uint8_t* data, int32_t size,
                            BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
  return Decompress(session, data, size, header, out, outSize, corvane::decoder::ModePlain,
                    corvane::decoder::CodecHevc);
}

}  // extern "C"
