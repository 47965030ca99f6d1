// The 1080p H.264 stream that the decoding benchmarks share: 80 pictures of
// testsrc2, main profile, no B-frames, four slices a picture (so that slice
// threading has work, as with many cameras), made once with the ffmpeg CLI.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::bench {

constexpr int kStreamWidth = 1920;
constexpr int kStreamHeight = 1080;
constexpr int kStreamFrames = 80;

using Packets = std::vector<std::vector<uint8_t>>;

// The stream cut into access units; exits the program if it can't be made.
const Packets& Stream1080p();

// Makes a raw H.264 clip of testsrc2 with the ffmpeg CLI into the benchmarks'
// data folder, once (kept for later runs), and returns its path; exits the
// program if it can't be made. `encoder` holds the output options.
std::string MakeBenchStream(const std::string& name, int width, int height, int frames,
                            const std::string& encoder);

}  // namespace corvane::bench
