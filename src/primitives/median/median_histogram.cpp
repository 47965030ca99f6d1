// The 8-bit median of any odd mask, one build per code path: exact ranks
// from counts, so the bytes are those of a sort in every path.
//
// The fast road keeps a histogram of every pixel column of a tile (counts of
// its b values), and slides a two-level histogram of the mask along the row:
// 16 coarse bins of value >> 4 updated by whole columns at each step, and the
// 16 fine bins under one coarse bin brought up to date only when the median
// falls in it. An output then costs two column additions, two prefix sums and
// two counts, whatever the mask. The walker that rebuilds a 256-bin histogram
// for every row serves the masks too large for the tile's counters.
#include <immintrin.h>

#include <cstring>

#include "primitives/median/median_kernel.h"

namespace corvane::CORVANE_VARIANT {
namespace {

#define CORVANE_BINS_INLINE inline __attribute__((always_inline))

// Sixteen 16-bit counters.
#if CORVANE_VARIANT_INDEX >= 4
using Bins = __m256i;
CORVANE_BINS_INLINE Bins ZeroBins() { return _mm256_setzero_si256(); }
CORVANE_BINS_INLINE Bins Widen(const uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_load_si128(reinterpret_cast<const __m128i*>(p)));
}
CORVANE_BINS_INLINE Bins LoadBins(const uint16_t* p) {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
}
CORVANE_BINS_INLINE void StoreBins(uint16_t* p, Bins v) {
  _mm256_store_si256(reinterpret_cast<__m256i*>(p), v);
}
CORVANE_BINS_INLINE Bins Add(Bins a, Bins b) { return _mm256_add_epi16(a, b); }
CORVANE_BINS_INLINE Bins Sub(Bins a, Bins b) { return _mm256_sub_epi16(a, b); }
CORVANE_BINS_INLINE Bins Splat(int32_t v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
// Bins whose cumulative count is below the rank: a prefix of the 16, as the
// counts only grow; two mask bits a bin.
CORVANE_BINS_INLINE uint32_t Below(Bins sums, Bins rankLess1) {
  const Bins over = _mm256_subs_epu16(sums, rankLess1);
  return static_cast<uint32_t>(
      _mm256_movemask_epi8(_mm256_cmpeq_epi16(over, _mm256_setzero_si256())));
}
#else
struct Bins {
  __m128i lo, hi;
};
CORVANE_BINS_INLINE Bins ZeroBins() { return {_mm_setzero_si128(), _mm_setzero_si128()}; }
CORVANE_BINS_INLINE Bins Widen(const uint8_t* p) {
  const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
  return {_mm_unpacklo_epi8(v, _mm_setzero_si128()), _mm_unpackhi_epi8(v, _mm_setzero_si128())};
}
CORVANE_BINS_INLINE Bins LoadBins(const uint16_t* p) {
  return {_mm_load_si128(reinterpret_cast<const __m128i*>(p)),
          _mm_load_si128(reinterpret_cast<const __m128i*>(p + 8))};
}
CORVANE_BINS_INLINE void StoreBins(uint16_t* p, Bins v) {
  _mm_store_si128(reinterpret_cast<__m128i*>(p), v.lo);
  _mm_store_si128(reinterpret_cast<__m128i*>(p + 8), v.hi);
}
CORVANE_BINS_INLINE Bins Add(Bins a, Bins b) {
  return {_mm_add_epi16(a.lo, b.lo), _mm_add_epi16(a.hi, b.hi)};
}
CORVANE_BINS_INLINE Bins Sub(Bins a, Bins b) {
  return {_mm_sub_epi16(a.lo, b.lo), _mm_sub_epi16(a.hi, b.hi)};
}
CORVANE_BINS_INLINE Bins Splat(int32_t v) {
  const __m128i s = _mm_set1_epi16(static_cast<int16_t>(v));
  return {s, s};
}
CORVANE_BINS_INLINE uint32_t Below(Bins sums, Bins rankLess1) {
  const __m128i zero = _mm_setzero_si128();
  const int lo = _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_subs_epu16(sums.lo, rankLess1.lo), zero));
  const int hi = _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_subs_epu16(sums.hi, rankLess1.hi), zero));
  return static_cast<uint32_t>(lo) | static_cast<uint32_t>(hi) << 16;
}
#endif

// The number of bins of a Below mask (never all 16: the last sum is the
// whole mask, which reaches every rank).
CORVANE_BINS_INLINE int32_t BinsBelow(uint32_t mask) { return __builtin_ctz(~mask) >> 1; }

// One column's counts, cumulative so that a search needs no running sums:
// 16 coarse counts (values whose high nibble is at most i), then for each
// high nibble h 16 fine counts (values of nibble h whose low nibble is at
// most i).
constexpr int32_t kColumnBytes = 16 + 256;
// Columns of a tile: the tile's outputs and the a - 1 columns its masks
// reach beyond them. 51 KiB of counts on the stack.
constexpr int32_t kTileColumns = 192;
// Fewer outputs a tile than this, and the walker does better.
constexpr int32_t kMinTileOutputs = 8;

// Row i: 1 in the bytes from i on, which a value of nibble i adds to the
// cumulative counts of its 16.
struct Steps {
  alignas(16) uint8_t row[17][16];
  constexpr Steps() : row() {
    for (int32_t i = 0; i < 17; ++i) {
      for (int32_t j = 0; j < 16; ++j) row[i][j] = j >= i ? 1 : 0;
    }
  }
};
constexpr Steps kSteps;

CORVANE_BINS_INLINE void AddSteps(uint8_t* counts, int32_t from) {
  const __m128i c = _mm_load_si128(reinterpret_cast<const __m128i*>(counts));
  const __m128i s = _mm_load_si128(reinterpret_cast<const __m128i*>(kSteps.row[from]));
  _mm_store_si128(reinterpret_cast<__m128i*>(counts), _mm_add_epi8(c, s));
}
CORVANE_BINS_INLINE void SubSteps(uint8_t* counts, int32_t from) {
  const __m128i c = _mm_load_si128(reinterpret_cast<const __m128i*>(counts));
  const __m128i s = _mm_load_si128(reinterpret_cast<const __m128i*>(kSteps.row[from]));
  _mm_store_si128(reinterpret_cast<__m128i*>(counts), _mm_sub_epi8(c, s));
}

struct Geometry {
  const uint8_t* src;  // the mask's top-left for the first output
  int32_t srcStep;
  uint8_t* dst;
  int32_t dstStep;
  int32_t width, height, a, b, px;
};

// One channel of the outputs [x0, x0 + tw) of every row.
class TileChannel {
 public:
  TileChannel(const Geometry& g, int32_t x0, int32_t tw, int32_t c, uint8_t* columns)
      : g_(g),
        tw_(tw),
        nc_(tw + g.a - 1),
        rank_((g.a * g.b >> 1) + 1),
        in_(g.src + intptr_t{x0} * g.px + c),
        out_(g.dst + intptr_t{x0} * g.px + c),
        columns_(columns) {}

  void Run() {
    std::memset(columns_, 0, size_t(nc_) * kColumnBytes);
    for (int32_t i = 0; i < g_.b; ++i) {
      const uint8_t* row = Row(i);
      for (int32_t j = 0; j < nc_; ++j) {
        const uint8_t v = row[intptr_t{j} * g_.px];
        AddSteps(Coarse(j), v >> 4), AddSteps(Fine(j, v >> 4), v & 15);
      }
    }
    for (int32_t y = 0; y < g_.height; ++y) {
      if (y > 0) SlideColumns(Row(y - 1), Row(y + g_.b - 1));
      FilterRow(out_ + intptr_t{y} * g_.dstStep);
    }
  }

 private:
  const uint8_t* Row(int32_t i) const { return in_ + intptr_t{i} * g_.srcStep; }
  uint8_t* Coarse(int32_t j) const { return columns_ + j * kColumnBytes; }
  uint8_t* Fine(int32_t j, int32_t k) const { return columns_ + j * kColumnBytes + 16 + k * 16; }

  // The mask moves down a row: each column loses its top value, gains one.
  void SlideColumns(const uint8_t* leaving, const uint8_t* entering) {
    for (int32_t j = 0; j < nc_; ++j) {
      const uint8_t o = leaving[intptr_t{j} * g_.px], n = entering[intptr_t{j} * g_.px];
      SubSteps(Coarse(j), o >> 4), SubSteps(Fine(j, o >> 4), o & 15);
      AddSteps(Coarse(j), n >> 4), AddSteps(Fine(j, n >> 4), n & 15);
    }
  }

  void FilterRow(uint8_t* out) {
    const int32_t a = g_.a;
    const Bins rankLess1 = Splat(rank_ - 1);
    alignas(32) uint16_t fine[16][16];
    // Coarse counts at 16 to 31, behind a zero: sums[15 + k] counts the
    // values below coarse bin k.
    alignas(32) uint16_t sums[32] = {0};
    // The output at which each coarse bin's fine counts were last made; far
    // enough back at the row's start that each is made anew.
    int32_t stamp[16];
    for (int32_t& s : stamp) s = -2 * a - 2;
    Bins coarse = ZeroBins();
    for (int32_t j = 0; j < a; ++j) coarse = Add(coarse, Widen(Coarse(j)));
    for (int32_t x = 0; x < tw_; ++x) {
      if (x > 0) coarse = Sub(Add(coarse, Widen(Coarse(x + a - 1))), Widen(Coarse(x - 1)));
      const int32_t k = BinsBelow(Below(coarse, rankLess1));
      StoreBins(sums + 16, coarse);
      const int32_t below = sums[15 + k];
      // Bring the fine counts of k up to this output: column by column from
      // where they were, or summed anew when that is the cheaper.
      Bins f;
      const int32_t behind = x - stamp[k];
      if (behind == 1) {
        f = Sub(Add(LoadBins(fine[k]), Widen(Fine(x + a - 1, k))), Widen(Fine(x - 1, k)));
      } else if (2 * behind <= a) {
        f = LoadBins(fine[k]);
        for (int32_t j = stamp[k] + 1; j <= x; ++j) {
          f = Sub(Add(f, Widen(Fine(j + a - 1, k))), Widen(Fine(j - 1, k)));
        }
      } else {
        f = ZeroBins();
        for (int32_t j = x; j < x + a; ++j) f = Add(f, Widen(Fine(j, k)));
      }
      StoreBins(fine[k], f);
      stamp[k] = x;
      const int32_t fk = BinsBelow(Below(f, Splat(rank_ - 1 - below)));
      out[intptr_t{x} * g_.px] = static_cast<uint8_t>(k * 16 + fk);
    }
  }

  const Geometry& g_;
  const int32_t tw_, nc_, rank_;
  const uint8_t* const in_;
  uint8_t* const out_;
  uint8_t* const columns_;
};

// The walker of the design: a 256-bin histogram built for each row and
// channel, slid along the row, the median found by walking from the last.
void WalkRows(const Geometry& g, int32_t channels) {
  const int64_t area = int64_t{g.a} * g.b;
  const uint32_t rank = static_cast<uint32_t>(area / 2 + 1);
  uint32_t h[256] = {0};
  for (int32_t c = 0; c < channels; ++c) {
    for (int32_t y = 0; y < g.height; ++y) {
      const uint8_t* top = g.src + intptr_t{y} * g.srcStep + c;
      uint8_t* out = g.dst + intptr_t{y} * g.dstStep + c;
      auto at = [&](int32_t row, int32_t col) {
        return top[intptr_t{row} * g.srcStep + intptr_t{col} * g.px];
      };
      for (int32_t i = 0; i < g.b; ++i) {
        for (int32_t j = 0; j < g.a; ++j) ++h[at(i, j)];
      }
      int32_t m = 0;
      uint32_t cum = h[0];
      while (cum < rank) cum += h[++m];
      for (int32_t x = 0; x + 1 < g.width; ++x) {
        out[intptr_t{x} * g.px] = static_cast<uint8_t>(m);
        for (int32_t i = 0; i < g.b; ++i) {
          const uint8_t o = at(i, x), n = at(i, x + g.a);
          --h[o], ++h[n];
          cum = cum - (o <= m) + (n <= m);
        }
        if (cum < rank) {
          while (cum < rank) cum += h[++m];
        } else {
          while (cum >= rank) cum -= h[m--];
          cum += h[++m];
        }
      }
      out[intptr_t{g.width - 1} * g.px] = static_cast<uint8_t>(m);
      const int32_t last = g.width - 1;
      for (int32_t i = 0; i < g.b; ++i) {
        for (int32_t j = 0; j < g.a; ++j) h[at(i, last + j)] = 0;
      }
    }
  }
}

}  // namespace

void ownMedianHistogram_8u(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                           ImageSize roi, ImageSize mask, int32_t channels, int32_t keepLast) {
  const Geometry g{src,        srcStep,    dst,         dstStep, roi.width,
                   roi.height, mask.width, mask.height, channels};
  const int32_t filtered = channels - keepLast;
  const int32_t tile = kTileColumns - (g.a - 1);
  // Column counts are bytes, the mask's 16-bit.
  if (g.b > 255 || tile < kMinTileOutputs) return WalkRows(g, filtered);
  alignas(64) uint8_t columns[kTileColumns * kColumnBytes];
  for (int32_t x0 = 0; x0 < g.width; x0 += tile) {
    const int32_t tw = g.width - x0 < tile ? g.width - x0 : tile;
    for (int32_t c = 0; c < filtered; ++c) TileChannel(g, x0, tw, c, columns).Run();
  }
}

}  // namespace corvane::CORVANE_VARIANT
