// corvane-decode run as a user runs it: its pictures against the ffmpeg command
// line's decode and BGR24 conversion; command lines against what they print.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

#include "corvane_image.h"
#include "decoder/decoding.h"
#include "tools/shell.h"

namespace corvane::test {
namespace {

std::string Tool(const std::string& args) { return "'" CORVANE_DECODE_TOOL "' " + args; }
std::string Quoted(const std::string& path) { return "'" + path + "'"; }

std::string Folder(const std::string& name) {
  const std::string dir = std::filesystem::current_path() / "tools-out" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

// A picture file (or a stream) as FFmpeg decodes and converts it: BGR24 rows.
std::vector<uint8_t> FfmpegBgr(const std::string& input) {
  const Ran run =
      Shell("ffmpeg -nostdin -loglevel error -i " + Quoted(input) +
            " -pix_fmt bgr24 -sws_flags fast_bilinear -fps_mode passthrough -f rawvideo -");
  EXPECT_EQ(run.status, 0) << input;
  return {run.out.begin(), run.out.end()};
}

#define LIBX264 "-c:v libx264 "
#define LIBX265 "-c:v libx265 -x265-params log-level=error"
constexpr int kFrames = 14;
// 90 rows, not whole macroblocks; 175 x 143 odd in both directions.
constexpr StreamRecipe kH264 = {"tools.h264", 160, 90, kFrames, LIBX264 "-bf 0 -g 5"};
constexpr StreamRecipe kHevc = {"tools.hevc", 160, 90, kFrames, LIBX265 ":bframes=0:keyint=5"};
StreamRecipe Clip(const char* file, const char* args, bool odd = false) {
  return {file, odd ? 175 : 160, odd ? 143 : 96, kFrames, args, odd ? "testsrc" : "testsrc2"};
}

// What the tool is asked to write of each picture FFmpeg gives, in place.
using Transform = std::function<void(std::vector<uint8_t>& bgr, int width, int height)>;

struct Row {
  const char* label;
  StreamRecipe clip;
  const char* options = "";
  const char* format = "raw";
  int every = 1, max = 0;
  Transform transform = nullptr;
};

// The encoders' defaults: B-frames, for H.264 a B-pyramid; in MP4 and MKV the
// parameter sets come behind an SEI, in MPEG-TS behind a delimiter.
const Row kRows[] = {
    {"h264_raw_90_rows", kH264},
    {"h264_callback", kH264, "--callback"},
    {"h264_bmp_every_2", kH264, "", "bmp", 2, 5},
    {"h264_png_every_2", kH264, "", "png", 2, 5},
    {"hevc_raw_90_rows", kHevc},
    {"h264_raw", Clip("f.h264", LIBX264)},
    {"h264_mp4_sei_first", Clip("f.mp4", LIBX264)},
    {"h264_mkv", Clip("f.mkv", LIBX264)},
    {"h264_mkv_callback", Clip("f.mkv", LIBX264), "--callback"},
    {"h264_ts_aud_first", Clip("f.ts", LIBX264)},
    {"h264_mp4_aud_sei_first", Clip("aud.mp4", LIBX264 "-x264-params aud=1")},
    {"h264_mkv_strict_pyramid", Clip("pyr.mkv", LIBX264 "-bf 4 -x264-params b-pyramid=strict")},
    {"h264_mkv_3_slices", Clip("slices.mkv", LIBX264 "-x264-params slices=3")},
    {"h264_ts_interlaced", Clip("inter.ts", LIBX264 "-flags +ildct+ilme -x264-params tff=1")},
    {"h264_raw_444_odd", Clip("odd444.h264", LIBX264 "-pix_fmt yuv444p", true)},
    {"h264_mp4_422", Clip("h422.mp4", LIBX264 "-pix_fmt yuv422p")},
    {"h265_raw", Clip("f.hevc", LIBX265)},
    {"h265_mp4", Clip("f.mp4", LIBX265)},
    {"h265_mkv", Clip("f.mkv", LIBX265)},
    {"h265_ts", Clip("f.ts", LIBX265)},
    // FFmpeg's 8-bit conversion of 10-bit pictures is the same one.
    {"h265_mkv_10bit", Clip("f10.mkv", LIBX265 " -pix_fmt yuv420p10le")},
    {"h265_mp4_444_odd", Clip("odd444.mp4", LIBX265 " -pix_fmt yuv444p", true)},
    // The filter stages on FFmpeg's pictures. The runs below take rows by their
    // index: new rows go at the end.
    {"h264_sharpen", kH264, "--sharpen", "raw", 1, 0,
     [](std::vector<uint8_t>& bgr, int w, int h) {
       bgr = Sharpen3x3({w, h, bgr}).bgr;
     }},
    {"hevc_median_5", kHevc, "--median 5", "raw", 1, 0,
     [](std::vector<uint8_t>& bgr, int w, int h) {
       std::vector<uint8_t> out(bgr.size());
       const corvane_image src{bgr.data(), w * 3, w, h, CORVANE_8U_C3},
           dst{out.data(), w * 3, w, h, CORVANE_8U_C3};
       ASSERT_EQ(corvane_median(&src, &dst, 5, 5, CORVANE_BORDER_REPLICATE, nullptr), 0);
       bgr = out;
     }},
};
void PrintTo(const Row& row, std::ostream* os) { *os << row.label; }

// The row's clip, under a name of its own.
std::string Input(const Row& row) {
  StreamRecipe clip = row.clip;
  const std::string name = std::string(row.label) + "_" + clip.file;
  clip.file = name.c_str();
  return MakeClip(clip);
}

class DecodeTool : public testing::TestWithParam<Row> {};

// Exactly the pictures FFmpeg gives, every `every`th written, nothing on
// standard error when it isn't a terminal.
TEST_P(DecodeTool, WritesThePicturesFfmpegGives) {
  const Row& row = GetParam();
  const std::string input = Input(row), dir = Folder(row.label);
  const std::vector<uint8_t> all = FfmpegBgr(input);
  const size_t bytes = size_t(row.clip.width) * row.clip.height * 3;
  const size_t decoded = row.max ? row.max : all.size() / bytes;
  const Ran run =
      Shell(Tool(Quoted(input) + " --format " + row.format + " --out " + Quoted(dir) + " --every " +
                 std::to_string(row.every) + (row.max ? " --max " + std::to_string(row.max) : "") +
                 " " + row.options + " 2>'" + dir + "/err'"));
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(ReadFile(dir + "/err").size(), 0u);
  const bool raw = row.format == std::string("raw");
  std::vector<uint8_t> expected, got = raw ? ReadFile(dir + "/pictures.bgr") : expected;
  for (size_t n = 0; n < decoded; n += row.every) {
    std::vector<uint8_t> picture(all.begin() + n * bytes, all.begin() + (n + 1) * bytes);
    if (row.transform) row.transform(picture, row.clip.width, row.clip.height);
    expected.insert(expected.end(), picture.begin(), picture.end());
    char name[32];
    std::snprintf(name, sizeof name, "/picture-%06zu.%s", n, row.format);
    if (!raw) {
      const std::vector<uint8_t> file = FfmpegBgr(dir + name);
      got.insert(got.end(), file.begin(), file.end());
    }
  }
  EXPECT_TRUE(got == expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, DecodeTool, testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.label); });

// Command lines and what they print (standard error included), a regular
// expression; "" wants nothing printed.
TEST(DecodeToolRuns, StatusAndMessages) {
  const std::string dir = Folder("runs"), h264 = Quoted(MakeClip(kH264));
  std::ofstream(dir + "/junk.h264") << "not a video at all\n";
  std::ofstream(dir + "/notes.bin") << "not a video at all\n";
  std::vector<std::tuple<std::string, int, std::string>> runs = {
      {"cat " + Quoted(Input(kRows[9])) + " | " + Tool("-"), 0, "\npictures: 14\n"},
      {"cat " + Quoted(MakeClip(kHevc)) + " | " + Tool("- --codec h265"), 0, "\npictures: 14\n"},
      // The designed exports alone never settle on SEI-first packets.
      {Tool(Quoted(Input(kRows[6])) + " --strict --loglevel quiet"), 1, "no picture decoded"},
      // The progress line knows the container's length.
      {Tool(Quoted(Input(kRows[7])) + " --progress 2>&1 >/dev/null"), 0,
       "\r[0-9]+% 0:00\\.[0-9] / 0:00\\.[56], [0-9]+ pictures"},
      {Tool(h264 + " --quiet --max 3 --format=raw --out=" + Quoted(dir)), 0, ""},
      {Tool("--help"), 0, "^Usage: corvane-decode INPUT"},
      {Tool(Quoted(dir + "/missing.mp4")), 1, "cannot open"},
      {Tool(Quoted(MakeClip({"tools_mpeg4.mkv", 160, 90, 3, "-c:v mpeg4"}))), 1,
       "unsupported video codec mpeg4"},
      {Tool(Quoted(dir + "/notes.bin")), 1, dir + "/notes.bin"},
      {Tool(Quoted(dir + "/junk.h264")), 1, "no picture decoded"},
      {Tool(h264 + " --codec vp8"), 2, "unknown codec 'vp8'"},
      {Tool(h264 + " --median --sharpen"), 2, "--median and --sharpen exclude each other"},
      {Tool("--every 2"), 2, "no input file"},
      {Tool(h264 + " --every 0"), 2, "--every wants a whole number"},
      {Tool(h264 + " --median 4"), 2, "--median wants an odd size"}};
  // Cut at 60 %, a file gives what it holds with a warning and status 0;
  // --quiet silences all of it, FFmpeg included.
  for (int index : {5, 7, 9}) {
    const std::vector<uint8_t> bytes = ReadFile(Input(kRows[index]));
    const std::string cut = dir + "/cut" + std::string(kRows[index].clip.file).substr(1);
    std::ofstream(cut).write(reinterpret_cast<const char*>(bytes.data()), bytes.size() * 6 / 10);
    runs.push_back(
        {Tool(Quoted(cut)), 0,
         "^(?=[\\s\\S]*corvane-decode: warning: )[\\s\\S]*\npictures: ([3-9]|1[0-3])\n"});
    runs.push_back({Tool(Quoted(cut) + " --quiet"), 0, ""});
  }
  for (const auto& [command, status, expected] : runs) {
    const Ran run = Shell("(" + command + ") 2>&1");
    EXPECT_EQ(run.status, status) << command;
    EXPECT_TRUE(expected.empty() ? run.out.empty()
                                 : std::regex_search(run.out, std::regex(expected)))
        << command << "\n"
        << run.out;
  }
}

}  // namespace
}  // namespace corvane::test
