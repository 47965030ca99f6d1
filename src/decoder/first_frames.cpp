#include "decoder/first_frames.h"

#include <cstring>
#include <new>

#include "h264parser/exception.h"
#include "h264parser/parser.h"

namespace corvane::decoder {

namespace {

// The parser sees no more of a packet than this: a sequence parameter set
// that opens a packet fits in it many times over, and a packet of any size
// costs one bounded copy.
constexpr int32_t kParserBufferBytes = 1000;

// Products the way a 32-bit signed header field holds them: wrapped, never
// trapped, whatever size a damaged parameter set claims.
int32_t Wrapped(uint32_t value) { return static_cast<int32_t>(value); }

// The header of a stream whose size so far is known only from its sequence
// parameter set: whole macroblocks, no cropping, and map units taken as rows
// as they stand (a field-coded stream shows half its frame height).
void FillFromSps(const SpsRecord& sps, BITMAPINFOHEADER* header) {
  const uint32_t width = 16u * (sps.pic_width_in_mbs_minus1 + 1u);
  const uint32_t height = 16u * (sps.pic_height_in_map_units_minus1 + 1u);
  header->biSize = sizeof(BITMAPINFOHEADER);
  header->biWidth = Wrapped(width);
  header->biHeight = Wrapped(height);
  header->biPlanes = 1;
  header->biBitCount = 24;
  header->biSizeImage = static_cast<uint32_t>(Wrapped(width * height * 3u * 8u) / 8);
}

// Reads the unit at the start of `data` and gives the size of sequence
// parameter set 0. Raises H264PARSER::cException when the unit defines no such
// set.
void ReadSizeFromUnit(const uint8_t* data, int32_t size, BITMAPINFOHEADER* header) {
  cParser parser(kParserBufferBytes, true);
  parser.Reset();
  if (size > 0) parser.Append(data, size);  // the parser keeps its first 1000 bytes
  parser.Process();
  FillFromSps(parser.Context().ActivateSPS(0), header);
}

// The offset of the next start code (00 00 01) at or after `from` whose unit is
// a sequence parameter set, or -1.
int32_t NextSpsUnit(const uint8_t* data, int32_t size, int32_t from) {
  constexpr uint8_t kSpsUnitType = 7;
  for (int32_t i = from; i + 3 < size; ++i) {
    if (data[i + 2] > 1) {
      i += 2;  // no start code can end before i + 3
    } else if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1 &&
               (data[i + 3] & 0x1F) == kSpsUnitType) {
      return i;
    }
  }
  return -1;
}

// Each sequence parameter set unit of the packet in turn, until one defines
// set 0. Whatever stands before it (delimiter, SEI of any length, picture
// parameters) is passed over. Raises as ReadSizeFromUnit when none does.
void ReadSizeFromAnyUnit(const uint8_t* data, int32_t size, BITMAPINFOHEADER* header) {
  if (!data) size = 0;
  for (int32_t at = NextSpsUnit(data, size, 0); at >= 0; at = NextSpsUnit(data, size, at + 3)) {
    try {
      ReadSizeFromUnit(data + at, size - at, header);
      return;
    } catch (H264PARSER::cException* e) {
      delete e;
    }
  }
  H264PARSER::Raise("no sequence parameter set 0 in the packet");
}

}  // namespace

bool RunFirstFramesStep(CodecSession& session, const uint8_t* data, int32_t size,
                        BITMAPINFOHEADER* header) {
  std::memset(header, 0, sizeof(*header));
  if (session.codecId.load(std::memory_order_relaxed) == CodecHevc) {
    // No parser for H.265: its session settles on the first packet and the
    // header stays zero until a picture comes.
    session.needsInit = false;
    return true;
  }
  // The parser is best effort: a packet it can't read leaves the session
  // unsettled, and the next packet gets a new decoder and a new attempt.
  try {
    if (session.options & CORVANE_OPTION_PARAMETERS_ANYWHERE)
      ReadSizeFromAnyUnit(data, size, header);
    else
      ReadSizeFromUnit(data, size, header);
  } catch (H264PARSER::cException* e) {
    delete e;
    std::memset(header, 0, sizeof(*header));
    return false;
  } catch (const std::bad_alloc&) {
    std::memset(header, 0, sizeof(*header));
    return false;
  }
  session.needsInit = false;
  return true;
}

}  // namespace corvane::decoder
