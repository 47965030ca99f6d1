#include "container.h"

#include <cerrno>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

namespace corvane::python {

namespace {

std::string AvText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

// FFmpeg's errors that are the system's own, so that Python raises
// FileNotFoundError, PermissionError... for them.
bool IsSystemError(int code) {
  for (int e : {ENOENT, EACCES, EISDIR, ENOTDIR, EPERM, ELOOP, ENAMETOOLONG})
    if (code == AVERROR(e)) return true;
  return false;
}

}  // namespace

Container::Container(const std::string& path) {
  int rc = avformat_open_input(&input_, path.c_str(), nullptr, nullptr);
  if (rc < 0) {
    if (IsSystemError(rc)) throw OpenError(AVUNERROR(rc), path);
    throw std::invalid_argument("FFmpeg cannot read " + path + ": " + AvText(rc));
  }
  try {
    rc = avformat_find_stream_info(input_, nullptr);
    stream_ = rc < 0 ? rc : av_find_best_stream(input_, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream_ < 0) throw std::invalid_argument(path + " holds no video stream");
    const AVStream* stream = input_->streams[stream_];
    const AVCodecID id = stream->codecpar->codec_id;
    if (id != AV_CODEC_ID_H264 && id != AV_CODEC_ID_HEVC)
      throw std::invalid_argument(path + ": the video is " + avcodec_get_name(id) +
                                  ", not H.264 or H.265");
    codec_ = id == AV_CODEC_ID_H264 ? Codec::H264 : Codec::H265;
    width_ = stream->codecpar->width;
    height_ = stream->codecpar->height;
    format_ = input_->iformat->name;
    timeBase_ = av_q2d(stream->time_base);
    if (stream->duration > 0)
      duration_ = static_cast<double>(stream->duration) * timeBase_;
    else if (input_->duration > 0)
      duration_ = static_cast<double>(input_->duration) / AV_TIME_BASE;

    // MP4 and Matroska keep the parameter sets aside and length-prefix the
    // units; the filter makes Annex B of them and passes Annex B through.
    const AVBitStreamFilter* kind =
        av_bsf_get_by_name(codec_ == Codec::H264 ? "h264_mp4toannexb" : "hevc_mp4toannexb");
    read_ = av_packet_alloc();
    out_ = av_packet_alloc();
    rc = kind && read_ && out_ ? av_bsf_alloc(kind, &filter_) : AVERROR(ENOMEM);
    if (rc >= 0) rc = avcodec_parameters_copy(filter_->par_in, stream->codecpar);
    if (rc >= 0) {
      filter_->time_base_in = stream->time_base;
      rc = av_bsf_init(filter_);
    }
    if (rc < 0) throw std::runtime_error("cannot set up FFmpeg's Annex B filter: " + AvText(rc));
  } catch (...) {
    Release();
    throw;
  }
}

Container::~Container() { Release(); }

void Container::Release() {
  av_bsf_free(&filter_);
  av_packet_free(&read_);
  av_packet_free(&out_);
  avformat_close_input(&input_);
}

bool Container::Next(Packet& packet) {
  av_packet_unref(out_);
  for (;;) {
    const int rc = av_bsf_receive_packet(filter_, out_);
    if (rc == 0) {
      packet.data = out_->data;
      packet.size = out_->size;
      packet.timed = out_->pts != AV_NOPTS_VALUE;
      packet.pts = packet.timed ? static_cast<double>(out_->pts) * timeBase_ : 0.0;
      return true;
    }
    if (rc != AVERROR(EAGAIN)) {
      if (rc != AVERROR_EOF) stopReason_ = "FFmpeg's Annex B filter: " + AvText(rc);
      return false;
    }
    if (!FeedFilter()) return false;
  }
}

// The filter gets our stream's next packet, or the end of the stream.
bool Container::FeedFilter() {
  for (;;) {
    const int rc = av_read_frame(input_, read_);
    if (rc < 0) {
      if (rc != AVERROR_EOF) stopReason_ = AvText(rc);
      return av_bsf_send_packet(filter_, nullptr) == 0;
    }
    if (read_->stream_index != stream_) {
      av_packet_unref(read_);
      continue;
    }
    const int sent = av_bsf_send_packet(filter_, read_);  // takes the packet's data
    av_packet_unref(read_);
    if (sent < 0) {
      stopReason_ = "FFmpeg's Annex B filter: " + AvText(sent);
      return false;
    }
    return true;
  }
}

}  // namespace corvane::python
