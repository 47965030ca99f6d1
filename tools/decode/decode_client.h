// A client of the decoder exports: one session, one packet a call, every picture
// handed back to the caller with no picture lost while the buffer is being sized.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "corvane.h"
#include "corvane_ext.h"
#include "packet_source.h"

namespace corvane::tools {

struct DecodedPicture {
  int width = 0;
  int height = 0;
  const uint8_t* bgr = nullptr;  // width * 3 bytes a row, top row first
};

// What a client of ordinary files turns on (corvane_ext.h): settle on streams
// whose packets open with a delimiter or an SEI, every row written, the
// standard's decode of multi-slice streams, frame threads.
constexpr uint32_t kFileOptions = CORVANE_OPTION_PARAMETERS_ANYWHERE | CORVANE_OPTION_FULL_PICTURE |
                                  CORVANE_OPTION_CONFORMANT | CORVANE_OPTION_FRAME_THREADS;

// The decoder's own filter stage a client asks for (H.264 only).
enum class Stage { Plain, Median, Sharpen };

class DecodeClient {
 public:
  // `stage`: the export of a filter stage. `callbackOnly`: every picture
  // through the frame callback (an output size of 0). `options`:
  // CORVANE_OPTION_* flags for the session, 0 for the 18 exports as designed.
  DecodeClient(Codec codec, Stage stage, bool callbackOnly, uint32_t options);
  ~DecodeClient();
  DecodeClient(const DecodeClient&) = delete;
  DecodeClient& operator=(const DecodeClient&) = delete;

  // Feeds one packet and gives the export's result. A picture that came out is
  // in `picture`, valid until the next call; `picture.bgr` is null otherwise.
  int Feed(const uint8_t* data, int size, DecodedPicture& picture);
  // At the end of the stream: one picture the decoder still held, as Feed
  // gives it. corvane_codec_drain's result: 1 picture, 0 none left.
  int Drain(DecodedPicture& picture);

  // How often each result code came back.
  const std::map<int, long>& results() const { return results_; }

 private:
  using Decompress = int32_t (*)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                                 int32_t);
  static void OnFrame(const CodecFrameRecord* record);
  void Grow(size_t bytes);
  // Runs one call of the library with this client's buffer and callback, and
  // hands out what it delivered: `call` is given the header, the buffer and its
  // size, and returns the library's result; `delivered` is the result that
  // says a picture came.
  template <typename Call>
  int Run(Call call, int delivered, DecodedPicture& picture);

  CodecHandle session_ = nullptr;
  Decompress decompress_;
  bool callbackOnly_;
  bool fullPicture_;
  std::vector<uint8_t> buffer_;    // the output buffer handed to the library
  std::vector<uint8_t> overflow_;  // a picture that came through the callback
  int overflowWidth_ = 0;
  int overflowHeight_ = 0;
  bool overflowReady_ = false;
  std::map<int, long> results_;
};

}  // namespace corvane::tools
