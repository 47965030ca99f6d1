// corvane-decode run as a user runs it: exit status, summary and the pictures
// it writes, against FFmpeg's own decode of the same stream.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "decoder/decoding.h"
#include "tools/shell.h"

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace corvane::test {
namespace {

// 90 rows, not whole macroblocks: the first-frames size (96 rows) isn't the pictures'.
const StreamRecipe kH264 = {"tools.h264", 160, 90, 12, "-c:v libx264 -profile:v main -bf 0 -g 5"};
const StreamRecipe kHevc = {
    "tools.hevc", 160, 90, 12, "-c:v libx265 -x265-params bframes=0:keyint=5:log-level=error",
    "testsrc2",   173};
constexpr size_t kBytes = 160 * 90 * 3;

struct ToolRun {
  int status;
  std::string out, err, dir;
};

// The tool on `args`, where OUT stands for a fresh folder of the run's own.
ToolRun RunTool(const std::string& label, std::string args) {
  const std::string dir = std::filesystem::current_path() / "tools-out" / label;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  if (const auto at = args.find("OUT"); at != std::string::npos)
    args.replace(at, 3, "'" + dir + "'");
  const Ran ran = Shell("'" CORVANE_DECODE_TOOL "' " + args + " 2>'" + dir + "/err' </dev/null");
  const std::vector<uint8_t> err = ReadFile(dir + "/err");
  return {ran.status, ran.out, std::string(err.begin(), err.end()), dir};
}

// The summary line "<key>: <number>", or -1.
long Summary(const std::string& out, const std::string& key) {
  const auto at = ("\n" + out).find("\n" + key + ":");
  return at == std::string::npos ? -1 : std::strtol(out.c_str() + at + key.size() + 1, nullptr, 10);
}

// Rows 0 .. height-2 of each picture: the bottom row isn't the decoder's.
void ExpectPictures(const std::vector<Picture>& expected, const std::vector<uint8_t>& bgr) {
  ASSERT_EQ(bgr.size(), expected.size() * kBytes);
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(FirstDifferingRow(expected[i].bgr.data(), &bgr[i * kBytes], 160, 89), -1)
        << "picture " << i;
}

TEST(DecodeTool, WritesEveryPictureAsFfmpegDecodesIt) {
  const std::tuple<const char*, const StreamRecipe*, const char*, const char*> cases[] = {
      // a container of the same clip
      {"h264_raw", &kH264, nullptr, ""},
      {"h264_mp4", &kH264, "tools.mp4", ""},
      {"h264_callback", &kH264, nullptr, "--callback"},
      {"h264_sharpen", &kH264, nullptr, "--sharpen"},
      {"hevc_raw", &kHevc, nullptr, ""},
      {"hevc_mkv", &kHevc, "tools_hevc.mkv", ""}};
  for (const auto& [label, raw, container, options] : cases) {
    SCOPED_TRACE(label);
    StreamRecipe input = *raw;
    input.file = container ? container : raw->file;
    std::vector<Picture> expected = ReferenceDecode(LoadPackets(*raw), raw->codecId, false, false);
    if (std::string(options) == "--sharpen")
      for (Picture& p : expected) p = Sharpen3x3(p);
    const ToolRun run =
        RunTool(label, "'" + MakeClip(input) + "' --format raw --out OUT " + options);
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(run.err, "");  // no progress line when stderr isn't a terminal
    EXPECT_EQ(std::pair(Summary(run.out, "pictures"), Summary(run.out, "written")),
              std::pair(long(expected.size()), long(expected.size())));
    EXPECT_NE(run.out.find("size:     160x90\n"), std::string::npos) << run.out;
    ExpectPictures(expected, ReadFile(run.dir + "/pictures.bgr"));
  }
}

// Every second of the first five pictures, as BMP and as PNG, each read back
// by FFmpeg's own decoder of its format.
TEST(DecodeTool, WritesEveryNthPictureAsBmpAndPng) {
  const std::vector<Picture> expected = ReferenceDecode(LoadPackets(kH264), 27, false, false);
  for (const auto& [format, codec] :
       {std::pair{"bmp", AV_CODEC_ID_BMP}, std::pair{"png", AV_CODEC_ID_PNG}}) {
    const ToolRun run = RunTool(
        format, "'" + MakeClip(kH264) + "' --every 2 --max 5 --format " + format + " --out OUT");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(std::pair(Summary(run.out, "pictures"), Summary(run.out, "written")),
              std::pair(5l, 3l))
        << run.out;
    for (int n : {0, 2, 4}) {
      const auto file = ReferenceDecode(
          {ReadFile(run.dir + "/picture-00000" + std::to_string(n) + "." + format)}, codec);
      ASSERT_EQ(file.size(), 1u) << format;
      ExpectPictures({expected[n]}, file[0].bgr);
    }
  }
}

TEST(DecodeTool, QuietRunsHelpAndRefusals) {
  const ToolRun quiet =
      RunTool("quiet", "'" + MakeClip(kH264) + "' --quiet --max 3 --format=raw --out=OUT");
  EXPECT_EQ(std::pair(quiet.status, quiet.out + quiet.err), std::pair(0, std::string()));
  EXPECT_EQ(ReadFile(quiet.dir + "/pictures.bgr").size(), 3 * kBytes);
  const ToolRun help = RunTool("help", "--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Usage: corvane-decode INPUT", 0), 0u) << help.out;
  const std::string junk = quiet.dir + "/junk.h264", text = quiet.dir + "/notes.bin",
                    h264 = "'" + MakeClip(kH264) + "'";
  std::ofstream(junk) << "not a video at all\n";
  std::ofstream(text) << "not a video at all\n";
  const std::tuple<std::string, int, std::string> cases[] = {
      {"'" + quiet.dir + "/missing.h264'", 1, "cannot open"},
      {"'" + quiet.dir + "/missing.mp4'", 1, "cannot open"},
      {"'" + MakeClip({"tools_mpeg4.mkv", 160, 90, 3, "-c:v mpeg4"}) + "'", 1,
       "unsupported video codec mpeg4"},
      {"'" + text + "'", 1, text},
      {"'" + junk + "'", 1, "no picture decoded"},
      {h264 + " --codec vp8", 2, "unknown codec 'vp8'"},
      {h264 + " --median --sharpen", 2, "--median and --sharpen exclude each other"},
      {"--every 2", 2, "no input file"},
      {h264 + " --every 0", 2, "--every wants a whole number"}};
  for (const auto& [args, status, message] : cases) {
    const ToolRun run = RunTool("bad", args);
    EXPECT_EQ(run.status, status) << args;
    EXPECT_NE(run.err.find(message), std::string::npos) << args << ": " << run.err;
  }
}

}  // namespace
}  // namespace corvane::test
