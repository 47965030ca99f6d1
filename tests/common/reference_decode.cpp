#include "common/reference_decode.h"

#include <cstring>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace corvane::test {

namespace {

Picture ToBgr(const AVFrame* frame) {
  Picture pic;
  pic.width = frame->width;
  pic.height = frame->height;
  SwsContext* sws = sws_getContext(
      frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), frame->width,
      frame->height, AV_PIX_FMT_BGR24, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
  if (!sws) throw std::runtime_error("sws_getContext failed");
  // Into a frame of FFmpeg's own allocation, with its padded rows, as its
  // tools convert: with rows of exactly width * 3 bytes swscale's vector
  // writers leave pixels unwritten or overrun at widths not a multiple of 16.
  AVFrame* bgr = av_frame_alloc();
  if (!bgr) throw std::runtime_error("av_frame_alloc failed");
  bgr->width = frame->width;
  bgr->height = frame->height;
  bgr->format = AV_PIX_FMT_BGR24;
  if (av_frame_get_buffer(bgr, 0) < 0) throw std::runtime_error("av_frame_get_buffer failed");
  sws_scale(sws, frame->data, frame->linesize, 0, frame->height, bgr->data, bgr->linesize);
  sws_freeContext(sws);
  const size_t rowBytes = static_cast<size_t>(pic.width) * 3;
  pic.bgr.resize(rowBytes * pic.height);
  for (int y = 0; y < pic.height; ++y)
    std::memcpy(pic.bgr.data() + y * rowBytes, bgr->data[0] + y * bgr->linesize[0], rowBytes);
  av_frame_free(&bgr);
  return pic;
}

}  // namespace

std::vector<Picture> ReferenceDecode(const std::vector<Packet>& packets, int codecId, bool drain,
                                     void (*configure)(AVCodecContext*)) {
  const AVCodec* codec = avcodec_find_decoder(static_cast<AVCodecID>(codecId));
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  if (!ctx) throw std::runtime_error("no decoder");
  ctx->thread_count = 1;
  if (configure) configure(ctx);
  if (avcodec_open2(ctx, codec, nullptr) < 0) throw std::runtime_error("avcodec_open2 failed");
  AVFrame* frame = av_frame_alloc();
  AVPacket* pkt = av_packet_alloc();
  std::vector<Picture> pictures;
  auto receiveAll = [&] {
    while (avcodec_receive_frame(ctx, frame) == 0) {
      pictures.push_back(ToBgr(frame));
      av_frame_unref(frame);
    }
  };
  for (const Packet& p : packets) {
    pkt->data = const_cast<uint8_t*>(p.data());
    pkt->size = static_cast<int>(p.size());
    avcodec_send_packet(ctx, pkt);
    receiveAll();
  }
  if (drain) {
    avcodec_send_packet(ctx, nullptr);
    receiveAll();
  }
  av_packet_free(&pkt);
  av_frame_free(&frame);
  avcodec_free_context(&ctx);
  return pictures;
}

int FirstDifferingRow(const uint8_t* a, const uint8_t* b, int width, int rows) {
  const size_t rowBytes = static_cast<size_t>(width) * 3;
  for (int y = 0; y < rows; ++y)
    if (std::memcmp(a + y * rowBytes, b + y * rowBytes, rowBytes) != 0) return y;
  return -1;
}

}  // namespace corvane::test
