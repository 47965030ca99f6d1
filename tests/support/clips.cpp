#include "support/clips.h"

#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace corvane::test {

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string MakeClip(const StreamRecipe& r) {
  const std::string recipe = std::string("-f lavfi -i '") + r.source +
                             "=size=" + std::to_string(r.width) + "x" + std::to_string(r.height) +
                             ":rate=25' -frames:v " + std::to_string(r.frames) + " " + r.args;
  const std::string name = r.file, ext = name.substr(name.rfind('.'));
  const std::string path = CORVANE_TEST_DATA_DIR "/" + name.substr(0, name.size() - ext.size()) +
                           "-" + std::to_string(std::hash<std::string>{}(recipe)) + ext;
  if (access(path.c_str(), R_OK) == 0) return path;
  const std::string tmp = path + "." + std::to_string(getpid()) + ext;  // then renamed: atomic
  const std::string cmd = "mkdir -p " CORVANE_TEST_DATA_DIR
                          " && ffmpeg -nostdin -y -loglevel error " +
                          recipe + " '" + tmp + "'";
  if (std::system(cmd.c_str()) != 0 || std::rename(tmp.c_str(), path.c_str()) != 0)
    throw std::runtime_error("cannot make the clip: " + cmd);
  return path;
}

std::vector<Packet> LoadPackets(const StreamRecipe& recipe) {
  std::vector<uint8_t> bytes = ReadFile(MakeClip(recipe));
  const int size = static_cast<int>(bytes.size());
  bytes.resize(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE);  // the parser reads ahead
  AVCodecParserContext* parser = av_parser_init(recipe.codecId);
  AVCodecContext* context = avcodec_alloc_context3(nullptr);
  std::vector<Packet> packets;
  int at = 0, left, outSize;
  do {  // and once more with nothing left, which flushes
    uint8_t* out = nullptr;
    left = size - at;
    at += av_parser_parse2(parser, context, &out, &outSize, &bytes[at], left, AV_NOPTS_VALUE,
                           AV_NOPTS_VALUE, 0);
    if (outSize > 0) packets.emplace_back(out, out + outSize);
  } while (left > 0 || outSize > 0);
  av_parser_close(parser);
  avcodec_free_context(&context);
  return packets;
}

std::vector<Picture> ReferenceDecode(const std::vector<Packet>& packets, int codecId,
                                     bool likeASession, bool drain) {
  const AVCodec* codec = avcodec_find_decoder(static_cast<AVCodecID>(codecId));
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  ctx->thread_count = likeASession ? 0 : 1;
  if (likeASession) {
    ctx->thread_type = FF_THREAD_SLICE;
    ctx->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
    ctx->flags2 |= AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
  }
  if (avcodec_open2(ctx, codec, nullptr) < 0) throw std::runtime_error("no decoder");
  AVFrame *frame = av_frame_alloc(), *bgr = av_frame_alloc();
  AVPacket* pkt = av_packet_alloc();
  std::vector<Picture> pictures;
  for (size_t n = 0; n < packets.size() + drain; ++n) {
    pkt->data = n < packets.size() ? const_cast<uint8_t*>(packets[n].data()) : nullptr;
    pkt->size = n < packets.size() ? static_cast<int>(packets[n].size()) : 0;
    avcodec_send_packet(ctx, pkt);
    while (avcodec_receive_frame(ctx, frame) == 0) {
      // Into FFmpeg's own padded rows, as its tools do: at rows of exactly
      // width * 3 bytes swscale's vector writers miss or overrun pixels.
      Picture& p = pictures.emplace_back(Picture{frame->width, frame->height, {}});
      av_frame_unref(bgr);
      bgr->width = p.width, bgr->height = p.height, bgr->format = AV_PIX_FMT_BGR24;
      SwsContext* sws =
          sws_getContext(p.width, p.height, AVPixelFormat(frame->format), p.width, p.height,
                         AV_PIX_FMT_BGR24, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
      if (!sws || av_frame_get_buffer(bgr, 0) < 0) throw std::runtime_error("no conversion");
      sws_scale(sws, frame->data, frame->linesize, 0, p.height, bgr->data, bgr->linesize);
      sws_freeContext(sws);
      for (int y = 0; y < p.height; ++y)
        p.bgr.insert(p.bgr.end(), bgr->data[0] + y * bgr->linesize[0],
                     bgr->data[0] + y * bgr->linesize[0] + p.width * 3);
    }
  }
  av_packet_free(&pkt);
  av_frame_free(&frame);
  av_frame_free(&bgr);
  avcodec_free_context(&ctx);
  return pictures;
}

int FirstDifferingRow(const uint8_t* a, const uint8_t* b, int width, int rows) {
  for (int y = 0; y < rows; ++y)
    if (std::memcmp(a + size_t(y) * width * 3, b + size_t(y) * width * 3, size_t(width) * 3))
      return y;
  return -1;
}

}  // namespace corvane::test
