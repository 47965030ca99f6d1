// corvane_warp, corvane_warp_quad and corvane_resize through the shared
// object, on the processor's best code path: OpenCV as a second opinion for
// gross errors (its rounding differs, so a mean and a maximum bound, not
// equality), the smooth edge's weights along one slanted edge, the refusals.
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

// The inverse of the forward map c for cv::remap, by Newton's method.
void Inverse(const double* c, cv::Size size, cv::Mat& mapX, cv::Mat& mapY) {
  mapX.create(size, CV_32F), mapY.create(size, CV_32F);
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
}

// A rotation by 0.3 scaled 1.2, then with an x·y term for the bilinear road;
// corvane_resize puts the crop's first and last pixel centres on dst's.
// Catmull-Rom is another cubic than OpenCV's; still close on a smooth picture.
TEST(WarpClient, AgreesWithOpenCV) {
  const cv::Mat src = Smooth(97, 61);
  const double cs = 1.2 * std::cos(0.3), sn = 1.2 * std::sin(0.3);
  const corvane_rect crop{5, 3, 80, 50};
  const struct {
    const char* what;
    double bend;
    cv::Size size;  // resized to, or warped into with the whole source
    uint32_t mode;
    int cvMode, maxBound;
  } cases[] = {
      {"affine road", 0, {120, 90}, CORVANE_INTER_LINEAR, cv::INTER_LINEAR, 2},
      {"affine road", 0, {120, 90}, CORVANE_INTER_CUBIC, cv::INTER_CUBIC, 4},
      {"affine road", 0, {120, 90}, CORVANE_INTER_CATMULL_ROM, cv::INTER_CUBIC, 4},
      {"bilinear road", 4e-4, {120, 90}, CORVANE_INTER_LINEAR, cv::INTER_LINEAR, 2},
      {"bilinear road", 4e-4, {120, 90}, CORVANE_INTER_CUBIC, cv::INTER_CUBIC, 4},
      {"resize down", -1, {41, 29}, CORVANE_INTER_LINEAR, cv::INTER_LINEAR, 2},
      {"resize down", -1, {41, 29}, CORVANE_INTER_CUBIC, cv::INTER_CUBIC, 4},
      {"resize up", -1, {151, 97}, CORVANE_INTER_LINEAR, cv::INTER_LINEAR, 2},
      {"resize up", -1, {151, 97}, CORVANE_INTER_CUBIC, cv::INTER_CUBIC, 4},
  };
  for (const auto& k : cases) {
    const bool resize = k.bend < 0;
    const double sx = (crop.width - 1.0) / (k.size.width - 1),
                 sy = (crop.height - 1.0) / (k.size.height - 1);
    const double warp[8] = {k.bend, cs, -sn, 20, k.bend / 2, sn, cs, 5},
                 scale[8] = {0, 1 / sx, 0, -crop.x / sx, 0, 0, 1 / sy, -crop.y / sy};
    cv::Mat mapX, mapY, peer, ours(k.size, CV_8UC3, cv::Scalar::all(0));
    Inverse(resize ? scale : warp, k.size, mapX, mapY);
    const corvane_image in = Of(src), out = Of(ours);
    ASSERT_EQ(resize ? corvane_resize(&in, crop, &out, k.mode)
                     : corvane_warp(&in, {0, 0, src.cols, src.rows}, &out,
                                    {0, 0, k.size.width, k.size.height}, warp, k.mode),
              0);
    cv::remap(src, peer, mapX, mapY, k.cvMode, cv::BORDER_REPLICATE);
    // A warp is held where both read inside the source, borders playing no part.
    const cv::Mat inside =
        resize ? cv::Mat(k.size, CV_8U, 255)
               : (mapX >= 2) & (mapY >= 2) & (mapX <= src.cols - 3) & (mapY <= src.rows - 3);
    ExpectClose(ours, peer, inside, k.maxBound, k.what);
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
