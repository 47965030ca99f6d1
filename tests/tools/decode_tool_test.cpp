// corvane-decode run as a user runs it: exit status, summary and the pictures it
// writes, checked against FFmpeg's own decode of the same stream.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <utility>
#include <string>
#include <vector>

#include "common/reference_decode.h"
#include "common/streams.h"

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace corvane::test {
namespace {

constexpr int kH264 = 27;
constexpr int kHevc = 173;
// 90 rows: not whole macroblocks, so the size told before the first picture
// (96 rows) differs from the pictures' own.
constexpr int kWidth = 160;
constexpr int kHeight = 90;
constexpr int kFrames = 12;
const std::string kX264 = "-c:v libx264 -profile:v main -bf 0 -g 5";
const std::string kX265 = "-c:v libx265 -x265-params bframes=0:keyint=5:log-level=error";

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

// A fresh folder for one run's files.
std::string Scratch(const std::string& name) {
  const std::string dir =
      std::string(CORVANE_TEST_DATA_DIR) + "/tools-out/" + name + "." + std::to_string(getpid());
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

ToolRun RunTool(const std::string& args, const std::string& dir) {
  const std::string cmd = std::string("'") + CORVANE_DECODE_TOOL + "' " + args + " >'" + dir +
                          "/stdout' 2>'" + dir + "/stderr' </dev/null";
  const int raw = std::system(cmd.c_str());
  ToolRun run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  for (auto [file, text] : {std::pair{"/stdout", &run.out}, std::pair{"/stderr", &run.err}}) {
    const std::vector<uint8_t> bytes = ReadFile(dir + file);
    text->assign(bytes.begin(), bytes.end());
  }
  return run;
}

// The number on the summary line "<key>: <number>", or -1.
long SummaryNumber(const std::string& summary, const std::string& key) {
  const auto at = summary.find("\n" + key + ":");
  const auto start = at == std::string::npos ? summary.rfind(key + ":", 0) : at + 1;
  if (start == std::string::npos) return -1;
  return std::strtol(summary.c_str() + start + key.size() + 1, nullptr, 10);
}

// Rows 0 .. height-2 of each picture: the bottom row isn't the decoder's.
void ExpectSamePictures(const std::vector<Picture>& expected, const std::vector<uint8_t>& bgr) {
  ASSERT_FALSE(expected.empty());
  const size_t bytes = expected[0].bgr.size();
  ASSERT_EQ(bgr.size(), expected.size() * bytes);
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(FirstDifferingRow(expected[i].bgr.data(), bgr.data() + i * bytes, expected[i].width,
                                expected[i].height - 1),
              -1)
        << "picture " << i;
}

struct StreamCase {
  const char* label;
  const char* file;       // made with MakeStream; the extension picks the container
  const char* reference;  // raw stream of the same content, for the oracle
  int codecId;
  const char* options;  // extra command-line options
};

void PrintTo(const StreamCase& c, std::ostream* os) { *os << c.label; }

class DecodeToolStream : public testing::TestWithParam<StreamCase> {};

TEST_P(DecodeToolStream, WritesEveryPictureAsFfmpegDecodesIt) {
  const StreamCase& c = GetParam();
  const std::string& args = c.codecId == kH264 ? kX264 : kX265;
  const std::string input = MakeStream(c.file, kWidth, kHeight, kFrames, args);
  const std::string raw = MakeStream(c.reference, kWidth, kHeight, kFrames, args);
  const std::vector<Picture> expected =
      ReferenceDecode(SplitAccessUnits(raw, c.codecId), c.codecId, /*drain=*/false);

  const std::string dir = Scratch(c.label);
  const ToolRun run = RunTool("'" + input + "' --format raw --out '" + dir + "' " + c.options, dir);
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.err, "");  // no progress line when stderr isn't a terminal
  EXPECT_EQ(SummaryNumber(run.out, "pictures"), static_cast<long>(expected.size())) << run.out;
  EXPECT_EQ(SummaryNumber(run.out, "written"), static_cast<long>(expected.size())) << run.out;
  EXPECT_NE(run.out.find("size:     160x90\n"), std::string::npos) << run.out;
  ExpectSamePictures(expected, ReadFile(dir + "/pictures.bgr"));
}

INSTANTIATE_TEST_SUITE_P(
    Streams, DecodeToolStream,
    testing::Values(StreamCase{"h264_raw", "tools.h264", "tools.h264", kH264, ""},
                    StreamCase{"h264_mp4", "tools.mp4", "tools.h264", kH264, ""},
                    StreamCase{"h264_callback", "tools.h264", "tools.h264", kH264, "--callback"},
                    StreamCase{"hevc_raw", "tools.hevc", "tools.hevc", kHevc, ""},
                    StreamCase{"hevc_mkv", "tools_hevc.mkv", "tools.hevc", kHevc, ""}),
    [](const testing::TestParamInfo<StreamCase>& info) { return std::string(info.param.label); });

// Every second of the first five pictures, as BMP and as PNG; each file decoded
// back (by hand for BMP, by FFmpeg for PNG) equals FFmpeg's picture.
TEST(DecodeTool, WritesEveryNthPictureAsBmpAndPng) {
  const std::string input = MakeStream("tools.h264", kWidth, kHeight, kFrames, kX264);
  const std::vector<Picture> expected =
      ReferenceDecode(SplitAccessUnits(input, kH264), kH264, false);
  for (const char* format : {"bmp", "png"}) {
    SCOPED_TRACE(format);
    const std::string dir = Scratch(std::string("every_") + format);
    const ToolRun run = RunTool(
        "'" + input + "' --every 2 --max 5 --format " + format + " --out '" + dir + "'", dir);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(SummaryNumber(run.out, "pictures"), 5) << run.out;
    EXPECT_EQ(SummaryNumber(run.out, "written"), 3) << run.out;
    for (int index : {0, 2, 4}) {
      const std::string path = dir + "/picture-00000" + std::to_string(index) + "." + format;
      const std::vector<uint8_t> file = ReadFile(path);
      std::vector<uint8_t> bgr;
      if (std::string(format) == "bmp") {
        const size_t stride = (kWidth * 3 + 3) & ~3;  // rows padded, bottom row first
        ASSERT_EQ(file.size(), 54 + stride * kHeight) << path;
        for (int y = kHeight - 1; y >= 0; --y)
          bgr.insert(bgr.end(), file.begin() + 54 + stride * y,
                     file.begin() + 54 + stride * y + kWidth * 3);
      } else {
        const std::vector<Picture> png = ReferenceDecode({file}, AV_CODEC_ID_PNG);
        ASSERT_EQ(png.size(), 1u) << path;
        bgr = png[0].bgr;
      }
      ExpectSamePictures({expected[index]}, bgr);
    }
  }
}

TEST(DecodeTool, QuietRunPrintsNothingAndStopsAtMax) {
  const std::string input = MakeStream("tools.h264", kWidth, kHeight, kFrames, kX264);
  const std::string dir = Scratch("quiet");
  const ToolRun run =
      RunTool("'" + input + "' --quiet --max 3 --format=raw --out='" + dir + "'", dir);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out + run.err, "");
  EXPECT_EQ(ReadFile(dir + "/pictures.bgr").size(), 3u * kWidth * kHeight * 3);

  const ToolRun help = RunTool("--help", dir);
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Usage: corvane-decode INPUT", 0), 0u) << help.out;
}

TEST(DecodeTool, RefusesBadInputWithAMessage) {
  const std::string dir = Scratch("bad");
  const std::string text = dir + "/notes.bin";
  const std::string garbage = dir + "/garbage.h264";
  std::ofstream(text) << "not a video at all\n";
  std::ofstream(garbage) << "not a video at all\n";
  const std::string mpeg4 = MakeStream("tools_mpeg4.mkv", kWidth, kHeight, 3, "-c:v mpeg4");
  const std::string h264 = MakeStream("tools.h264", kWidth, kHeight, kFrames, kX264);
  const struct {
    const char* label;
    std::string args;
    int status;
    const char* message;
  } cases[] = {
      {"missing file", "'" + dir + "/missing.h264'", 1, "cannot open"},
      {"missing container", "'" + dir + "/missing.mp4'", 1, "cannot open"},
      {"not a video", "'" + text + "'", 1, text.c_str()},
      {"other codec", "'" + mpeg4 + "'", 1, "unsupported video codec mpeg4"},
      {"garbage as h264", "'" + garbage + "'", 1, "no picture decoded"},
      {"unknown codec option", "'" + h264 + "' --codec vp8", 2, "unknown codec 'vp8'"},
      {"no input", "--every 2", 2, "no input file"},
      {"bad count", "'" + h264 + "' --every 0", 2, "--every wants a whole number"},
  };
  for (const auto& c : cases) {
    const ToolRun run = RunTool(c.args, dir);
    EXPECT_EQ(run.status, c.status) << c.label << "\n" << run.err;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << c.label << ": " << run.err;
  }
}

}  // namespace
}  // namespace corvane::test
