// corvane-decode on ordinary files: exactly the pictures ffprobe counts for
// H.264 and H.265 in every container, each equal to FFmpeg's own BGR24
// conversion (the ffmpeg command line as the oracle); truncated files, standard
// input, and what the command line offers around them.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <regex>
#include <string>

#include "common/streams.h"
#include "tools/shell.h"

namespace corvane::test {
namespace {

std::string Tool(const std::string& args) {
  return std::string("'") + CORVANE_DECODE_TOOL + "' " + args;
}

std::string Folder(const std::string& name) {
  const std::string dir = std::string(CORVANE_TEST_DATA_DIR) + "/decode-files/" + name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

long FfprobeCount(const std::string& path) {
  const Ran run = Shell(
      "ffprobe -v error -count_frames -select_streams v:0 -show_entries "
      "stream=nb_read_frames -of csv=p=0 '" +
      path + "'");
  return std::strtol(run.out.c_str(), nullptr, 10);
}

struct FileCase {
  const char* label;
  const char* file;  // the extension picks the container
  int width;
  int height;
  const char* args;
  const char* source;
};
void PrintTo(const FileCase& c, std::ostream* os) { *os << c.label; }

#define X264 "-c:v libx264 "
#define X265 "-c:v libx265 -x265-params log-level=error "
// libx264 and libx265 defaults: B-frames, and for H.264 a B-pyramid; in MP4 and
// MKV the parameter sets come behind an SEI, in MPEG-TS behind a delimiter.
const FileCase kFiles[] = {
    {"h264_raw", "f.h264", 160, 96, X264, "testsrc2"},
    {"h264_mp4_sei_first", "f.mp4", 160, 96, X264, "testsrc2"},
    {"h264_mkv", "f.mkv", 160, 96, X264, "testsrc2"},
    {"h264_ts_aud_first", "f.ts", 160, 96, X264, "testsrc2"},
    {"h264_mp4_aud_sei_first", "aud.mp4", 160, 96, X264 "-x264-params aud=1", "testsrc2"},
    {"h264_mkv_strict_pyramid", "pyr.mkv", 160, 96, X264 "-bf 4 -x264-params b-pyramid=strict",
     "testsrc2"},
    {"h264_mkv_3_slices", "slices.mkv", 160, 96, X264 "-x264-params slices=3", "testsrc2"},
    {"h264_ts_interlaced", "inter.ts", 160, 96, X264 "-flags +ildct+ilme -x264-params tff=1",
     "testsrc2"},
    {"h264_raw_444_odd", "odd444.h264", 175, 143, X264 "-pix_fmt yuv444p", "testsrc"},
    {"h264_mp4_422", "h422.mp4", 160, 96, X264 "-pix_fmt yuv422p", "testsrc2"},
    {"h265_raw", "f.hevc", 160, 96, X265, "testsrc2"},
    {"h265_mp4", "f.mp4", 160, 96, X265, "testsrc2"},
    {"h265_mkv", "f.mkv", 160, 96, X265, "testsrc2"},
    {"h265_ts", "f.ts", 160, 96, X265, "testsrc2"},
    {"h265_mkv_10bit", "f10.mkv", 160, 96, X265 "-pix_fmt yuv420p10le", "testsrc2"},
    {"h265_mp4_444_odd", "odd444.mp4", 175, 143, X265 "-pix_fmt yuv444p", "testsrc"},
};
constexpr int kFrames = 14;

class DecodeFiles : public testing::TestWithParam<FileCase> {};

TEST_P(DecodeFiles, EveryPictureFfprobeCountsAsFfmpegConvertsIt) {
  const FileCase& c = GetParam();
  const std::string input =
      MakeStream(std::string(c.label) + "_" + c.file, c.width, c.height, kFrames, c.args, c.source);
  const long count = FfprobeCount(input);
  ASSERT_EQ(count, kFrames) << input;
  const std::string dir = Folder(c.label);
  const Ran run = Shell(Tool("'" + input + "' --format raw --out '" + dir + "' 2>&1"));
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("\npictures: " + std::to_string(count) + "\n"), std::string::npos)
      << run.out;
  EXPECT_EQ(run.out.find("warning"), std::string::npos) << run.out;
  // 10-bit pictures too: FFmpeg's 8-bit BGR24 of them is the same conversion.
  const Ran ffmpeg = Shell("ffmpeg -nostdin -loglevel error -y -i '" + input +
                           "' -pix_fmt bgr24 -sws_flags fast_bilinear -fps_mode passthrough "
                           "-f rawvideo '" +
                           dir + "/ffmpeg.bgr'");
  ASSERT_EQ(ffmpeg.status, 0) << ffmpeg.out;
  const std::vector<uint8_t> got = ReadFile(dir + "/pictures.bgr");
  EXPECT_EQ(got.size(), size_t(count) * c.width * c.height * 3);
  EXPECT_TRUE(got == ReadFile(dir + "/ffmpeg.bgr")) << "pictures differ from FFmpeg's";
}

INSTANTIATE_TEST_SUITE_P(Matrix, DecodeFiles, testing::ValuesIn(kFiles),
                         [](const testing::TestParamInfo<FileCase>& info) {
                           return std::string(info.param.label);
                         });

std::string File(int index) {
  const FileCase& c = kFiles[index];
  return MakeStream(std::string(c.label) + "_" + c.file, c.width, c.height, kFrames, c.args,
                    c.source);
}

// A file cut at 60 %: what it holds comes out, with a warning, and the exit
// status says pictures came; --quiet silences all of it, FFmpeg included.
TEST(DecodeTool, TruncatedFileDecodesWhatItCanAndWarns) {
  for (int index : {0, 2, 3}) {
    const std::string input = File(index);
    const std::vector<uint8_t> bytes = ReadFile(input);
    const std::string cut =
        Folder("truncated") + "/cut" + std::filesystem::path(input).extension().string();
    FILE* out = std::fopen(cut.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size() * 6 / 10, out);
    std::fclose(out);
    SCOPED_TRACE(input);
    const Ran run = Shell(Tool("'" + cut + "' 2>&1"));
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("corvane-decode: warning: "), std::string::npos) << run.out;
    const long pictures = std::strtol(run.out.c_str() + run.out.find("pictures:") + 9, nullptr, 10);
    EXPECT_GT(pictures, 2) << run.out;
    EXPECT_LT(pictures, kFrames) << run.out;
    const Ran quiet = Shell(Tool("'" + cut + "' --quiet 2>&1"));
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out, "");
  }
}

TEST(DecodeTool, StandardInputStrictVersionAndProgress) {
  const std::string count = "\npictures: " + std::to_string(kFrames) + "\n";
  const struct {
    const char* label;
    std::string command;
    int status;
    std::string expected;  // a regular expression found in what it prints
  } cases[] = {
      {"probed standard input", "cat '" + File(3) + "' | " + Tool("- 2>&1"), 0, count},
      {"raw standard input", "cat '" + File(10) + "' | " + Tool("- --codec h265 2>&1"), 0, count},
      // The designed exports never settle on packets that open with an SEI.
      {"strict", Tool("'" + File(1) + "' --strict --loglevel quiet 2>&1"), 1, "no picture decoded"},
      {"version", Tool("--version"), 0,
       "^corvane-decode [0-9]+\\.[0-9]+\\.[0-9]+\nlibcorvane [0-9.]+\nFFmpeg "},
      {"progress", Tool("'" + File(2) + "' --progress 2>&1 >/dev/null"), 0,
       "\r[0-9]+% 0:00\\.[0-9] / 0:00\\.[56], [0-9]+ pictures"},
      {"bad log level", Tool("'" + File(2) + "' --loglevel loud 2>&1"), 2,
       "unknown log level 'loud'"},
  };
  for (const auto& c : cases) {
    const Ran run = Shell(c.command);
    EXPECT_EQ(run.status, c.status) << c.label << "\n" << run.out;
    EXPECT_TRUE(std::regex_search(run.out, std::regex(c.expected))) << c.label << "\n" << run.out;
  }
}

}  // namespace
}  // namespace corvane::test
