#include "common/stream_1080p.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "packet_source.h"

namespace corvane::bench {

std::string MakeBenchStream(const std::string& name, int width, int height, int frames,
                            const std::string& encoder) {
  const std::string dir = CORVANE_BENCH_DATA_DIR;
  const std::string path = dir + "/" + name;
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && st.st_size > 0) return path;
  const std::string tmp = path + ".tmp." + std::to_string(getpid()) + ".h264";
  const std::string cmd =
      "mkdir -p '" + dir +
      "' && ffmpeg -nostdin -y -loglevel error -f lavfi -i testsrc2=size=" + std::to_string(width) +
      "x" + std::to_string(height) + ":rate=25 -frames:v " + std::to_string(frames) + " " +
      encoder + " '" + tmp + "' && mv '" + tmp + "' '" + path + "'";
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot make the stream: %s\n", cmd.c_str());
    std::exit(1);
  }
  return path;
}

const Packets& Stream1080p() {
  static const Packets packets = [] {
    Packets all;
    auto source = tools::OpenPacketSource(
        MakeBenchStream("decode_1080p.h264", kStreamWidth, kStreamHeight, kStreamFrames,
                        "-c:v libx264 -profile:v main -bf 0 -g 50 -x264-params slices=4"),
        tools::Codec::H264);
    tools::PacketView p;
    while (source->Next(p)) all.emplace_back(p.data, p.data + p.size);
    return all;
  }();
  return packets;
}

}  // namespace corvane::bench
