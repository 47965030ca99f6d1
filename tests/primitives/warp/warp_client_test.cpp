// corvane_warp, corvane_warp_quad and corvane_resize through the shared
// object, on the processor's best code path: OpenCV as a second opinion for
// gross errors (its rounding differs, so a mean and a maximum bound, not
// equality), the closed forms of an identity and a whole-pixel shift, the
// smooth edge's weights along one slanted edge, the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "corvane_image.h"

namespace {

corvane_image Of(const cv::Mat& m) {
  return {m.data, int32_t(m.step), m.cols, m.rows, CORVANE_8U_C3};
}

// A smooth picture: every sampling agrees on it to within rounding.
cv::Mat Smooth(int w, int h) {
  cv::Mat m(h, w, CV_8UC3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 3; ++c)
        m.at<cv::Vec3b>(y, x)[c] =
            cv::saturate_cast<uint8_t>(128 + 90 * std::sin(x * 0.11 + c) * std::cos(y * 0.07 - c));
  return m;
}

// Mean and largest difference over the pixels `inside` (a 0/255 mask) keeps.
void ExpectClose(const cv::Mat& ours, const cv::Mat& peer, const cv::Mat& inside, int maxBound,
                 const char* what) {
  cv::Mat diff, mask;
  cv::absdiff(ours, peer, diff);
  cv::merge(std::vector<cv::Mat>(3, inside), mask);
  double largest = 0;
  cv::minMaxIdx(diff.reshape(1), nullptr, &largest, nullptr, nullptr, mask.reshape(1));
  const cv::Scalar sum = cv::sum(diff.mul(mask / 255));
  const double count = cv::countNonZero(inside);
  ASSERT_GT(count, 100) << what;
  EXPECT_LT((sum[0] + sum[1] + sum[2]) / count / 3, 1.0) << what;
  EXPECT_LE(largest, maxBound) << what;
}

TEST(WarpClient, AgreesWithOpenCV) {
  const cv::Mat src = Smooth(97, 61);
  const cv::Size size(120, 90);
  const double a = 0.3, s = 1.2;
  // Forward: x' = s(cos·x - sin·y) + 20, y' = s(sin·x + cos·y) + 5, then an
  // x·y term for the bilinear road, inverted by Newton's method for remap.
  for (const double bend : {0.0, 4e-4}) {
    const double c[8] = {bend,     s * std::cos(a), -s * std::sin(a), 20,
                         bend / 2, s * std::sin(a), s * std::cos(a),  5};
    cv::Mat mapX(size, CV_32F), mapY(size, CV_32F);
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) {
        double u = 0, v = 0;
        for (int i = 0; i < 30; ++i) {
          const double fx = (c[0] * v + c[1]) * u + c[2] * v + c[3] - x;
          const double fy = (c[4] * v + c[5]) * u + c[6] * v + c[7] - y;
          const double j00 = c[0] * v + c[1], j01 = c[0] * u + c[2];
          const double j10 = c[4] * v + c[5], j11 = c[4] * u + c[6], det = j00 * j11 - j01 * j10;
          u -= (j11 * fx - j01 * fy) / det, v -= (j00 * fy - j10 * fx) / det;
        }
        mapX.at<float>(y, x) = float(u), mapY.at<float>(y, x) = float(v);
      }
    // Where both read inside the source, borders playing no part.
    const cv::Mat inside =
        (mapX >= 2) & (mapY >= 2) & (mapX <= src.cols - 3) & (mapY <= src.rows - 3);
    for (const auto& [mode, cvMode] : {std::pair{CORVANE_INTER_LINEAR, cv::INTER_LINEAR},
                                       {CORVANE_INTER_CUBIC, cv::INTER_CUBIC},
                                       {CORVANE_INTER_CATMULL_ROM, cv::INTER_CUBIC}}) {
      if (bend && mode == CORVANE_INTER_CATMULL_ROM) continue;  // the affine road's own
      cv::Mat ours(size, CV_8UC3, cv::Scalar::all(0)), peer;
      const corvane_image in = Of(src), out = Of(ours);
      ASSERT_EQ(corvane_warp(&in, {0, 0, src.cols, src.rows}, &out, {0, 0, size.width, size.height},
                             c, mode),
                0);
      cv::remap(src, peer, mapX, mapY, cvMode);
      // Catmull-Rom is another cubic than OpenCV's; still close on a smooth picture.
      ExpectClose(ours, peer, inside, mode == CORVANE_INTER_LINEAR ? 2 : 4,
                  bend ? "bilinear road" : "affine road");
    }
  }
  // corvane_resize puts the crop's first and last pixel centres on dst's.
  const corvane_rect crop{5, 3, 80, 50};
  for (const cv::Size to : {cv::Size(41, 29), cv::Size(151, 97)}) {
    for (const auto& [mode, cvMode] : {std::pair{CORVANE_INTER_LINEAR, cv::INTER_LINEAR},
                                       {CORVANE_INTER_CUBIC, cv::INTER_CUBIC}}) {
      cv::Mat ours(to, CV_8UC3), peer;
      const corvane_image in = Of(src), out = Of(ours);
      ASSERT_EQ(corvane_resize(&in, crop, &out, mode), 0);
      const double sx = (crop.width - 1.0) / (to.width - 1),
                   sy = (crop.height - 1.0) / (to.height - 1);
      const cv::Matx23d inverse(sx, 0, crop.x, 0, sy, crop.y);
      cv::warpAffine(src, peer, inverse, to, cvMode | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
      ExpectClose(ours, peer, cv::Mat(to, CV_8U, 255), mode == CORVANE_INTER_LINEAR ? 2 : 4,
                  "resize");
    }
  }
}

TEST(WarpClient, IdentityAndWholePixelShiftsCopy) {
  const cv::Mat src = Smooth(37, 23);
  for (const uint32_t mode : {1u, 2u, 4u, 6u}) {
    for (const double dx : {0.0, 3.0}) {
      const double c[8] = {0, 1, 0, dx, 0, 0, 1, -2 * dx};
      cv::Mat ours(src.size(), CV_8UC3, cv::Scalar::all(7));
      const corvane_image in = Of(src), out = Of(ours);
      ASSERT_EQ(corvane_warp(&in, {0, 0, 37, 23}, &out, {0, 0, 37, 23}, c, mode), 0);
      const cv::Rect to(int(dx), 0, 37 - int(dx), 23 - int(2 * dx));
      const cv::Rect from(0, int(2 * dx), to.width, to.height);
      EXPECT_EQ(cv::norm(ours(to), src(from), cv::NORM_INF), 0) << mode << " by " << dx;
    }
    cv::Mat same(src.size(), CV_8UC3);
    const corvane_image in = Of(src), out = Of(same);
    ASSERT_EQ(corvane_resize(&in, {0, 0, 37, 23}, &out, mode), 0);
    EXPECT_EQ(cv::norm(same, src, cv::NORM_INF), 0) << mode << ", resized to its own size";
  }
}

// The quad (10, 0) (40, 0) (40, 30) (0, 30) of a flat 200 on 0: the left edge
// crosses row y at x = (30 - y) / 3, and the pixel left of it becomes
// 0·w1 + 200·w2 + 0.5, truncated, w1 = the fraction being the crossing's
// distance from it and w2 = 1 - w1 from the inside one. Nothing else moves.
TEST(WarpClient, SmoothEdgeBlendsOnlyTheOutsidePixels) {
  const cv::Mat src(31, 31, CV_8UC3, cv::Scalar::all(200));
  const double quad[4][2] = {{10, 0}, {40, 0}, {40, 30}, {0, 30}};
  cv::Mat plain(40, 50, CV_8UC3, cv::Scalar::all(0)), smooth = plain.clone();
  const corvane_image in = Of(src), a = Of(plain), b = Of(smooth);
  ASSERT_EQ(corvane_warp_quad(&in, {0, 0, 31, 31}, &a, quad, CORVANE_INTER_NEAREST), 0);
  ASSERT_EQ(
      corvane_warp_quad(&in, {0, 0, 31, 31}, &b, quad, CORVANE_INTER_NEAREST | CORVANE_SMOOTH_EDGE),
      0);
  for (int y = 1; y < 30; ++y) {
    const double x = (30 - y) / 3.0, fraction = x - std::floor(x);
    if (fraction == 0) continue;
    uint8_t& blended = plain.at<cv::Vec3b>(y, int(x))[0];
    EXPECT_EQ(blended, 0) << y;
    blended = uint8_t(int(0 * fraction + 200 * (1 - fraction) + 0.5));
    plain.at<cv::Vec3b>(y, int(x)) = cv::Vec3b::all(blended);
  }
  EXPECT_EQ(cv::norm(plain, smooth, cv::NORM_INF), 0);
}

// What the exports check before the primitive does.
TEST(WarpClient, RefusesInOrderAndWritesNothing) {
  cv::Mat src = Smooth(16, 16), dst(16, 16, CV_8UC3, cv::Scalar::all(9));
  const double c[8] = {0, 1, 0, 0, 0, 0, 1, 0};
  const corvane_rect all{0, 0, 16, 16};
  corvane_image in = Of(src), out = Of(dst), gray = in, narrow = out;
  gray.format = CORVANE_8U_C4, narrow.step = 47;
  const struct {
    int32_t got, want;
  } cases[] = {
      {corvane_warp(&in, all, &out, all, nullptr, 2), CORVANE_STATUS_NULL_POINTER},
      {corvane_warp(nullptr, all, &out, all, c, 3), CORVANE_STATUS_NULL_POINTER},
      {corvane_warp(&gray, all, &out, all, c, 2), CORVANE_STATUS_PIXEL_TYPE},
      {corvane_warp(&in, all, &narrow, all, c, 3), CORVANE_STATUS_STEP},
      {corvane_warp(&in, all, &out, {1, 0, 16, 16}, c, 3), CORVANE_STATUS_SIZE},
      {corvane_warp_quad(&in, all, &out, nullptr, 2), CORVANE_STATUS_NULL_POINTER},
      {corvane_resize(&in, {8, 8, 9, 8}, &out, 2), CORVANE_STATUS_SIZE},
      {corvane_resize(&in, all, &out, 5), CORVANE_STATUS_INTERPOLATION},
  };
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << i;
  EXPECT_EQ(cv::countNonZero(dst.reshape(1) != 9), 0);
}

}  // namespace
