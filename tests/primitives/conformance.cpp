#include "conformance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <set>
#include <sstream>

#include "support/code_path.h"
#include "support/guarded.h"

namespace corvane::test {
namespace {

struct RefusalTable {
  std::string entry;
  std::vector<Refusal> rows;
  bool keepsScratch;
};
// Filled by the test units' static initialisers, hence built on first use.
std::vector<Row>& Rows() {
  static std::vector<Row> rows;
  return rows;
}
std::vector<RefusalTable>& RefusalTables() {
  static std::vector<RefusalTable> tables;
  return tables;
}

// Widths one either side of every vector width (16, 32, 64 bytes, and two
// vectors of the widest) in pixels and in bytes, 1 to 9, and the longest.
std::vector<int32_t> SweepWidths(int32_t maxWidth, int32_t px) {
  std::set<int32_t> w{maxWidth - 1, maxWidth, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  for (int32_t v : {16, 32, 64, 128}) {
    for (int32_t d = -1; d <= 1; ++d)
      w.insert({v + d, std::max(1, v / px + d), (v + px - 1) / px + d});
  }
  return {w.begin(), std::upper_bound(w.begin(), w.end(), maxWidth)};
}

std::ostream& operator<<(std::ostream& out, const ImageLayout& l) {
  return out << l.rowBytes << " bytes x " << l.rows << " rows, pad " << l.stepPad
             << (l.bottomUp ? ", bottom-up" : "") << ", offset " << l.misalign;
}

// A step pad of 0, up to 70 bytes, or up to the next multiple of 64;
// bottom-up where `negative` allows; an offset from 64 bytes of 0, 32 or any.
ImageLayout RandomLayout(std::mt19937& rng, int32_t rowBytes, int32_t rows, bool negative) {
  const int32_t pads[] = {0, RandomInt(rng, 1, 70), (64 - rowBytes % 64) % 64};
  const int32_t offsets[] = {0, 32, RandomInt(rng, 1, 63)};
  return {rowBytes, rows, pads[RandomInt(rng, 0, 2)], negative && RandomInt(rng, 0, 3) == 0,
          offsets[RandomInt(rng, 0, 2)]};
}

constexpr int32_t kHeights[] = {1, 2, 3, 5, 8, 17};

// A framed source that ends (or starts) at a protected page, a guarded
// destination of random content, the entry against the reference element by
// element within the row's tolerance.
void RunCase(const Row& row, const Arg& arg, ImageSize roi, Pattern pattern, bool atStart,
             bool packed, int32_t variant, std::mt19937& rng) {
  const int32_t px = row.form.Bytes(), e = row.form.elementBytes;
  const uint64_t seed = rng();
  const ImageSize region = row.source ? row.source(roi, arg, seed) : roi, reach = arg.reach;
  ImageLayout sl = RandomLayout(rng, (region.width + 2 * reach.width) * px,
                                region.height + 2 * reach.height, row.negativeSteps);
  ImageLayout dl = RandomLayout(rng, roi.width * px, roi.height, row.negativeSteps);
  if (packed) sl.stepPad = dl.stepPad = 0, sl.bottomUp = dl.bottomUp = false;
  const std::size_t pitch = std::size_t(sl.rowBytes) + sl.stepPad;
  PageBuffer srcMem((sl.rows - 1) * pitch + sl.rowBytes,
                    atStart ? PageBuffer::Edge::Start : PageBuffer::Edge::End);
  FillPattern(srcMem.data(), srcMem.size(), pattern, rng, e);
  const std::vector<uint8_t> before(srcMem.data(), srcMem.data() + srcMem.size());
  const int32_t srcStep = int32_t(sl.bottomUp ? -pitch : pitch);
  const uint8_t* src = srcMem.data() + (sl.bottomUp ? (sl.rows - 1) * pitch : 0) +
                       intptr_t{reach.height} * srcStep + reach.width * px;
  GuardedImage dst(dl);
  std::vector<uint8_t> want(std::size_t(dl.rowBytes) * dl.rows);
  FillPattern(want.data(), want.size(), Pattern::Random, rng);
  for (int32_t y = 0; y < dl.rows; ++y)
    std::memcpy(dst.row(y), &want[y * dl.rowBytes], dl.rowBytes);

  row.run({src, srcStep, region, dst.data(), dst.step(), roi, arg, variant, seed});
  row.reference({src, srcStep, region, want.data(), dl.rowBytes, roi, arg, variant, seed});
  std::ostringstream what;
  what << row.name << " on " << CodePathName(variant) << ", " << arg.label << ", region "
       << roi.width << "x" << roi.height << " from " << region.width << "x" << region.height << ", "
       << PatternName(pattern) << ", source " << sl << ", destination " << dl << ": ";
  for (int32_t i = 0; i < dl.rowBytes * roi.height; i += e) {
    const int32_t y = i / dl.rowBytes, x = i % dl.rowBytes;
    int32_t a = 0, b = 0;
    std::memcpy(&a, &want[i], e), std::memcpy(&b, dst.row(y) + x, e);
    if (row.form.isSigned && e == 2) a = int16_t(a), b = int16_t(b);
    if (std::abs(a - b) > row.tolerance) {
      ADD_FAILURE() << what.str() << "row " << y << " byte " << x << ": " << b << " instead of "
                    << a;
      break;
    }
  }
  EXPECT_TRUE(dst.CheckGuards()) << what.str();
  EXPECT_TRUE(std::equal(before.begin(), before.end(), srcMem.data()))
      << what.str() << "source written";
}

// Row (or table) r on code path v as the parameter r · 6 + v.
std::string ParamName(std::string name, int32_t param) {
  name += std::string("_") + CodePathName(param % 6);
  for (char& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return name;
}

std::vector<int32_t> RowsOnTheirPaths() {
  std::vector<int32_t> out;
  for (int32_t i = 0; i < 6 * int32_t(Rows().size()); ++i) {
    if (Rows()[i / 6].variants >> i % 6 & 1) out.push_back(i);
  }
  return out;
}

class Conformance : public CodePathTest {};

TEST_P(Conformance, MatchesReference) {
  const Row& row = Rows()[GetParam() / 6];
  const std::vector<int32_t> widths = SweepWidths(row.maxWidth, row.form.Bytes());
  const std::size_t A = row.args.size(), W = widths.size();
  for (std::size_t i = 0; i < 3 * std::max(A, W) && !HasFailure(); ++i) {
    RunCase(row, row.args[i % A],
            {widths[(i + i / A) % W], kHeights[(i / 3) % std::size(kHeights)]},
            kAllPatterns[(i / 2) % std::size(kAllPatterns)], i % 2, false, Variant(), Rng());
  }
  for (std::size_t i = 0; i < 2 * A * row.sizes.size() && !HasFailure(); ++i) {
    RunCase(row, row.args[i / 2 % A], row.sizes[i / 2 / A], Pattern::Random, false, i % 2 == 0,
            Variant(), Rng());
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, Conformance, ::testing::ValuesIn(RowsOnTheirPaths()),
                         [](const auto& info) {
                           return ParamName(Rows()[info.param / 6].name, info.param);
                         });

class Refusals : public CodePathTest {};

// Every refusal on every code path: its status, and nothing written.
TEST_P(Refusals, FirstFailingCheckWins) {
  const RefusalTable& t = RefusalTables()[GetParam() / 6];
  constexpr int32_t kPx = 3, kSide = 16, kStep = (kSide + 8) * kPx;
  std::vector<uint8_t> src(std::size_t(kStep) * (kSide + 8)), scratch(65536);
  FillPattern(src.data(), src.size(), Pattern::Random, Rng());
  GuardedImage dst({kSide * kPx, kSide, 0, false, 0});
  const std::vector<uint8_t> untouched(kSide * kPx, 0x5A);
  for (const Refusal& r : t.rows) {
    const std::string what = t.entry + ": " + r.what;
    for (int32_t y = 0; y < kSide; ++y) std::memset(dst.row(y), 0x5A, kSide * kPx);
    std::fill(scratch.begin(), scratch.end(), 0x3C);
    int32_t size = 12345;
    double values[8] = {7, 7, 7, 7, 7, 7, 7, 7};
    Outputs o{src.data() + 4 * kStep + 4 * kPx,
              kStep,
              dst.data(),
              dst.step(),
              scratch.data(),
              &size,
              values,
              Variant()};
    EXPECT_EQ(r.call(o), r.want) << what;
    EXPECT_TRUE(dst.CheckGuards()) << what;
    if (r.want == StatusOk) continue;
    EXPECT_TRUE(SameRows(untouched.data(), 0, dst.data(), dst.step(), kSide * kPx, kSide)) << what;
    EXPECT_TRUE(!t.keepsScratch || std::count(scratch.begin(), scratch.end(), 0x3C) == 65536)
        << what << " wrote the scratch";
    EXPECT_TRUE(size == 12345 && std::count(values, values + 8, 7.0) == 8) << what << " wrote out";
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, Refusals,
                         ::testing::Range<int32_t>(0, 6 * int32_t(RefusalTables().size())),
                         [](const auto& info) {
                           return ParamName(RefusalTables()[info.param / 6].entry, info.param);
                         });

// --bench[=NAME]: milliseconds a call on a 1920x1080 region of each row whose
// name holds NAME, with its first argument, of the reference and of every
// code path this processor runs, and the speed-up.
void Bench(const std::string& only) {
  auto msPerCall = [](const std::function<void()>& call) {
    using Clock = std::chrono::steady_clock;
    int64_t calls = 0;
    const auto start = Clock::now();
    while (Clock::now() - start < std::chrono::milliseconds(300) || calls < 3) call(), ++calls;
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count() / double(calls);
  };
  std::printf("\n%-40s %9s", "1920x1080, ms a call", "reference");
  for (int32_t v = 0; v < 6; ++v) std::printf(" %14s", CodePathName(v));
  std::mt19937 rng(1);
  for (const Row& row : Rows()) {
    if (row.name.find(only) == std::string::npos) continue;
    const Arg& arg = row.args.front();
    const ImageSize roi{1920, 1080}, region = row.source ? row.source(roi, arg, 1) : roi;
    const int32_t px = row.form.Bytes(), step = (region.width + 2 * arg.reach.width) * px;
    std::vector<uint8_t> src(std::size_t(step) * (region.height + 2 * arg.reach.height));
    std::vector<uint8_t> dst(std::size_t(roi.width) * px * roi.height);
    FillPattern(src.data(), src.size(), Pattern::Random, rng, row.form.elementBytes);
    const uint8_t* at = src.data() + std::size_t(arg.reach.height) * step + arg.reach.width * px;
    auto frame = [&](int32_t v) {
      return Frame{at, step, region, dst.data(), roi.width * px, roi, arg, v, 1};
    };
    const double reference = msPerCall([&] { row.reference(frame(0)); });
    std::printf("\n%-40s %9.3f", (row.name + " " + arg.label).substr(0, 40).c_str(), reference);
    for (int32_t v = 0; v < 6; ++v) {
      if (!(row.variants >> v & 1) || !EnterCodePath(v).empty()) {
        std::printf(" %14s", "-");
        continue;
      }
      const double ms = msPerCall([&] { row.run(frame(v)); });
      LeaveCodePath();
      std::printf(" %7.3f %5.1fx", ms, reference / ms);
    }
  }
  std::printf("\n");
}

}  // namespace

int32_t Neighbour(const Frame& f, const PixelForm& form, const void* value, int32_t x, int32_t y,
                  int32_t c) {
  const uint32_t b = f.arg.border;
  const bool left = x < 0 && !(b & BorderMemoryLeft), right = x >= f.roi.width && !(b & 0x80);
  const bool top = y < 0 && !(b & BorderMemoryTop), bottom = y >= f.roi.height && !(b & 0x20);
  x = left ? 0 : right ? f.roi.width - 1 : x;
  y = top ? 0 : bottom ? f.roi.height - 1 : y;
  const bool made = (left || right || top || bottom) && (b & 0xF) == BorderConstant;
  const uint8_t* p = made ? static_cast<const uint8_t*>(value)
                          : f.src + intptr_t{y} * f.srcStep + x * form.Bytes();
  p += c * form.elementBytes;
  if (form.elementBytes == 1) return *p;
  uint16_t v;
  std::memcpy(&v, p, 2);
  return form.isSigned ? int16_t(v) : v;
}

bool AddRow(Row row) { return Rows().push_back(std::move(row)), true; }

bool AddRefusals(const std::string& entry, std::vector<Refusal> rows, bool keepsScratch) {
  return RefusalTables().push_back({entry, std::move(rows), keepsScratch}), true;
}

}  // namespace corvane::test

int main(int argc, char** argv) {
  const char* bench = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--bench", 7) != 0) continue;
    bench = argv[i][7] == '=' ? argv[i] + 8 : "";
    std::copy(argv + i + 1, argv + argc, argv + i), --argc, --i;
  }
  ::testing::InitGoogleTest(&argc, argv);
  const int failed = RUN_ALL_TESTS();
  if (bench && failed == 0) corvane::test::Bench(bench);
  return failed;
}
