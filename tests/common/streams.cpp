#include "common/streams.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace corvane::test {

namespace {

bool FileExists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

}  // namespace

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::string MakeStream(const std::string& name, int width, int height, int frames,
                       const std::string& args, const std::string& source) {
  // The cached clip's name carries a digest of everything that made it, so
  // changing an encoder argument never reuses a stale clip.
  const auto dot = name.rfind('.');
  std::ostringstream recipe;
  recipe << width << 'x' << height << '/' << frames << '/' << args << '/' << source;
  char digest[17];
  std::snprintf(digest, sizeof digest, "%016zx", std::hash<std::string>{}(recipe.str()));
  const std::string path = std::string(CORVANE_TEST_DATA_DIR) + "/" + name.substr(0, dot) + "-" +
                           digest + name.substr(dot);
  if (FileExists(path)) return path;
  const std::string tmp = path + ".tmp." + std::to_string(getpid()) + name.substr(dot);
  std::ostringstream cmd;
  cmd << "ffmpeg -nostdin -y -loglevel error -f lavfi -i '" << source << "=size=" << width << "x"
      << height << ":rate=25' -frames:v " << frames << " " << args << " '" << tmp << "'";
  if (std::system(cmd.str().c_str()) != 0 || !FileExists(tmp)) {
    std::remove(tmp.c_str());
    throw std::runtime_error("ffmpeg failed: " + cmd.str());
  }
  if (std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::remove(tmp.c_str());
    throw std::runtime_error("cannot rename " + tmp);
  }
  return path;
}

std::vector<Packet> SplitAccessUnits(const std::string& path, int codecId) {
  const std::vector<uint8_t> bytes = ReadFile(path);
  AVCodecParserContext* parser = av_parser_init(codecId);
  const AVCodec* codec = avcodec_find_decoder(static_cast<AVCodecID>(codecId));
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  if (!parser || !ctx) throw std::runtime_error("no parser for codec " + std::to_string(codecId));

  std::vector<Packet> packets;
  // The parser may read a little past what it is given: pad the input.
  std::vector<uint8_t> padded(bytes);
  padded.resize(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
  const uint8_t* data = padded.data();
  int left = static_cast<int>(bytes.size());
  for (;;) {
    uint8_t* out = nullptr;
    int outSize = 0;
    const int used = av_parser_parse2(parser, ctx, &out, &outSize, data, left, AV_NOPTS_VALUE,
                                      AV_NOPTS_VALUE, 0);
    if (outSize > 0) packets.emplace_back(out, out + outSize);
    if (left == 0 && outSize == 0) break;  // flushed
    data += used;
    left -= used;
  }
  av_parser_close(parser);
  avcodec_free_context(&ctx);
  return packets;
}

}  // namespace corvane::test
