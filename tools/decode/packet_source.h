// Where corvane-decode gets its packets: a stream file cut into access units in
// Annex B form, whatever the file holds (a raw elementary stream or a container).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace corvane::tools {

enum class Codec { H264, H265 };

// "h264" / "h265"; and the other way round (nullopt for any other name).
const char* CodecName(Codec codec);
std::optional<Codec> ParseCodec(const std::string& name);

// One access unit. Valid until the next call of Next or the source's end.
struct PacketView {
  const uint8_t* data = nullptr;
  int size = 0;
  double time = -1.0;  // media time in seconds from the stream's start; -1 unknown
};

class PacketSource {
 public:
  virtual ~PacketSource() = default;
  // The next access unit, or false at the end of the stream. Throws
  // std::runtime_error when the file can't be read further.
  virtual bool Next(PacketView& packet) = 0;
  Codec codec() const { return codec_; }
  // How the file is read, for the summary: "raw Annex B", "mp4 container"...
  const std::string& kind() const { return kind_; }
  // The stream's length in seconds as the container states it; 0 unknown.
  double duration() const { return duration_; }
  // Why reading stopped before the end of the file; empty when it didn't.
  const std::string& stopReason() const { return stopReason_; }
  // The width of a pixel over its height, as the container tells it; 1 unknown.
  double pixelAspect() const { return pixelAspect_; }

 protected:
  PacketSource(Codec codec, std::string kind) : codec_(codec), kind_(std::move(kind)) {}
  double duration_ = 0.0;
  double pixelAspect_ = 1.0;
  std::string stopReason_;

 private:
  Codec codec_;
  std::string kind_;
};

// Opens `path`. Files named .h264/.264/.h265/.265/.hevc are raw Annex B, cut by
// FFmpeg's parser; anything else goes through libavformat, and its packets through
// the mp4-to-Annex B bitstream filter of the codec. "-" is standard input, read by
// libavformat: probed, or raw Annex B of the `forced` codec. `forced` replaces
// the codec that the name or the container tells. Throws std::runtime_error with a message
// fit for the user when the file can't be opened or holds no H.264/H.265 video.
std::unique_ptr<PacketSource> OpenPacketSource(const std::string& path,
                                               std::optional<Codec> forced);

}  // namespace corvane::tools
