// The extensions of corvane_ext.h: thin exports over the decoder session, with
// the same null-handle test as the 18.
#include "corvane_ext.h"
#include "decoder/decoder.h"

namespace {

using corvane::decoder::CodecSession;

CodecSession* Session(CodecHandle handle) { return static_cast<CodecSession*>(handle); }

}  // namespace

extern "C" {

const char* corvane_version(void) { return CORVANE_VERSION; }

int32_t corvane_codec_set_options(CodecHandle session, uint32_t options) {
  if (!session) return ResultBadArgument;
  return corvane::decoder::SetOptions(Session(session), options);
}

int32_t corvane_codec_drain(CodecHandle session, BITMAPINFOHEADER* header, uint8_t* out,
                            int32_t outSize) {
  if (!session || !header) return ResultBadArgument;
  return corvane::decoder::DrainSession(Session(session), header, out, outSize);
}

int32_t corvane_codec_decompress_sharpen(CodecHandle session, const uint8_t* data, int32_t size,
                                         BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize) {
  if (!session || !header) return ResultBadArgument;
  return corvane::decoder::CodecDecompress(Session(session), data, size, header, out, outSize,
                                           corvane::decoder::ModeSharpen,
                                           corvane::decoder::CodecH264);
}

}  // extern "C"
