// What the caller learns while a new decoder has given no picture yet: the
// stream's size read out of the packet itself, and whether the session counts
// as settled.
#pragma once

#include <cstdint>

#include "decoder/session.h"

namespace corvane::decoder {

// Runs with the session's lock held, when the session is still binding and
// the decoder gave no picture. Fills all 40 bytes of the header. Returns true
// when the session is settled (needsInit cleared), false when the packet
// yields no parameters (ResultNoParameters).
bool RunFirstFramesStep(CodecSession& session, const uint8_t* data, int32_t size,
                        BITMAPINFOHEADER* header);

}  // namespace corvane::decoder
