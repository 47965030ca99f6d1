// The median of every code path against a sort: the small-mask kernels of
// all nine pixel forms on memory that holds every neighbour and no more, the
// filter of every form over every mask and border road, the parallel drivers
// at several thread counts, corvane_median, and the refusals.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "conformance.h"
#include "corvane_image.h"
#include "primitives/core/cpu_dispatch.h"
#include "primitives/median/median.h"
#include "primitives/median/median_kernel.h"
#include "support/guarded.h"

namespace corvane::test {
namespace {

using primitives::ownFilterMedianBorder_8u_C3R;
using primitives::ownFilterMedianBorderGetBufferSize;

constexpr uint8_t kValue[3] = {10, 200, 77};
// Channel values either side of the top bit of 16-bit elements.
const std::array<uint8_t, 8> kPixel8{10, 200, 77, 99}, kPixel16{10, 0, 0x40, 0x9C, 0, 0x80, 1};
const uint8_t* ConstantPixel(const PixelForm& form) {
  return (form.elementBytes == 1 ? kPixel8 : kPixel16).data();
}
// By group (MedianGroup).
const PixelForm kForms[] = {{1, 3},       {1, 4, false, true}, {1, 4},
                            {2, 3},       {2, 4, false, true}, {2, 4},
                            {2, 3, true}, {2, 4, true, true},  {2, 4, true}};
const char* const kNames[] = {"8u_C3",  "8u_C4_keep", "8u_C4",       "16u_C3", "16u_C4_keep",
                              "16u_C4", "16s_C3",     "16s_C4_keep", "16s_C4"};
// The hot 3x3 first: --bench times the first argument of a row.
constexpr ImageSize kMasks[] = {{3, 3}, {5, 5}, {1, 3}, {1, 5}, {3, 1}, {5, 1}, {1, 1}};
// Mixed, thin and square masks, then those beyond the 8-bit kernel's tiles.
const std::vector<ImageSize> kGeneral = {{3, 5}, {5, 3},  {1, 7},   {7, 1},
                                         {7, 7}, {9, 11}, {21, 21}, {15, 3}};
const std::vector<ImageSize> kBeyondTiles = {{1, 257}, {189, 1}};

std::string Label(ImageSize m, uint32_t border) {
  char label[40];
  std::snprintf(label, sizeof label, "%dx%d border 0x%02X", m.width, m.height, border);
  return label;
}

// Each element the middle of its mask's values, sorted.
void SortedMedian(const Frame& f, const PixelForm& form) {
  const int32_t xr = f.arg.mask.width / 2, yr = f.arg.mask.height / 2;
  std::vector<int32_t> v;
  for (int32_t y = 0; y < f.roi.height; ++y) {
    for (int32_t x = 0; x < f.roi.width; ++x) {
      for (int32_t c = 0; c < form.channels - form.keepFourth; ++c) {
        v.clear();
        for (int32_t dy = -yr; dy <= yr; ++dy) {
          for (int32_t dx = -xr; dx <= xr; ++dx)
            v.push_back(Neighbour(f, form, ConstantPixel(form), x + dx, y + dy, c));
        }
        std::sort(v.begin(), v.end());
        std::memcpy(f.dst + intptr_t{y} * f.dstStep + x * form.Bytes() + c * form.elementBytes,
                    &v[v.size() / 2], form.elementBytes);
      }
    }
  }
}

bool AddMedianRow(std::string name, const PixelForm& form, std::vector<Arg> args,
                  std::function<void(const Frame&)> run, std::vector<ImageSize> sizes = {},
                  uint32_t variants = 0x3F) {
  Row row{std::move(name),
          form,
          std::move(args),
          std::move(run),
          [form](const Frame& f) { SortedMedian(f, form); },
          variants};
  row.negativeSteps = true, row.sizes = std::move(sizes), row.maxWidth = variants == 1 ? 70 : 140;
  return AddRow(row);
}

// Every neighbour in memory; four forms also over rows either side of a
// kilobyte chunk and heights either side of a band.
const bool kKernels = [] {
  std::vector<Arg> args;
  for (int32_t slot = 0; slot < 6; ++slot) {
    const ImageSize m = kMasks[slot];
    args.push_back({Label(m, 0xF0), {m.width / 2, m.height / 2}, m, BorderMemoryAll, slot});
  }
  static const decltype(&m7::ownMedianKernelTable) kTables[] =
      CORVANE_EACH_PATH(ownMedianKernelTable);
  bool added = true;
  for (int32_t group = 0; group < kMedianGroupCount; ++group) {
    auto run = [group](const Frame& f) {
      const MedianKernels& k = kTables[f.variant]().group[group];
      const MedianKernel kernel = f.arg.kind < 2 ? k.square : f.arg.kind < 4 ? k.column : k.row;
      kernel(f.src, f.srcStep, f.dst, f.dstStep, f.roi, f.arg.mask, nullptr);
    };
    std::vector<ImageSize> sizes;
    if (0x63 >> group & 1)
      sizes = {{341, 2}, {342, 3}, {683, 2}, {12, 31}, {13, 33}, {2, 37}, {10, 66}};
    added &= AddMedianRow(std::string("median_kernel_") + kNames[group], kForms[group], args, run,
                          sizes);
  }
  return added;
}();

// Mask i % M with border i % 33 for `count` arguments: real pixels lie beyond
// the region on a flagged side only.
std::vector<Arg> FilterArgs(const std::vector<ImageSize>& masks, size_t count) {
  std::vector<uint32_t> borders;
  for (uint32_t flags = 0; flags <= 0xF0; flags += 0x10)
    borders.insert(borders.end(), {flags | BorderReplicate, flags | BorderConstant});
  borders.push_back(BorderMemoryAll);
  std::vector<Arg> args;
  for (size_t i = 0; i < count; ++i) {
    const ImageSize m = masks[i % masks.size()];
    const uint32_t b = borders[i % borders.size()];
    args.push_back({Label(m, b), {b & 0xC0 ? m.width / 2 : 0, b & 0x30 ? m.height / 2 : 0}, m, b});
  }
  return args;
}

// Scratch of the size the filter asks for, full of noise.
void Filter(const Frame& f, int32_t group) {
  constexpr PixelType kTypes[] = {PixelType8u, PixelType16u, PixelType16s};
  int32_t size = 0;
  ASSERT_EQ(ownFilterMedianBorderGetBufferSize(f.roi, f.arg.mask, kTypes[group / 3],
                                               kForms[group].channels, &size),
            0);
  PageBuffer scratch(size);
  std::mt19937 noise(static_cast<uint32_t>(f.seed));
  FillPattern(scratch.data(), scratch.size(), Pattern::Random, noise);
  EXPECT_EQ(group == MedianGroup8uC3
                ? ownFilterMedianBorder_8u_C3R(f.src, f.srcStep, f.dst, f.dstStep, f.roi,
                                               f.arg.mask, f.arg.border, kValue, scratch.data())
                : primitives::ownFilterMedianBorder(group, f.src, f.srcStep, f.dst, f.dstStep,
                                                    f.roi, f.arg.mask, f.arg.border,
                                                    ConstantPixel(kForms[group]), scratch.data()),
            StatusOk);
}

// Every small mask with every border on the designed entry, and the general
// masks against each border twice; on the other forms every mask.
const bool kFilters = [] {
  const std::vector<ImageSize> small(std::begin(kMasks), std::end(kMasks));
  std::vector<ImageSize> general = kGeneral, every = small;
  general.insert(general.end(), kBeyondTiles.begin(), kBeyondTiles.end());
  every.insert(every.end(), kGeneral.begin(), kGeneral.end());
  std::vector<ImageSize> every8 = every;
  every8.insert(every8.end(), kBeyondTiles.begin(), kBeyondTiles.end());
  bool added = true;
  for (int32_t group = 0; group < kMedianGroupCount; ++group) {
    std::vector<Arg> args = FilterArgs(group == 0 ? general : group < 3 ? every8 : every, 66);
    if (group == 0) {
      const std::vector<Arg> all = FilterArgs(small, 7 * 33);
      args.insert(args.begin(), all.begin(), all.end());
    }
    added &= AddMedianRow(std::string("median_filter_") + kNames[group], kForms[group], args,
                          [group](const Frame& f) { Filter(f, group); });
  }
  return added;
}();

// The four-channel 8-bit drivers with the thread count (kind) set for the
// call, 0 for a runtime that won't fork; regions either side of 4096 pixels
// and heights below the count.
void Driven(const Frame& f, bool keep) {
  static const decltype(&m7::ownippiFilterMedian_8u_C4R) kDrivers[2][6] = {
      CORVANE_EACH_PATH(ownippiFilterMedian_8u_BC4R),
      CORVANE_EACH_PATH(ownippiFilterMedian_8u_C4R)};
  const int32_t threads = primitives::ownGetNumThreads(), levels = omp_get_max_active_levels();
  primitives::ownSetNumThreads(f.arg.kind == 0 ? 2 : f.arg.kind);
  if (f.arg.kind == 0) omp_set_max_active_levels(0);
  kDrivers[keep][f.variant](f.src, f.srcStep, f.dst, f.dstStep, f.roi, MedianMaskCode(f.arg.mask));
  omp_set_max_active_levels(levels);
  primitives::ownSetNumThreads(threads);
}

const bool kParallel = [] {
  std::vector<Arg> args;
  for (const int32_t threads : {2, 1, 3, 8, 0})
    args.push_back({"5x5 threads " + std::to_string(threads), {2, 2}, {5, 5}, 0xF0, threads});
  args.push_back({"3x3 threads 8", {1, 1}, {3, 3}, 0xF0, 8});
  return AddMedianRow("median_parallel_8u_C4_keep", kForms[MedianGroup8uC4Keep], args,
                      [](const Frame& f) { Driven(f, true); },
                      {{64, 64}, {63, 65}, {100, 7}, {9, 2}}) &&
         AddMedianRow("median_parallel_8u_C4", kForms[MedianGroup8uC4], args,
                      [](const Frame& f) { Driven(f, false); },
                      {{64, 64}, {63, 65}, {100, 7}, {9, 2}});
}();

// corvane_median runs the code path it detects, so once; every format.
const bool kClient = [] {
  std::vector<Arg> args;
  for (const ImageSize m : {ImageSize{3, 3}, {5, 5}, {7, 7}, {1, 1}, {3, 5}, {21, 21}}) {
    for (const uint32_t border : {CORVANE_BORDER_REPLICATE, CORVANE_BORDER_CONSTANT})
      args.push_back({Label(m, border), {0, 0}, m, border});
  }
  bool added = true;
  for (int32_t format = CORVANE_8U_C3; format <= CORVANE_16S_C4K; ++format) {
    // Formats list the kept fourth after the plain one, groups before it.
    const int32_t group = format - 1 + (format % 3 == 2) - (format % 3 == 0);
    auto run = [format, group](const Frame& f) {
      const corvane_image src{const_cast<uint8_t*>(f.src), f.srcStep, f.roi.width, f.roi.height,
                              format};
      const corvane_image dst{f.dst, f.dstStep, f.roi.width, f.roi.height, format};
      EXPECT_EQ(corvane_median(&src, &dst, f.arg.mask.width, f.arg.mask.height,
                               int32_t(f.arg.border), ConstantPixel(kForms[group])),
                CORVANE_STATUS_OK);
    };
    added &=
        AddMedianRow("median_client_" + std::to_string(format), kForms[group], args, run, {}, 1);
  }
  return added;
}();

// Arguments of a call, the sizes flat: a region w x h, a mask a x b.
struct FilterCall {
  const uint8_t* src;
  uint8_t* dst;
  int32_t srcStep, dstStep, w, h, a, b;
  uint32_t border;
  const uint8_t* value;
  uint8_t* buffer;
  int32_t group = MedianGroup8uC3;
};
using F = FilterCall&;
FilterCall GoodFilter(const Outputs& o) {
  return {o.src, o.dst, o.srcStep, o.dstStep, 4, 4, 3, 3, BorderReplicate, kValue, o.scratch};
}
PrimitiveStatus Filtering(const FilterCall& c) {
  return ownFilterMedianBorder_8u_C3R(c.src, c.srcStep, c.dst, c.dstStep, {c.w, c.h}, {c.a, c.b},
                                      c.border, c.value, c.buffer);
}

struct ClientCall {
  corvane_image src, dst;
  int32_t a, b, border;
  const void* value;
  bool nullSrc;
};
using C = ClientCall&;
ClientCall GoodClient(const Outputs& o) {
  const corvane_image src{const_cast<uint8_t*>(o.src), o.srcStep, 16, 16, CORVANE_8U_C3};
  return {src, {o.dst, o.dstStep, 16, 16, CORVANE_8U_C3}, 3, 3, 1, kValue, false};
}
PrimitiveStatus Client(const ClientCall& c) {
  return corvane_median(c.nullSrc ? nullptr : &c.src, &c.dst, c.a, c.b, c.border, c.value);
}

struct SizeCall {
  int32_t w, h, a, b;
  PixelType type;
  int32_t channels;
  int32_t* size;
};
using S = SizeCall&;
SizeCall GoodSizing(const Outputs& o) { return {5, 5, 3, 3, PixelType8u, 3, o.size}; }
PrimitiveStatus Sizing(const SizeCall& c) {
  return ownFilterMedianBorderGetBufferSize({c.w, c.h}, {c.a, c.b}, c.type, c.channels, c.size);
}

// Each row breaks its own check and later ones: -8 null pointer, -6 size,
// -33 mask size, -225 border, -59 pixel type, -53 channels.
const bool kRefusals =
    AddRefusals<FilterCall>(
        "median_filter", GoodFilter, Filtering,
        {{"null src", -8, [](F c) { c.src = nullptr, c.w = 0, c.a = 2, c.border = 0x106; }},
         {"null dst", -8, [](F c) { c.dst = nullptr; }},
         {"null buffer, even for 1x1", -8, [](F c) { c.buffer = nullptr, c.a = c.b = 1; }},
         {"empty region", -6, [](F c) { c.w = 0, c.a = 2, c.border = 0x106; }},
         {"even mask", -33, [](F c) { c.b = 2, c.border = 0x106, c.value = nullptr; }},
         {"negative mask", -33, [](F c) { c.b = -1; }},
         {"border above 0xFF", -225, [](F c) { c.border = 0x106, c.value = nullptr; }},
         {"border above 0xFF, 1x1", -225, [](F c) { c.border = 0x101, c.a = c.b = 1; }},
         {"flags without a mode", -225, [](F c) { c.border = 0x10; }},
         {"unknown mode", -225, [](F c) { c.border = 0x32; }},
         {"0xF6 without a value", -8, [](F c) { c.border = 0xF6, c.value = nullptr; }},
         {"0xF1 without a value", 0, [](F c) { c.border = 0xF1, c.value = nullptr; }},
         {"0xF0 without a value", 0, [](F c) { c.border = 0xF0, c.value = nullptr; }},
         {"a general mask, 3x5", 0, [](F c) { c.w = c.h = 16, c.b = 5; }},
         {"a general mask larger than the region", 0, [](F c) { c.w = c.h = 16, c.a = 21; }}}) &&
    AddRefusals<FilterCall>(
        "median_filter_any_form", GoodFilter,
        [](const FilterCall& c) {
          return primitives::ownFilterMedianBorder(c.group, c.src, c.srcStep, c.dst, c.dstStep,
                                                   {c.w, c.h}, {c.a, c.b}, c.border, c.value,
                                                   c.buffer);
        },
        {{"null dst before the form", -8, [](F c) { c.dst = nullptr, c.group = 9; }},
         {"form 9", -59, [](F c) { c.group = 9, c.w = 0; }},
         {"form -1", -59, [](F c) { c.group = -1, c.border = 0x106; }},
         {"the kept fourth, 1x1", 0, [](F c) { c.group = 1, c.w = 12, c.a = c.b = 1; }},
         {"even mask", -33, [](F c) { c.a = 4; }}}) &&
    AddRefusals<ClientCall>(
        "corvane_median", GoodClient, Client,
        {{"null src image", -8, [](C c) { c.nullSrc = true, c.dst.format = 0; }},
         {"null dst data", -8, [](C c) { c.dst.data = nullptr, c.a = 2; }},
         {"unknown format", -59, [](C c) { c.src.format = 10, c.src.width = 0; }},
         {"formats differ", -59, [](C c) { c.src.format = CORVANE_8U_C4, c.dst.height = 1; }},
         {"sizes differ", -6, [](C c) { c.dst.height = 15, c.a = 2; }},
         {"empty image", -6, [](C c) { c.src.width = 0; }},
         {"step shorter than a row", -16, [](C c) { c.dst.step = 47, c.a = 2; }},
         {"even mask", -33, [](C c) { c.b = 4, c.border = 0; }},
         {"memory flags", -225, [](C c) { c.border = 0xF1, c.value = nullptr; }},
         {"constant without a value", -8, [](C c) { c.border = 6, c.value = nullptr; }},
         {"strips past 2 GiB", -9, [](C c) { c.a = c.b = 99999; }},
         {"1x1", 0, [](C c) { c.a = c.b = 1, c.border = 6; }}}) &&
    AddRefusals<SizeCall>(
        "median_sizing", GoodSizing, Sizing,
        {{"null size", -8, [](S c) { c.size = nullptr, c.w = 0, c.a = 2, c.type = 99; }},
         {"empty region", -6, [](S c) { c.w = 0, c.a = 2, c.channels = 2; }},
         {"even mask", -33, [](S c) { c.b = 2, c.type = 99, c.channels = 2; }},
         {"one channel, unknown type", -59, [](S c) { c.type = 2, c.channels = 1; }},
         {"two channels", -53, [](S c) { c.type = 99, c.channels = 2; }},
         {"three channels of float", -59, [](S c) { c.type = PixelType32f; }}});

}  // namespace
}  // namespace corvane::test
