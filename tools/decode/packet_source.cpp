#include "packet_source.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

namespace corvane::tools {

namespace {

constexpr int kReadChunk = 4096;

std::string AvError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

AVCodecID ToAvCodec(Codec codec) {
  return codec == Codec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC;
}

std::optional<Codec> CodecFromExtension(const std::string& path) {
  const auto dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return std::nullopt;
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ext == "h264" || ext == "264" || ext == "avc") return Codec::H264;
  if (ext == "h265" || ext == "265" || ext == "hevc") return Codec::H265;
  return std::nullopt;
}

// A demuxer names every format it reads ("mov,mp4,m4a,..."): the one that the
// file's extension names, or else the first.
std::string ContainerName(const std::string& names, const std::string& path) {
  const auto dot = path.rfind('.');
  const std::string ext = dot == std::string::npos ? "" : path.substr(dot + 1);
  const std::string list = "," + names + ",";
  if (!ext.empty() && list.find("," + ext + ",") != std::string::npos) return ext;
  return names.substr(0, names.find(','));
}

// A raw Annex B file read in small chunks and cut into access units by FFmpeg's
// parser, so that each packet holds one picture with its parameter sets in front.
class RawSource final : public PacketSource {
 public:
  RawSource(const std::string& path, Codec codec)
      : PacketSource(codec, "raw Annex B"),
        path_(path),
        chunk_(kReadChunk + AV_INPUT_BUFFER_PADDING_SIZE, 0) {
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
    parser_ = av_parser_init(ToAvCodec(codec));
    context_ = avcodec_alloc_context3(nullptr);
    if (!parser_ || !context_) {
      Release();
      throw std::runtime_error("FFmpeg has no parser for " + std::string(CodecName(codec)));
    }
  }
  ~RawSource() override { Release(); }

  bool Next(PacketView& packet) override {
    for (;;) {
      if (left_ == 0 && !eof_) Refill();
      if (done_) return false;
      uint8_t* out = nullptr;
      int outSize = 0;
      // At the end of the file an empty input flushes what the parser holds.
      const int used = av_parser_parse2(parser_, context_, &out, &outSize, eof_ ? nullptr : next_,
                                        left_, AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
      if (used < 0) throw std::runtime_error("the parser rejected the stream");
      next_ += used;
      left_ -= used;
      if (outSize > 0) {
        packet = {out, outSize};
        return true;
      }
      if (eof_) done_ = true;
    }
  }

 private:
  void Refill() {
    const size_t got = std::fread(chunk_.data(), 1, kReadChunk, file_);
    if (got < kReadChunk && std::ferror(file_))
      throw std::runtime_error("cannot read " + path_ + ": " + std::strerror(errno));
    next_ = chunk_.data();
    left_ = static_cast<int>(got);
    eof_ = got == 0;
  }
  void Release() {
    if (file_) std::fclose(file_);
    av_parser_close(parser_);
    avcodec_free_context(&context_);
    file_ = nullptr;
    parser_ = nullptr;
  }

  std::string path_;
  std::FILE* file_ = nullptr;
  AVCodecParserContext* parser_ = nullptr;
  AVCodecContext* context_ = nullptr;
  std::vector<uint8_t> chunk_;  // zero padding past the read bytes, as the parser wants
  const uint8_t* next_ = nullptr;
  int left_ = 0;
  bool eof_ = false;
  bool done_ = false;
};

// A container read by libavformat; its video packets pass the codec's
// mp4-to-Annex B filter, which also puts the parameter sets in front of each
// key frame. Packets that are Annex B already (transport streams) pass unchanged.
class ContainerSource final : public PacketSource {
 public:
  ContainerSource(AVFormatContext* format, int stream, Codec codec, std::string kind)
      : PacketSource(codec, std::move(kind)), format_(format), stream_(stream) {
    const AVStream* st = format_->streams[stream_];
    if (st->duration > 0)
      duration_ = static_cast<double>(st->duration) * av_q2d(st->time_base);
    else if (format_->duration > 0)
      duration_ = static_cast<double>(format_->duration) / AV_TIME_BASE;
    start_ = st->start_time == AV_NOPTS_VALUE ? 0 : st->start_time;
    const AVRational aspect =
        av_guess_sample_aspect_ratio(format_, format_->streams[stream_], nullptr);
    if (aspect.num > 0 && aspect.den > 0) pixelAspect_ = av_q2d(aspect);
    const char* filterName =
        st->codecpar->codec_id == AV_CODEC_ID_H264 ? "h264_mp4toannexb" : "hevc_mp4toannexb";
    const AVBitStreamFilter* filter = av_bsf_get_by_name(filterName);
    read_ = av_packet_alloc();
    out_ = av_packet_alloc();
    int rc = filter && read_ && out_ ? av_bsf_alloc(filter, &bsf_) : AVERROR(ENOMEM);
    if (rc >= 0) rc = avcodec_parameters_copy(bsf_->par_in, st->codecpar);
    if (rc >= 0) {
      bsf_->time_base_in = st->time_base;
      rc = av_bsf_init(bsf_);
    }
    if (rc < 0) {
      Release();
      throw std::runtime_error(std::string("cannot set up ") + filterName + ": " + AvError(rc));
    }
  }
  ~ContainerSource() override { Release(); }

  bool Next(PacketView& packet) override {
    av_packet_unref(out_);
    for (;;) {
      const int rc = av_bsf_receive_packet(bsf_, out_);
      if (rc == 0) {
        const int64_t stamp = out_->pts != AV_NOPTS_VALUE ? out_->pts : out_->dts;
        const double time = stamp == AV_NOPTS_VALUE
                                ? -1.0
                                : static_cast<double>(stamp - start_) *
                                      av_q2d(format_->streams[stream_]->time_base);
        packet = {out_->data, out_->size, time};
        return true;
      }
      if (rc == AVERROR_EOF) return false;
      if (rc != AVERROR(EAGAIN)) throw std::runtime_error("bitstream filter: " + AvError(rc));
      Feed();
    }
  }

 private:
  // Gives the filter the next packet of our stream, or the end of the stream.
  void Feed() {
    for (;;) {
      const int rc = av_read_frame(format_, read_);
      if (rc < 0) {
        if (rc != AVERROR_EOF) stopReason_ = AvError(rc);
        av_bsf_send_packet(bsf_, nullptr);
        return;
      }
      if (read_->stream_index == stream_) {
        const int sent = av_bsf_send_packet(bsf_, read_);  // takes the packet's data
        av_packet_unref(read_);
        if (sent < 0) throw std::runtime_error("bitstream filter: " + AvError(sent));
        return;
      }
      av_packet_unref(read_);
    }
  }
  void Release() {
    av_bsf_free(&bsf_);
    av_packet_free(&read_);
    av_packet_free(&out_);
    avformat_close_input(&format_);
  }

  AVFormatContext* format_;
  int stream_;
  int64_t start_ = 0;  // the stream's first time stamp
  AVBSFContext* bsf_ = nullptr;
  AVPacket* read_ = nullptr;
  AVPacket* out_ = nullptr;
};

std::unique_ptr<PacketSource> OpenContainer(const std::string& path, std::optional<Codec> forced) {
  AVFormatContext* format = nullptr;
  const bool standardInput = path == "-";
  // Standard input can't be read twice to guess its kind: a codec given says
  // it is a raw stream of that codec.
  const AVInputFormat* raw = standardInput && forced
                                 ? av_find_input_format(*forced == Codec::H264 ? "h264" : "hevc")
                                 : nullptr;
  int rc = avformat_open_input(&format, standardInput ? "pipe:0" : path.c_str(), raw, nullptr);
  if (rc < 0) throw std::runtime_error("cannot open " + path + ": " + AvError(rc));
  rc = avformat_find_stream_info(format, nullptr);
  const int stream =
      rc < 0 ? rc : av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (stream < 0) {
    avformat_close_input(&format);
    throw std::runtime_error(path + " is not a video file (no video stream found)");
  }
  const AVCodecID id = format->streams[stream]->codecpar->codec_id;
  if (id != AV_CODEC_ID_H264 && id != AV_CODEC_ID_HEVC) {
    const std::string name = avcodec_get_name(id);
    avformat_close_input(&format);
    throw std::runtime_error(path + ": unsupported video codec " + name +
                             " (H.264 and H.265 only)");
  }
  const Codec codec = forced.value_or(id == AV_CODEC_ID_H264 ? Codec::H264 : Codec::H265);
  const std::string kind = standardInput
                               ? std::string(format->iformat->name) + " on standard input"
                               : ContainerName(format->iformat->name, path) + " container";
  return std::make_unique<ContainerSource>(format, stream, codec, kind);
}

}  // namespace

const char* CodecName(Codec codec) { return codec == Codec::H264 ? "h264" : "h265"; }

std::optional<Codec> ParseCodec(const std::string& name) {
  if (name == "h264") return Codec::H264;
  if (name == "h265" || name == "hevc") return Codec::H265;
  return std::nullopt;
}

std::unique_ptr<PacketSource> OpenPacketSource(const std::string& path,
                                               std::optional<Codec> forced) {
  if (const auto byName = CodecFromExtension(path))
    return std::make_unique<RawSource>(path, forced.value_or(*byName));
  return OpenContainer(path, forced);
}

}  // namespace corvane::tools
