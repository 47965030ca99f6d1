// One conformance driver for the primitives, in the manner of checkasm. A row
// is an entry on each code path, a plain reference written from the
// definition, and its argument space; the driver runs it on every path this
// processor runs (skipping the others with the reason) over widths one either
// side of every vector width, heights, padded and negative steps, alignments
// and value patterns, sources ending at a protected page, destinations in a
// sentinel ring; a failure names its case and the seed that replays it.
// --bench[=NAME] then times each path against the reference. Refusal rows are
// checked on every path for "the first failing check wins, nothing written".
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "primitives/core/conventions.h"
#include "support/rng.h"

// `{&corvane::m7::name, ..., &corvane::k0::name}`, by code path.
#define CORVANE_EACH_PATH(name)                                                             \
  {                                                                                         \
    &::corvane::m7::name, &::corvane::n8::name, &::corvane::y8::name, &::corvane::e9::name, \
        &::corvane::l9::name, &::corvane::k0::name                                          \
  }

namespace corvane::test {

struct PixelForm {
  int32_t elementBytes = 1;
  int32_t channels = 3;
  bool isSigned = false;
  bool keepFourth = false;  // dst's fourth channel comes out as it went in
  int32_t Bytes() const { return elementBytes * channels; }
};

// A point of a row's argument space (mask, border, kind mean what the row
// says); the source has `reach` real pixels and rows around it, no more.
struct Arg {
  std::string label;
  ImageSize reach{0, 0};
  ImageSize mask{0, 0};
  uint32_t border = 0;
  int32_t kind = 0;
};

// One call on code path `variant`, already forced; `seed` drives the row's
// own choices alike in run and reference.
struct Frame {
  const uint8_t* src;
  int32_t srcStep;
  ImageSize srcSize;
  uint8_t* dst;
  int32_t dstStep;
  ImageSize roi;
  const Arg& arg;
  int32_t variant;
  uint64_t seed;
};

struct Row {
  std::string name;
  PixelForm form;
  std::vector<Arg> args;
  std::function<void(const Frame&)> run;        // the entry
  std::function<void(const Frame&)> reference;  // writes the expected region
  uint32_t variants = 0x3F;                     // code paths with a build
  bool negativeSteps = false;
  int32_t tolerance = 0;  // largest element difference allowed (float paths)
  // The source region when it isn't the destination's.
  std::function<ImageSize(ImageSize roi, const Arg& arg, uint64_t seed)> source{};
  std::vector<ImageSize> sizes{};  // the row's own road edges, run with every arg
  int32_t maxWidth = 140;          // of the sweep, in pixels
};

// `const bool kAdded = AddRow(row);` in a test unit.
bool AddRow(Row row);

// Element c of pixel (x, y) from the region's first, as a filter sees it:
// memory on a side whose flag f.arg.border sets, else made: `value` (an
// element a channel) in constant mode, or the nearest pixel of the region.
int32_t Neighbour(const Frame& f, const PixelForm& form, const void* value, int32_t x, int32_t y,
                  int32_t c);

// What a refusal may write, all checked after the call: 16x16 regions of
// 3-byte pixels, src with 4 real pixels around, dst in a sentinel ring.
struct Outputs {
  const uint8_t* src;
  int32_t srcStep;
  uint8_t* dst;
  int32_t dstStep;
  uint8_t* scratch = nullptr;  // 64 KiB
  int32_t* size = nullptr;
  double* values = nullptr;  // 8
  int32_t variant = 0;
};

// A refusal: the good call (`Call` holds an entry's arguments) broken by
// `edit`, and the status it gives.
template <class Call>
struct Broken {
  const char* what;
  PrimitiveStatus want;
  void (*edit)(Call& call);
};

struct Refusal {
  std::string what;
  PrimitiveStatus want;
  std::function<PrimitiveStatus(const Outputs&)> call;
};
// `keepsScratch`: a refusal leaves the scratch as it was too.
bool AddRefusals(const std::string& entry, std::vector<Refusal> rows, bool keepsScratch);

template <class Call>
bool AddRefusals(const std::string& entry, Call (*good)(const Outputs&),
                 PrimitiveStatus (*run)(const Call&), std::vector<Broken<Call>> rows,
                 bool keepsScratch = true) {
  std::vector<Refusal> out;
  for (const Broken<Call>& r : rows) {
    out.push_back({r.what, r.want, [good, run, edit = r.edit](const Outputs& o) {
                     Call call = good(o);
                     return edit(call), run(call);
                   }});
  }
  return AddRefusals(entry, std::move(out), keepsScratch);
}

}  // namespace corvane::test
