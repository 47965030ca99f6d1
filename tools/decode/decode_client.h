// A client of the decoder exports: one session, one packet a call, every picture
// handed back to the caller with no picture lost while the buffer is being sized.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "corvane.h"
#include "packet_source.h"

namespace corvane::tools {

struct DecodedPicture {
  int width = 0;
  int height = 0;
  const uint8_t* bgr = nullptr;  // width * 3 bytes a row, top row first
};

class DecodeClient {
 public:
  // `median`: the median clean-up export (H.264 only). `callbackOnly`: every
  // picture through the frame callback (an output size of 0).
  DecodeClient(Codec codec, bool median, bool callbackOnly);
  ~DecodeClient();
  DecodeClient(const DecodeClient&) = delete;
  DecodeClient& operator=(const DecodeClient&) = delete;

  // Feeds one packet and gives the export's result. A picture that came out is
  // in `picture`, valid until the next call; `picture.bgr` is null otherwise.
  int Feed(const uint8_t* data, int size, DecodedPicture& picture);

  // How often each result code came back.
  const std::map<int, long>& results() const { return results_; }

 private:
  using Decompress = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                                 int32_t);
  static void OnFrame(const CodecFrameRecord* record);
  void Grow(size_t bytes);

  CodecHandle session_ = nullptr;
  Decompress decompress_;
  bool callbackOnly_;
  std::vector<uint8_t> buffer_;    // the output buffer handed to the library
  std::vector<uint8_t> overflow_;  // a picture that came through the callback
  int overflowWidth_ = 0;
  int overflowHeight_ = 0;
  bool overflowReady_ = false;
  std::map<int, long> results_;
};

}  // namespace corvane::tools
