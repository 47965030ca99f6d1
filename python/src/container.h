// The video stream of a file that libavformat reads, as the access units the
// library's decoder takes: Annex B, parameter sets in front of each key frame.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "session.h"

struct AVBSFContext;
struct AVFormatContext;
struct AVPacket;

namespace corvane::python {

// A file the system refuses to open, with its errno.
class OpenError : public std::runtime_error {
 public:
  OpenError(int error, const std::string& path)
      : std::runtime_error(path), error_(error), path_(path) {}
  int error() const { return error_; }
  const std::string& path() const { return path_; }

 private:
  int error_;
  std::string path_;
};

struct Packet {
  const uint8_t* data = nullptr;
  int32_t size = 0;
  double pts = 0.0;    // seconds, as the container counts them
  bool timed = false;  // whether the container gave the packet a presentation time
};

class Container {
 public:
  // Throws OpenError for a file that the system can't open,
  // std::invalid_argument for one that FFmpeg can't read or that holds no
  // H.264 or H.265 video.
  explicit Container(const std::string& path);
  ~Container();
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;

  // The next access unit, valid until the next call; false at the end, or when
  // the file can't be read further (stopReason says why).
  bool Next(Packet& packet);

  Codec codec() const { return codec_; }
  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  // FFmpeg's name of the demuxer ("mov,mp4,m4a,3gp,3g2,mj2", "mpegts", "h264"...).
  const std::string& format() const { return format_; }
  // Seconds as the container states them; 0 unknown.
  double duration() const { return duration_; }
  const std::string& stopReason() const { return stopReason_; }

 private:
  bool FeedFilter();
  void Release();

  AVFormatContext* input_ = nullptr;
  AVBSFContext* filter_ = nullptr;
  AVPacket* read_ = nullptr;
  AVPacket* out_ = nullptr;
  int stream_ = -1;
  double timeBase_ = 0.0;
  Codec codec_ = Codec::H264;
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::string format_;
  double duration_ = 0.0;
  std::string stopReason_;
};

}  // namespace corvane::python
