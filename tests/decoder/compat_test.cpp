// The one-packet-in, at-most-one-picture-out decode call over FFmpeg's
// send/receive interface. FFmpeg's own decode of the same packets, frame by
// frame, is the oracle.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "decoder/compat.h"

extern "C" {
#include <libavutil/log.h>
}

namespace corvane::decoder::compat {
namespace {

// MP2 audio: the decoder takes one frame out of a packet at a time, so a
// packet of several frames leaves frames waiting, the way a video decoder can.
constexpr int kPackets = 6;

std::vector<std::vector<uint8_t>> EncodeMp2Frames(int count) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MP2);
    AVCodecContext* enc = avcodec_alloc_context3(codec);
    enc->sample_rate = 44100;
    enc->sample_fmt = AV_SAMPLE_FMT_S16;
    enc->bit_rate = 128000;
    av_channel_layout_default(&enc->ch_layout, 1);
    EXPECT_EQ(avcodec_open2(enc, codec, nullptr), 0);
    AVFrame* frame = av_frame_alloc();
    frame->nb_samples = enc->frame_size;
    frame->format = enc->sample_fmt;
    av_channel_layout_copy(&frame->ch_layout, &enc->ch_layout);
    av_frame_get_buffer(frame, 0);
    AVPacket* packet = av_packet_alloc();
    std::vector<std::vector<uint8_t>> frames;
    for (int n = 0; frames.size() < static_cast<size_t>(count); ++n) {
        auto* samples = reinterpret_cast<int16_t*>(frame->data[0]);
        for (int i = 0; i < frame->nb_samples; ++i) samples[i] = static_cast<int16_t>((i * (n + 3) * 97) % 20000);
        avcodec_send_frame(enc, frame);
        while (avcodec_receive_packet(enc, packet) == 0) {
            frames.emplace_back(packet->data, packet->data + packet->size);
            av_packet_unref(packet);
        }
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&enc);
    return frames;
}

AVCodecContext* OpenMp2Decoder() {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_MP2);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    EXPECT_EQ(avcodec_open2(context, codec, nullptr), 0);
    return context;
}

std::vector<uint8_t> Samples(const AVFrame* frame) {
    return std::vector<uint8_t>(frame->data[0], frame->data[0] + frame->nb_samples * 2);
}

// Parameter: frames per packet.
class DecodeVideo2Test : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        av_log_set_level(AV_LOG_QUIET);
        const int framesPerPacket = GetParam();
        const auto frames = EncodeMp2Frames(framesPerPacket * kPackets);
        for (int p = 0; p < kPackets; ++p) {
            std::vector<uint8_t> bytes;
            for (int f = 0; f < framesPerPacket; ++f) {
                const auto& one = frames[p * framesPerPacket + f];
                bytes.insert(bytes.end(), one.begin(), one.end());
            }
            packets_.push_back(bytes);
        }
        // FFmpeg's own decode of every frame, in stream order.
        AVCodecContext* reference = OpenMp2Decoder();
        AVFrame* frame = av_frame_alloc();
        for (const auto& one : frames) {
            AVPacket* packet = av_packet_alloc();
            packet->data = const_cast<uint8_t*>(one.data());
            packet->size = static_cast<int>(one.size());
            avcodec_send_packet(reference, packet);
            while (avcodec_receive_frame(reference, frame) == 0) expected_.push_back(Samples(frame));
            av_packet_free(&packet);
        }
        av_frame_free(&frame);
        avcodec_free_context(&reference);

        context_ = OpenMp2Decoder();
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

    std::vector<std::vector<uint8_t>> packets_;
    std::vector<std::vector<uint8_t>> expected_;
    AVCodecContext* context_ = nullptr;
    AVFrame* frame_ = nullptr;
    AVPacket* packet_ = nullptr;
    PictureQueue queue_;
};

// Each call gives one frame, frames come out in stream order and none twice,
// while the frames waiting in the decoder are queued. Two frames a packet
// never fill the queue, so none is lost; three a packet outrun a reader of
// one a call, and the oldest give way.
TEST_P(DecodeVideo2Test, OneFrameACallInStreamOrder) {
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
        EXPECT_LE(queue_.count, PictureQueue::kCapacity);
    }
    EXPECT_GT(queue_.count, 0);
}

// Refused packets give a negative result and no frame, never start the drain,
// and leave the queue as it was.
TEST_P(DecodeVideo2Test, SizeZeroOrBelowIsRefusedWithoutDraining) {
    int got = 0;
    ASSERT_EQ(Decode(packets_[0].data(), static_cast<int>(packets_[0].size()), &got), 0);
    ASSERT_EQ(Decode(packets_[1].data(), static_cast<int>(packets_[1].size()), &got), 0);
    const int queued = queue_.count;
    const uint8_t byte = 0;
    const struct {
        const uint8_t* data;
        int size;
    } refused[] = {{&byte, 0}, {nullptr, 0}, {&byte, -1}, {&byte, INT_MIN}, {nullptr, -7}, {nullptr, 9}};
    for (const auto& r : refused) {
        got = 1;
        EXPECT_LT(Decode(r.data, r.size, &got), 0) << r.size;
        EXPECT_EQ(got, 0);
        EXPECT_EQ(queue_.count, queued);
    }
    ASSERT_EQ(Decode(packets_[2].data(), static_cast<int>(packets_[2].size()), &got), 0);
    ASSERT_EQ(got, 1);
    EXPECT_EQ(Samples(frame_), expected_[2]);
}

INSTANTIATE_TEST_SUITE_P(FramesPerPacket, DecodeVideo2Test, ::testing::Values(2, 3));

}  // namespace
}  // namespace corvane::decoder::compat
