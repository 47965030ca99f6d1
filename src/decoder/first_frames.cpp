#include "decoder/first_frames.h"

#include <cstring>

namespace corvane::decoder {

bool RunFirstFramesStep(CodecSession& session, const uint8_t* data, int32_t size,
                        BITMAPINFOHEADER* header) {
    std::memset(header, 0, sizeof(*header));
    if (session.codecId.load(std::memory_order_relaxed) == CodecHevc) {
        // No parser for H.265: its session settles on the first packet and the
        // header stays zero until a picture comes.
        session.needsInit = false;
        return true;
    }
    // H.264: the stream's first sequence parameter set would give the size
    // here. Until the packet is read, a packet without a picture settles
    // nothing.
    (void)data;
    (void)size;
    return false;
}

}  // namespace corvane::decoder
