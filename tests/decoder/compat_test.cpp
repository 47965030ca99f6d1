// The one-packet-in, at-most-one-picture-out call over FFmpeg's send/receive
// interface, on MP2 audio: its decoder takes one frame out of a packet at a
// time, so a packet of several frames leaves frames waiting, as a video
// decoder can. FFmpeg's own decode of the frames one by one is the oracle.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "decoder/compat.h"

extern "C" {
#include <libavutil/log.h>
}

namespace corvane::decoder::compat {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr int kPackets = 6;

AVCodecContext* OpenMp2(bool encoder) {
  const AVCodec* codec =
      encoder ? avcodec_find_encoder(AV_CODEC_ID_MP2) : avcodec_find_decoder(AV_CODEC_ID_MP2);
  AVCodecContext* context = avcodec_alloc_context3(codec);
  if (encoder) {
    context->sample_rate = 44100;
    context->sample_fmt = AV_SAMPLE_FMT_S16;
    context->bit_rate = 128000;
    av_channel_layout_default(&context->ch_layout, 1);
  }
  EXPECT_EQ(avcodec_open2(context, codec, nullptr), 0);
  return context;
}

Bytes Samples(const AVFrame* frame) {
  return Bytes(frame->data[0], frame->data[0] + frame->nb_samples * 2);
}

class DecodeVideo2Test : public ::testing::TestWithParam<int> {  // frames per packet
 protected:
  void SetUp() override {
    av_log_set_level(AV_LOG_QUIET);
    const int count = GetParam() * kPackets;
    AVCodecContext* encoder = OpenMp2(true);
    AVCodecContext* reference = OpenMp2(false);
    AVFrame* frame = av_frame_alloc();
    AVFrame* decoded = av_frame_alloc();
    frame->nb_samples = encoder->frame_size;
    frame->format = encoder->sample_fmt;
    av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
    av_frame_get_buffer(frame, 0);
    AVPacket* packet = av_packet_alloc();
    packets_.resize(kPackets);
    for (int n = 0, frames = 0; frames < count; ++n) {
      auto* samples = reinterpret_cast<int16_t*>(frame->data[0]);
      for (int i = 0; i < frame->nb_samples; ++i)
        samples[i] = static_cast<int16_t>((i * (n + 3) * 97) % 20000);
      avcodec_send_frame(encoder, frame);
      while (frames < count && avcodec_receive_packet(encoder, packet) == 0) {
        // Packet p of the test holds frames p*k .. p*k+k-1; FFmpeg decodes each alone.
        Bytes& joined = packets_[frames++ / GetParam()];
        joined.insert(joined.end(), packet->data, packet->data + packet->size);
        avcodec_send_packet(reference, packet);
        av_packet_unref(packet);
        while (avcodec_receive_frame(reference, decoded) == 0)
          expected_.push_back(Samples(decoded));
      }
    }
    ASSERT_EQ(expected_.size(), static_cast<size_t>(count));
    av_packet_free(&packet);
    av_frame_free(&frame);
    av_frame_free(&decoded);
    avcodec_free_context(&encoder);
    avcodec_free_context(&reference);

    context_ = OpenMp2(false);
    frame_ = av_frame_alloc();
    packet_ = AllocPacket();
  }
  void TearDown() override {
    ClearQueue(&queue_);
    FreePacket(&packet_);
    av_frame_free(&frame_);
    FreeContext(&context_);
    EXPECT_EQ(context_, nullptr);
  }
  int Decode(const uint8_t* data, int size, int* got) {
    return DecodeVideo2(context_, frame_, got, packet_, &queue_, data, size);
  }

  std::vector<Bytes> packets_, expected_;
  AVCodecContext* context_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
  PictureQueue queue_;
};

// Each call gives one frame, frames come out in stream order and none twice,
// while the frames waiting in the decoder are queued. Two frames a packet
// never fill the queue, so none is lost; three a packet outrun a reader of
// one a call, and the oldest give way. Between calls, packets of size 0 or
// below (or without data) are refused with no frame, never start the drain,
// and leave the queue as it was.
TEST_P(DecodeVideo2Test, OneFrameACallInStreamOrderAndRefusalsBetween) {
  const uint8_t byte = 0;
  const struct {
    const uint8_t* data;
    int size;
  } refused[] = {{&byte, 0},       {nullptr, 0},  {&byte, -1},
                 {&byte, INT_MIN}, {nullptr, -7}, {nullptr, 9}};
  size_t next = 0;  // index in expected_ of the earliest frame that may come next
  for (int call = 0; call < kPackets; ++call) {
    SCOPED_TRACE(call);
    int got = 0;
    ASSERT_EQ(Decode(packets_[call].data(), static_cast<int>(packets_[call].size()), &got), 0);
    ASSERT_EQ(got, 1);
    size_t at = next;
    while (at < expected_.size() && Samples(frame_) != expected_[at]) ++at;
    ASSERT_LT(at, expected_.size()) << "not the next frames of the stream";
    if (GetParam() == 2) {
      EXPECT_EQ(at, static_cast<size_t>(call));
    }
    next = at + 1;
    const int queued = queue_.count;
    EXPECT_LE(queued, PictureQueue::kCapacity);
    for (const auto& r : refused) {
      got = 1;
      EXPECT_LT(Decode(r.data, r.size, &got), 0) << r.size;
      EXPECT_EQ(got, 0);
      EXPECT_EQ(queue_.count, queued);
    }
  }
  EXPECT_GT(queue_.count, 0);
}

INSTANTIATE_TEST_SUITE_P(FramesPerPacket, DecodeVideo2Test, ::testing::Values(2, 3));

}  // namespace
}  // namespace corvane::decoder::compat
