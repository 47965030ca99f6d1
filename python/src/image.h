// numpy arrays as the library's images (corvane_image.h): what each image
// function of the package shares. A function is then a few lines: take the
// source with AsImage, make the result with NewImage, call the library inside
// WithoutGil, hand its status to CheckStatus.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>

#include "corvane_image.h"

namespace corvane::python {

namespace py = pybind11;

// An array seen as an image. `array` keeps the pixels alive.
struct Image {
  py::array array;
  corvane_image image{};
};

// An (H, W, 3) or (H, W, 4) array of uint8, uint16 or int16 whose pixels are
// packed within each row (rows may stand apart, as in a crop of a larger
// array). Any other array is copied when `copyOthers`, or refused. With four
// channels, `keepFourth` asks for the format whose fourth channel the
// primitive leaves as it is in the destination. Raises ValueError naming
// `name` and what is wrong with it.
Image AsImage(const py::handle& object, const char* name, bool keepFourth = false,
              bool copyOthers = true);

// A new C-ordered array for an image of `format`.
Image NewImage(int32_t width, int32_t height, int32_t format);

// CORVANE_INTER_* / CORVANE_BORDER_* for a name ("nearest", "linear", "cubic",
// "catmull-rom"; "replicate", "constant"); ValueError listing the names.
uint32_t Interpolation(const std::string& name);
int32_t Border(const std::string& name);

// A constant border's value, one element per channel of an image in its type,
// as the library reads it.
struct BorderPixel {
  alignas(8) unsigned char bytes[8];
};
// From None (zeros), one integer for every channel, or one integer per channel.
BorderPixel BorderValue(const py::handle& value, const corvane_image& image);

// Runs a call of the library with the interpreter's lock released.
template <typename Call>
int32_t WithoutGil(Call call) {
  py::gil_scoped_release released;
  return call();
}

// Nothing for a status of 0; a RuntimeWarning for a positive one; for a
// negative one ValueError naming what the function refused, MemoryError for
// CORVANE_STATUS_NO_MEMORY.
void CheckStatus(int32_t status, const char* function);

// Each family's functions, added to the module.
void DefineWarp(py::module_& m);

}  // namespace corvane::python

namespace corvane::python {

// The image functions, each from its own unit.
void DefineMedian(py::module_& m);

}  // namespace corvane::python
