// corvane.median: the library's median on a numpy array, into a new one.
#include "image.h"

namespace corvane::python {

namespace {

// The mask's sides from one integer (a square) or a (width, height) pair.
std::pair<int32_t, int32_t> MaskSides(const py::handle& ksize) {
  if (py::isinstance<py::int_>(ksize)) {
    const auto side = ksize.cast<int32_t>();
    return {side, side};
  }
  if (py::isinstance<py::sequence>(ksize) && !py::isinstance<py::str>(ksize) &&
      py::len(ksize) == 2) {
    const py::sequence sides = py::reinterpret_borrow<py::sequence>(ksize);
    if (py::isinstance<py::int_>(sides[0]) && py::isinstance<py::int_>(sides[1]))
      return {sides[0].cast<int32_t>(), sides[1].cast<int32_t>()};
  }
  throw py::value_error("ksize must be an odd integer or a (width, height) pair of them");
}

py::array Median(const py::handle& img, const py::handle& ksize, const std::string& border,
                 const py::handle& value) {
  const auto [maskWidth, maskHeight] = MaskSides(ksize);
  if (maskWidth < 1 || maskHeight < 1 || maskWidth % 2 == 0 || maskHeight % 2 == 0)
    throw py::value_error("ksize must be odd and positive, not " + std::to_string(maskWidth) +
                          " x " + std::to_string(maskHeight));
  const Image src = AsImage(img, "img");
  const Image dst = NewImage(src.image.width, src.image.height, src.image.format);
  const int32_t rule = Border(border);
  const BorderPixel pixel = BorderValue(value, src.image);
  CheckStatus(WithoutGil([&] {
                return corvane_median(&src.image, &dst.image, maskWidth, maskHeight, rule,
                                      pixel.bytes);
              }),
              "median");
  return dst.array;
}

}  // namespace

void DefineMedian(py::module_& m) {
  m.def("median", &Median, py::arg("img"), py::arg("ksize"), py::arg("border") = "replicate",
        py::arg("value") = py::none(),
        "The per-channel median of every ksize window of img, in a new array.");
}

}  // namespace corvane::python
