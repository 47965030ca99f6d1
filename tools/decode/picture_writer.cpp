#include "picture_writer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

namespace corvane::tools {

namespace {

void PutLe(std::vector<uint8_t>& out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

std::string PictureName(long index, const char* ext) {
  char name[64];
  std::snprintf(name, sizeof name, "picture-%06ld.%s", index, ext);
  return name;
}

void WriteAll(std::FILE* file, const void* data, size_t bytes, const std::string& path) {
  if (std::fwrite(data, 1, bytes, file) != bytes)
    throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

// Opens for writing, runs `body`, closes; any failure names the file.
template <typename Body>
void WithFile(const std::string& path, Body body) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) throw std::runtime_error("cannot create " + path + ": " + std::strerror(errno));
  try {
    body(file);
  } catch (...) {
    std::fclose(file);
    throw;
  }
  if (std::fclose(file) != 0)
    throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

}  // namespace

std::optional<PictureFormat> ParsePictureFormat(const std::string& name) {
  if (name == "bmp") return PictureFormat::Bmp;
  if (name == "png") return PictureFormat::Png;
  if (name == "raw") return PictureFormat::Raw;
  return std::nullopt;
}

const char* PictureFormatName(PictureFormat format) {
  switch (format) {
    case PictureFormat::Bmp:
      return "bmp";
    case PictureFormat::Png:
      return "png";
    case PictureFormat::Raw:
      return "raw BGR24";
  }
  return "?";
}

PictureWriter::PictureWriter(const std::string& dir, PictureFormat format)
    : dir_(dir), format_(format) {
  std::error_code error;
  std::filesystem::create_directories(dir_, error);
  if (error) throw std::runtime_error("cannot create folder " + dir_ + ": " + error.message());
  if (format_ == PictureFormat::Raw) {
    const std::string path = dir_ + "/" + kRawName;
    raw_ = std::fopen(path.c_str(), "wb");
    if (!raw_) throw std::runtime_error("cannot create " + path + ": " + std::strerror(errno));
  }
}

PictureWriter::~PictureWriter() {
  if (raw_) std::fclose(raw_);
  ClosePngEncoder();
}

void PictureWriter::Write(long index, const uint8_t* bgr, int width, int height) {
  switch (format_) {
    case PictureFormat::Raw:
      WriteAll(raw_, bgr, static_cast<size_t>(width) * height * 3, dir_ + "/" + kRawName);
      break;
    case PictureFormat::Bmp:
      WriteBmp(dir_ + "/" + PictureName(index, "bmp"), bgr, width, height);
      break;
    case PictureFormat::Png:
      WritePng(dir_ + "/" + PictureName(index, "png"), bgr, width, height);
      break;
  }
}

// A 24-bit bottom-up bitmap: file header, 40-byte info header, rows padded to 4 bytes.
void PictureWriter::WriteBmp(const std::string& path, const uint8_t* bgr, int width, int height) {
  const size_t rowBytes = static_cast<size_t>(width) * 3;
  const size_t stride = (rowBytes + 3) & ~size_t{3};
  const uint32_t imageBytes = static_cast<uint32_t>(stride * height);
  std::vector<uint8_t> head;
  head.push_back('B');
  head.push_back('M');
  PutLe(head, 14 + 40 + imageBytes, 4);  // file size
  PutLe(head, 0, 4);                     // reserved
  PutLe(head, 14 + 40, 4);               // offset of the pixels
  PutLe(head, 40, 4);
  PutLe(head, static_cast<uint32_t>(width), 4);
  PutLe(head, static_cast<uint32_t>(height), 4);  // positive: bottom row first
  PutLe(head, 1, 2);                              // planes
  PutLe(head, 24, 2);                             // bits a pixel
  PutLe(head, 0, 4);                              // no compression
  PutLe(head, imageBytes, 4);
  PutLe(head, 2835, 4);  // 72 dpi
  PutLe(head, 2835, 4);
  PutLe(head, 0, 4);
  PutLe(head, 0, 4);
  row_.assign(stride, 0);
  WithFile(path, [&](std::FILE* file) {
    WriteAll(file, head.data(), head.size(), path);
    for (int y = height - 1; y >= 0; --y) {
      std::memcpy(row_.data(), bgr + rowBytes * y, rowBytes);
      WriteAll(file, row_.data(), stride, path);
    }
  });
}

void PictureWriter::OpenPngEncoder(int width, int height) {
  ClosePngEncoder();
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  png_ = codec ? avcodec_alloc_context3(codec) : nullptr;
  rgb_ = av_frame_alloc();
  packet_ = av_packet_alloc();
  if (!png_ || !rgb_ || !packet_) throw std::runtime_error("FFmpeg has no PNG encoder");
  png_->width = width;
  png_->height = height;
  png_->pix_fmt = AV_PIX_FMT_RGB24;
  png_->time_base = AVRational{1, 25};
  rgb_->format = AV_PIX_FMT_RGB24;
  rgb_->width = width;
  rgb_->height = height;
  if (avcodec_open2(png_, codec, nullptr) < 0 || av_frame_get_buffer(rgb_, 0) < 0)
    throw std::runtime_error("cannot set up the PNG encoder");
}

void PictureWriter::ClosePngEncoder() {
  avcodec_free_context(&png_);
  av_frame_free(&rgb_);
  av_packet_free(&packet_);
}

void PictureWriter::WritePng(const std::string& path, const uint8_t* bgr, int width, int height) {
  if (!png_ || png_->width != width || png_->height != height) OpenPngEncoder(width, height);
  if (av_frame_make_writable(rgb_) < 0) throw std::runtime_error("out of memory");
  for (int y = 0; y < height; ++y) {  // BGR to RGB: swap the outer bytes of each pixel
    const uint8_t* src = bgr + static_cast<size_t>(width) * 3 * y;
    uint8_t* dst = rgb_->data[0] + static_cast<size_t>(rgb_->linesize[0]) * y;
    for (int x = 0; x < width; ++x, src += 3, dst += 3) {
      dst[0] = src[2];
      dst[1] = src[1];
      dst[2] = src[0];
    }
  }
  if (avcodec_send_frame(png_, rgb_) < 0 || avcodec_receive_packet(png_, packet_) < 0)
    throw std::runtime_error("PNG encoding failed for " + path);
  WithFile(path, [&](std::FILE* file) { WriteAll(file, packet_->data, packet_->size, path); });
  av_packet_unref(packet_);
}

}  // namespace corvane::tools
