// corvane-decode on ordinary files: exactly the pictures ffprobe counts for
// H.264 and H.265 in every container, each equal to FFmpeg's own BGR24
// conversion (the ffmpeg command line as the oracle); truncated files, standard
// input, and what the command line offers around them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "support/clips.h"
#include "tools/shell.h"

namespace corvane::test {
namespace {

std::string Tool(const std::string& args) {
  return std::string("'") + CORVANE_DECODE_TOOL + "' " + args;
}

std::string Folder(const std::string& name) {
  const std::string dir = std::filesystem::current_path() / "decode-files" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

struct FileCase {
  const char* label;
  const char* file;  // the extension picks the container
  const char* args;
  bool odd = false;  // 175x143 testsrc rather than 160x96 testsrc2
  const char* options = "";
};
void PrintTo(const FileCase& c, std::ostream* os) { *os << c.label; }

#define X264 "-c:v libx264 "
#define X265 "-c:v libx265 -x265-params log-level=error "
// The encoders' defaults: B-frames, for H.264 a B-pyramid; in MP4 and MKV the
// parameter sets come behind an SEI, in MPEG-TS behind a delimiter.
const FileCase kFiles[] = {
    {"h264_raw", "f.h264", X264},
    {"h264_mp4_sei_first", "f.mp4", X264},
    {"h264_mkv", "f.mkv", X264},
    {"h264_mkv_callback", "f.mkv", X264, false, "--callback"},
    {"h264_ts_aud_first", "f.ts", X264},
    {"h264_mp4_aud_sei_first", "aud.mp4", X264 "-x264-params aud=1"},
    {"h264_mkv_strict_pyramid", "pyr.mkv", X264 "-bf 4 -x264-params b-pyramid=strict"},
    {"h264_mkv_3_slices", "slices.mkv", X264 "-x264-params slices=3"},
    {"h264_ts_interlaced", "inter.ts", X264 "-flags +ildct+ilme -x264-params tff=1"},
    {"h264_raw_444_odd", "odd444.h264", X264 "-pix_fmt yuv444p", true},
    {"h264_mp4_422", "h422.mp4", X264 "-pix_fmt yuv422p"},
    {"h265_raw", "f.hevc", X265},
    {"h265_mp4", "f.mp4", X265},
    {"h265_mkv", "f.mkv", X265},
    {"h265_ts", "f.ts", X265},
    {"h265_mkv_10bit", "f10.mkv", X265 "-pix_fmt yuv420p10le"},
    {"h265_mp4_444_odd", "odd444.mp4", X265 "-pix_fmt yuv444p", true},
};
constexpr int kFrames = 14;

std::string File(const FileCase& c) {
  const std::string name = std::string(c.label) + "_" + c.file;
  return MakeClip({name.c_str(), c.odd ? 175 : 160, c.odd ? 143 : 96, kFrames, c.args,
                   c.odd ? "testsrc" : "testsrc2"});
}
const std::string kCount = "\npictures: " + std::to_string(kFrames) + "\n";

class DecodeFiles : public testing::TestWithParam<FileCase> {};

// Exactly the pictures ffprobe counts, byte for byte FFmpeg's BGR24 (10-bit
// pictures too: FFmpeg's 8-bit conversion of them is the same one).
TEST_P(DecodeFiles, EveryPictureFfprobeCountsAsFfmpegConvertsIt) {
  const std::string input = File(GetParam()), dir = Folder(GetParam().label);
  ASSERT_EQ(Shell("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                  "stream=nb_read_frames -of csv=p=0 '" +
                  input + "'")
                .out.substr(0, 3),
            std::to_string(kFrames) + "\n");
  const Ran run =
      Shell(Tool("'" + input + "' --format raw --out '" + dir + "' 2>&1 " + GetParam().options));
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find(kCount), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("warning"), std::string::npos) << run.out;
  ASSERT_EQ(Shell("ffmpeg -nostdin -loglevel error -i '" + input +
                  "' -pix_fmt bgr24 -sws_flags "
                  "fast_bilinear -fps_mode passthrough -f rawvideo '" +
                  dir + "/ffmpeg.bgr'")
                .status,
            0);
  EXPECT_TRUE(ReadFile(dir + "/pictures.bgr") == ReadFile(dir + "/ffmpeg.bgr"));
}

INSTANTIATE_TEST_SUITE_P(Matrix, DecodeFiles, testing::ValuesIn(kFiles),
                         [](const testing::TestParamInfo<FileCase>& info) {
                           return std::string(info.param.label);
                         });

// Cut at 60 %, a file gives what it holds with a warning and exit status 0;
// --quiet silences all of it, FFmpeg included. Standard input, probed or raw;
// the designed exports alone (--strict) never settle on SEI-first packets; the
// progress line knows the container's length.
TEST(DecodeTool, TruncatedFilesStandardInputStrictAndProgress) {
  for (int index : {0, 2, 4}) {
    const std::vector<uint8_t> bytes = ReadFile(File(kFiles[index]));
    const std::string cut = Folder("cut") + "/cut" + std::string(kFiles[index].file).substr(1);
    std::ofstream(cut).write(reinterpret_cast<const char*>(bytes.data()), bytes.size() * 6 / 10);
    const Ran run = Shell(Tool("'" + cut + "' 2>&1"));
    EXPECT_EQ(run.status, 0) << cut;
    EXPECT_TRUE(std::regex_search(run.out, std::regex("\npictures: ([3-9]|1[0-3])\n"))) << run.out;
    EXPECT_NE(run.out.find("corvane-decode: warning: "), std::string::npos) << run.out;
    EXPECT_EQ(Shell(Tool("'" + cut + "' --quiet 2>&1")).out, "");
  }
  const struct {
    std::string command;
    int status;
    std::string expected;  // a regular expression
  } cases[] = {
      {"cat '" + File(kFiles[4]) + "' | " + Tool("- 2>&1"), 0, kCount},
      {"cat '" + File(kFiles[11]) + "' | " + Tool("- --codec h265 2>&1"), 0, kCount},
      {Tool("'" + File(kFiles[1]) + "' --strict --loglevel quiet 2>&1"), 1, "no picture decoded"},
      {Tool("'" + File(kFiles[2]) + "' --progress 2>&1 >/dev/null"), 0,
       "\r[0-9]+% 0:00\\.[0-9] / 0:00\\.[56], [0-9]+ pictures"},
  };
  for (const auto& c : cases) {
    const Ran run = Shell(c.command);
    EXPECT_EQ(run.status, c.status) << c.command;
    EXPECT_TRUE(std::regex_search(run.out, std::regex(c.expected))) << c.command << run.out;
  }
}

}  // namespace
}  // namespace corvane::test
