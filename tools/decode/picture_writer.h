// Writes decoded BGR24 pictures to a folder: one BMP or PNG file a picture, or all
// pictures appended to one raw BGR24 file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace corvane::tools {

enum class PictureFormat { Bmp, Png, Raw };

std::optional<PictureFormat> ParsePictureFormat(const std::string& name);
const char* PictureFormatName(PictureFormat format);

class PictureWriter {
 public:
  // Creates `dir` (and its parents) when missing. Throws std::runtime_error.
  PictureWriter(const std::string& dir, PictureFormat format);
  ~PictureWriter();
  PictureWriter(const PictureWriter&) = delete;
  PictureWriter& operator=(const PictureWriter&) = delete;

  // Writes picture number `index` (BGR24, width * 3 bytes a row, top row first).
  // BMP and PNG go to picture-<index>.<ext>; raw is appended to pictures.bgr.
  void Write(long index, const uint8_t* bgr, int width, int height);

  // The file that raw output goes to.
  static constexpr const char* kRawName = "pictures.bgr";

 private:
  void WriteBmp(const std::string& path, const uint8_t* bgr, int width, int height);
  void WritePng(const std::string& path, const uint8_t* bgr, int width, int height);
  void OpenPngEncoder(int width, int height);
  void ClosePngEncoder();

  std::string dir_;
  PictureFormat format_;
  std::FILE* raw_ = nullptr;
  AVCodecContext* png_ = nullptr;
  AVFrame* rgb_ = nullptr;
  AVPacket* packet_ = nullptr;
  std::vector<uint8_t> row_;
};

}  // namespace corvane::tools
