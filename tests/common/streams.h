// Test streams made on demand with the ffmpeg command-line tool, and cut into
// access units the way a client would feed them to the decoder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::test {

using Packet = std::vector<uint8_t>;

// Encodes a synthetic clip with the ffmpeg CLI into <test-data>/ and returns its
// path: `name` with a digest of the recipe added before the extension, which picks
// the container (.h264/.hevc raw Annex B, .mp4, .mkv, .ts). `args` goes between
// the input options and the output, for example "-c:v libx264 -profile:v baseline".
// The clip is `testsrc2` of the given size and frame count unless `source` names
// another lavfi source graph. Made once per recipe and build tree; concurrent test
// processes are safe (write + rename).
std::string MakeStream(const std::string& name, int width, int height, int frames,
                       const std::string& args, const std::string& source = "testsrc2");

// Raw Annex B file cut into access units by FFmpeg's parser (one packet per
// picture, parameter sets and SEI kept in front of the first slice).
// codecId: 27 (H.264) or 173 (H.265).
std::vector<Packet> SplitAccessUnits(const std::string& path, int codecId);

std::vector<uint8_t> ReadFile(const std::string& path);

}  // namespace corvane::test
