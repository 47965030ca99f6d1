// Test clips made with the ffmpeg tool, cached under a digest of their recipe,
// and FFmpeg's own decode of them to BGR24: the oracle for every picture.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::test {

using Packet = std::vector<uint8_t>;

struct StreamRecipe {
  const char* file;  // its extension picks the container: .h264/.hevc (Annex B), .mp4, .mkv
  int width, height, frames;
  const char* args;                 // the output options
  const char* source = "testsrc2";  // a lavfi graph
  int codecId = 27;                 // 27 H.264, 173 H.265
};

// 1080p H.264 main, no B-frames, four slices a picture: work for slice threads.
inline constexpr StreamRecipe k1080p = {
    "main_slices_1080p.h264", 1920, 1080, 80,
    "-c:v libx264 -profile:v main -bf 0 -g 50 -x264-params slices=4"};

// The clip's path, made once per recipe.
std::string MakeClip(const StreamRecipe& recipe);
// A raw clip cut into access units by FFmpeg's parser.
std::vector<Packet> LoadPackets(const StreamRecipe& recipe);
std::vector<uint8_t> ReadFile(const std::string& path);

struct Picture {
  int width = 0, height = 0;
  std::vector<uint8_t> bgr;  // width * 3 bytes a row
};
// Every picture of the packets in output order, `drain`ed at the end or not;
// `likeASession`: with a decoder session's settings (slice threads, fast, all
// pictures shown), else one thread and FFmpeg's defaults.
std::vector<Picture> ReferenceDecode(const std::vector<Packet>& packets, int codecId,
                                     bool likeASession = false, bool drain = true);
// The first of `rows` BGR24 rows of `width` pixels in which a and b differ, or -1.
int FirstDifferingRow(const uint8_t* a, const uint8_t* b, int width, int rows);

}  // namespace corvane::test
