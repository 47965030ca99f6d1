// corvane.warp, corvane.warp_quad and corvane.resize: a new array of the
// size asked for, black where the picture doesn't reach.
#include <array>
#include <cstring>
#include <optional>

#include <pybind11/stl.h>

#include "image.h"

namespace corvane::python {

namespace {

using Size = std::array<int32_t, 2>;  // (width, height), as OpenCV's dsize

Image Destination(const Image& src, Size dsize) {
  if (dsize[0] < 1 || dsize[1] < 1) throw py::value_error("dsize must be two positive integers");
  Image dst = NewImage(dsize[0], dsize[1], src.image.format);
  std::memset(dst.image.data, 0, size_t(dst.image.step) * dst.image.height);
  return dst;
}

corvane_rect RectOf(const std::optional<std::array<int32_t, 4>>& rect, const Image& src) {
  if (!rect) return {0, 0, src.image.width, src.image.height};
  return {(*rect)[0], (*rect)[1], (*rect)[2], (*rect)[3]};
}

uint32_t Mode(const std::string& interpolation, bool smoothEdge) {
  return Interpolation(interpolation) | (smoothEdge ? CORVANE_SMOOTH_EDGE : 0u);
}

}  // namespace

void DefineWarp(py::module_& m) {
  m.def(
      "warp",
      [](const py::handle& img, std::array<double, 8> coeffs, Size dsize,
         const std::string& interpolation, bool smoothEdge) {
        const Image src = AsImage(img, "img");
        const Image dst = Destination(src, dsize);
        const uint32_t mode = Mode(interpolation, smoothEdge);
        CheckStatus(WithoutGil([&] {
                      return corvane_warp(&src.image, RectOf(std::nullopt, src), &dst.image,
                                          {0, 0, dsize[0], dsize[1]}, coeffs.data(), mode);
                    }),
                    "warp");
        return dst.array;
      },
      py::arg("img"), py::arg("coeffs"), py::arg("dsize"), py::arg("interpolation") = "linear",
      py::arg("smooth_edge") = false,
      "img (H, W, 3) uint8 drawn into a new (dsize[1], dsize[0], 3) array through the forward\n"
      "map x' = c0*x*y + c1*x + c2*y + c3, y' = c4*x*y + c5*x + c6*y + c7.");
  m.def(
      "warp_quad",
      [](const py::handle& img, std::array<std::array<double, 2>, 4> quad, Size dsize,
         const std::string& interpolation, const std::optional<std::array<int32_t, 4>>& rect,
         bool smoothEdge) {
        const Image src = AsImage(img, "img");
        const Image dst = Destination(src, dsize);
        const uint32_t mode = Mode(interpolation, smoothEdge);
        double corners[4][2];
        std::memcpy(corners, quad.data(), sizeof corners);
        CheckStatus(WithoutGil([&] {
                      return corvane_warp_quad(&src.image, RectOf(rect, src), &dst.image, corners,
                                               mode);
                    }),
                    "warp_quad");
        return dst.array;
      },
      py::arg("img"), py::arg("quad"), py::arg("dsize"), py::arg("interpolation") = "linear",
      py::arg("rect") = py::none(), py::arg("smooth_edge") = false,
      "The corners of rect (x, y, width, height; all of img by default) put on the four\n"
      "points of quad, in order, of a new (dsize[1], dsize[0], 3) array.");
  m.def(
      "resize",
      [](const py::handle& img, Size dsize, const std::optional<std::array<int32_t, 4>>& rect,
         const std::string& interpolation) {
        const Image src = AsImage(img, "img");
        const Image dst = Destination(src, dsize);
        const uint32_t mode = Mode(interpolation, false);
        CheckStatus(WithoutGil([&] {
                      return corvane_resize(&src.image, RectOf(rect, src), &dst.image, mode);
                    }),
                    "resize");
        return dst.array;
      },
      py::arg("img"), py::arg("dsize"), py::arg("rect") = py::none(),
      py::arg("interpolation") = "linear",
      "rect of img (x, y, width, height; all of it by default) scaled to a new\n"
      "(dsize[1], dsize[0], 3) array, the first and last pixel centres on the new ones.");
}

}  // namespace corvane::python
