#include "decoder/decoder_calls.h"

#include <atomic>

#include "decoder/compat.h"
#include "platform/mutex.h"
#include "primitives/median/median.h"
#include "primitives/sharpen/sharpen.h"

namespace corvane::decoder {

namespace {

const AVCodec* FindDecoder(const char* name) { return avcodec_find_decoder_by_name(name); }

constexpr DecoderCalls kRealCalls{
    &FindDecoder,
    &avcodec_alloc_context3,
    &avcodec_open2,
    &compat::FreeContext,
    &av_frame_alloc,
    &compat::AllocPacket,
    &sws_getContext,
    &sws_scale,
    &primitives::ownFilterMedianBorderGetBufferSize,
    &primitives::ownFilterSharpenBorderGetBufferSize,
    &platform::WaitMutex,
    &platform::ReleaseMutex,
};

std::atomic<const DecoderCalls*> g_calls{&kRealCalls};

}  // namespace

const DecoderCalls& Calls() { return *g_calls.load(std::memory_order_relaxed); }

const DecoderCalls& RealCalls() { return kRealCalls; }

void SetDecoderCallsForTesting(const DecoderCalls* calls) {
  g_calls.store(calls ? calls : &kRealCalls, std::memory_order_relaxed);
}

}  // namespace corvane::decoder
