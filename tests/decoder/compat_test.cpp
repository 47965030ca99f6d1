// One packet in, one picture out over send/receive, on MP2 audio, whose packets
// of several frames leave frames waiting as a video decoder can: frames come in
// stream order (at three a packet the oldest give way), refusals leave the queue.
#include <gtest/gtest.h>

#include <climits>

#include "decoder/compat.h"

namespace corvane::decoder::compat {
namespace {

TEST(DecodeVideo2, OneFrameACallInStreamOrderAndRefusalsBetween) {
  auto open = [](const AVCodec* codec) {
    AVCodecContext* context = avcodec_alloc_context3(codec);
    context->sample_rate = 44100, context->sample_fmt = AV_SAMPLE_FMT_S16,
    context->bit_rate = 128000;
    av_channel_layout_default(&context->ch_layout, 1);
    EXPECT_EQ(avcodec_open2(context, codec, nullptr), 0);
    return context;
  };
  auto samples = [](const AVFrame* f) {
    return std::vector<uint8_t>(f->data[0], f->data[0] + f->nb_samples * 2);
  };
  for (int perPacket : {2, 3}) {
    AVCodecContext *encoder = open(avcodec_find_encoder(AV_CODEC_ID_MP2)),
                   *reference = open(avcodec_find_decoder(AV_CODEC_ID_MP2));
    AVFrame *frame = av_frame_alloc(), *decoded = av_frame_alloc();
    frame->nb_samples = encoder->frame_size, frame->format = encoder->sample_fmt;
    av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
    av_frame_get_buffer(frame, 0);
    AVPacket* packet = av_packet_alloc();
    std::vector<std::vector<uint8_t>> packets(6), expected;
    for (int n = 0; expected.size() < 6u * perPacket; ++n) {
      for (int i = 0; i < frame->nb_samples; ++i)
        reinterpret_cast<int16_t*>(frame->data[0])[i] = int16_t(i * (n + 3) * 97 % 20000);
      avcodec_send_frame(encoder, frame);
      while (expected.size() < 6u * perPacket && avcodec_receive_packet(encoder, packet) == 0) {
        packets[expected.size() / perPacket].insert(packets[expected.size() / perPacket].end(),
                                                    packet->data, packet->data + packet->size);
        avcodec_send_packet(reference, packet);
        while (avcodec_receive_frame(reference, decoded) == 0) expected.push_back(samples(decoded));
      }
    }
    av_packet_unref(packet);
    AVCodecContext* context = open(avcodec_find_decoder(AV_CODEC_ID_MP2));
    PictureQueue queue;
    const uint8_t byte = 0;
    const std::pair<const uint8_t*, int> refused[] = {
        {&byte, 0}, {nullptr, 0}, {&byte, -1}, {&byte, INT_MIN}, {nullptr, -7}, {nullptr, 9}};
    for (size_t call = 0, next = 0; call < packets.size(); ++call) {
      int got = 0;
      ASSERT_EQ(DecodeVideo2(context, decoded, &got, packet, &queue, packets[call].data(),
                             int(packets[call].size())),
                0);
      ASSERT_EQ(got, 1);
      while (next < expected.size() && samples(decoded) != expected[next]) ++next;
      ASSERT_LT(next, expected.size())
          << perPacket << " frames a packet: not the next frame at call " << call;
      EXPECT_EQ(perPacket == 2 ? next : call, call);
      const int queued = queue.count;
      for (const auto& [data, size] : refused) {
        EXPECT_LT(DecodeVideo2(context, decoded, &(got = 1), packet, &queue, data, size), 0);
        EXPECT_EQ(std::pair(got, queue.count), std::pair(0, queued)) << size;
      }
      ++next;
    }
    EXPECT_GT(queue.count, 0);
    ClearQueue(&queue);
    FreeContext(&context);
    for (AVCodecContext* c : {encoder, reference}) avcodec_free_context(&c);
    av_packet_free(&packet), av_frame_free(&frame), av_frame_free(&decoded);
  }
}

}  // namespace
}  // namespace corvane::decoder::compat
