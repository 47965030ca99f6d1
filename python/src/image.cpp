#include "image.h"

#include <cstring>
#include <limits>

namespace corvane::python {

namespace {

// The element types of the library's formats, in the order of corvane_format:
// three formats each (C3, C4, C4K).
struct ElementType {
  char kind;  // numpy's: 'u' unsigned, 'i' signed
  int bytes;
  const char* name;
  int32_t firstFormat;
  long lowest, highest;
};
constexpr ElementType kTypes[] = {{'u', 1, "uint8", CORVANE_8U_C3, 0, 255},
                                  {'u', 2, "uint16", CORVANE_16U_C3, 0, 65535},
                                  {'i', 2, "int16", CORVANE_16S_C3, -32768, 32767}};

const ElementType* TypeOf(const py::dtype& dtype) {
  if (!dtype.attr("isnative").cast<bool>()) return nullptr;
  for (const ElementType& type : kTypes)
    if (dtype.kind() == type.kind && dtype.itemsize() == type.bytes) return &type;
  return nullptr;
}

const ElementType& TypeOf(int32_t format) {
  for (const ElementType& type : kTypes)
    if (format >= type.firstFormat && format < type.firstFormat + 3) return type;
  throw std::invalid_argument("unknown image format " + std::to_string(format));
}

int Channels(int32_t format) { return (format - CORVANE_8U_C3) % 3 == 0 ? 3 : 4; }

std::string Shape(const py::array& array) {
  std::string text = "(";
  for (py::ssize_t i = 0; i < array.ndim(); ++i)
    text += (i ? ", " : "") + std::to_string(array.shape(i));
  return text + (array.ndim() == 1 ? ",)" : ")");
}

[[noreturn]] void Refuse(const char* name, const std::string& what) {
  throw py::value_error(std::string(name) + " " + what);
}

}  // namespace

Image AsImage(const py::handle& object, const char* name, bool keepFourth, bool copyOthers) {
  py::array array = py::array::ensure(object);
  if (!array) {
    PyErr_Clear();
    Refuse(name, "is not an array");
  }
  if (array.ndim() != 3 || (array.shape(2) != 3 && array.shape(2) != 4))
    Refuse(name,
           "must have the shape (height, width, 3) or (height, width, 4), not " + Shape(array));
  const ElementType* type = TypeOf(array.dtype());
  if (!type)
    Refuse(name, "must be of uint8, uint16 or int16 in the machine's byte order, not " +
                     py::str(array.dtype()).cast<std::string>());
  constexpr py::ssize_t kMax = std::numeric_limits<int32_t>::max();
  const py::ssize_t height = array.shape(0), width = array.shape(1), channels = array.shape(2);
  if (height == 0 || width == 0) Refuse(name, "is empty: " + Shape(array));
  if (height > kMax || width * channels * type->bytes > kMax) Refuse(name, "is too large");
  const bool packed =
      array.strides(2) == type->bytes && array.strides(1) == channels * type->bytes &&
      array.strides(0) >= width * channels * type->bytes && array.strides(0) <= kMax;
  if (!packed) {
    if (!copyOthers) Refuse(name, "must have its pixels side by side within each row");
    array = py::array::ensure(array, py::array::c_style);
    if (!array) throw py::error_already_set();
  }
  Image result{array, {}};
  result.image.data = array.mutable_data();
  result.image.step = static_cast<int32_t>(array.strides(0));
  result.image.width = static_cast<int32_t>(width);
  result.image.height = static_cast<int32_t>(height);
  result.image.format = type->firstFormat + (channels == 3 ? 0 : keepFourth ? 2 : 1);
  return result;
}

Image NewImage(int32_t width, int32_t height, int32_t format) {
  const ElementType& type = TypeOf(format);
  py::array array(py::dtype(type.name), {height, width, Channels(format)});
  return Image{
      array, {array.mutable_data(), static_cast<int32_t>(array.strides(0)), width, height, format}};
}

uint32_t Interpolation(const std::string& name) {
  if (name == "nearest") return CORVANE_INTER_NEAREST;
  if (name == "linear") return CORVANE_INTER_LINEAR;
  if (name == "cubic") return CORVANE_INTER_CUBIC;
  if (name == "catmull-rom") return CORVANE_INTER_CATMULL_ROM;
  throw py::value_error(
      "interpolation must be \"nearest\", \"linear\", \"cubic\" or "
      "\"catmull-rom\", not \"" +
      name + "\"");
}

int32_t Border(const std::string& name) {
  if (name == "replicate") return CORVANE_BORDER_REPLICATE;
  if (name == "constant") return CORVANE_BORDER_CONSTANT;
  throw py::value_error("border must be \"replicate\" or \"constant\", not \"" + name + "\"");
}

BorderPixel BorderValue(const py::handle& value, const corvane_image& image) {
  const ElementType& type = TypeOf(image.format);
  const int channels = Channels(image.format);
  BorderPixel pixel{};
  if (value.is_none()) return pixel;
  py::list elements;
  if (py::isinstance<py::int_>(value))
    for (int c = 0; c < channels; ++c) elements.append(value);
  else if (py::isinstance<py::sequence>(value) && !py::isinstance<py::str>(value))
    elements = py::list(py::reinterpret_borrow<py::object>(value));
  if (static_cast<int>(elements.size()) != channels)
    throw py::value_error("value must be None, an integer or " + std::to_string(channels) +
                          " integers, one for each channel");
  for (int c = 0; c < channels; ++c) {
    if (!py::isinstance<py::int_>(elements[c])) throw py::value_error("value must hold integers");
    const long element = elements[c].cast<long>();
    if (element < type.lowest || element > type.highest)
      throw py::value_error("value " + std::to_string(element) + " is outside " + type.name);
    if (type.bytes == 1) {
      pixel.bytes[c] = static_cast<unsigned char>(element);
    } else {
      const auto wide = static_cast<uint16_t>(element);  // int16 as its two's complement
      std::memcpy(pixel.bytes + 2 * c, &wide, 2);
    }
  }
  return pixel;
}

void CheckStatus(int32_t status, const char* function) {
  if (status == CORVANE_STATUS_OK) return;
  if (status > 0) {
    const std::string text = std::string(function) + ": warning " + std::to_string(status);
    if (PyErr_WarnEx(PyExc_RuntimeWarning, text.c_str(), 1) != 0) throw py::error_already_set();
    return;
  }
  if (status == CORVANE_STATUS_NO_MEMORY) throw std::bad_alloc();
  const char* what = "the arguments";
  switch (status) {
    case CORVANE_STATUS_SIZE:
      what = "the sizes (an empty image or rectangle, or sizes that differ)";
      break;
    case CORVANE_STATUS_STEP:
      what = "a row step too small for the width";
      break;
    case CORVANE_STATUS_INTERPOLATION:
      what = "the interpolation";
      break;
    case CORVANE_STATUS_MASK_SIZE:
      what = "the mask size";
      break;
    case CORVANE_STATUS_PIXEL_TYPE:
      what = "the image's type (format not served by this function)";
      break;
    case CORVANE_STATUS_BORDER:
      what = "the border";
      break;
  }
  throw py::value_error(std::string(function) + " refused " + what + " (status " +
                        std::to_string(status) + ")");
}

}  // namespace corvane::python
