// The compiled part of the package corvane (corvane/_corvane): the library's
// decoder sessions and file reading with numpy arrays for pictures. The
// package's Python files build the public face on it. Every call that decodes
// or reads runs with the interpreter's lock released.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cerrno>
#include <climits>
#include <memory>

#include "corvane_ext.h"
#include "image.h"
#include "reader.h"
#include "session.h"

namespace corvane::python {

namespace {

Stage StageOf(bool median, bool sharpen) {
  if (median && sharpen) throw std::invalid_argument("median and sharpen exclude each other");
  return median ? Stage::Median : sharpen ? Stage::Sharpen : Stage::Plain;
}

Codec CodecOf(const std::string& name) {
  if (name == "h264") return Codec::H264;
  if (name == "h265" || name == "hevc") return Codec::H265;
  throw std::invalid_argument("codec must be \"h264\" or \"h265\", not \"" + name + "\"");
}

const char* CodecName(Codec codec) { return codec == Codec::H264 ? "h264" : "h265"; }

// The picture's block becomes the memory of an (H, W, 3) array.
py::array ToArray(Picture& picture) {
  auto block = std::make_unique<Block>(std::move(picture.pixels));
  py::capsule owner(block.get(), [](void* held) { delete static_cast<Block*>(held); });
  const uint8_t* pixels = block.release()->get();
  return py::array_t<uint8_t>({picture.height, picture.width, 3}, pixels, owner);
}

py::object Item(Picture& picture) { return py::make_tuple(ToArray(picture), picture.index); }

// One call at a time on an object: a second thread's call while the first runs
// without the interpreter's lock is refused rather than let in.
class Exclusive {
 public:
  explicit Exclusive(bool& busy) : busy_(busy) {
    if (busy_) throw std::runtime_error("already in use by another thread");
    busy_ = true;
  }
  ~Exclusive() { busy_ = false; }
  Exclusive(const Exclusive&) = delete;
  Exclusive& operator=(const Exclusive&) = delete;

 private:
  bool& busy_;
};

class PyFileReader {
 public:
  PyFileReader(const std::string& path, bool median, bool sharpen, bool strict) {
    const Stage stage = StageOf(median, sharpen);
    py::gil_scoped_release released;
    reader_ = std::make_unique<FileReader>(path, stage, strict);
  }

  // (array, index, pts or None), or None after the last picture.
  py::object Read() {
    Exclusive exclusive(busy_);
    FileReader& reader = Open();
    Picture picture;
    double pts = 0.0;
    bool timed = false, got = false;
    {
      py::gil_scoped_release released;
      got = reader.Next(picture, pts, timed);
    }
    if (got) {
      return py::make_tuple(ToArray(picture), picture.index,
                            timed ? py::object(py::float_(pts)) : py::object(py::none()));
    }
    if (!warned_) {
      warned_ = true;
      Warn(reader);
    }
    return py::none();
  }

  void Close() {
    Exclusive exclusive(busy_);
    reader_.reset();
  }

  FileReader& Open() const {
    if (!reader_) throw std::invalid_argument("the reader is closed");
    return *reader_;
  }

 private:
  // A file that ended early or held damaged packets says so once, at its end.
  static void Warn(const FileReader& reader) {
    std::string text;
    if (!reader.container().stopReason().empty())
      text = "reading stopped before the end of the file: " + reader.container().stopReason();
    else if (reader.refused() > 0)
      text = std::to_string(reader.refused()) + " damaged packet(s) passed over";
    if (!text.empty() && PyErr_WarnEx(PyExc_RuntimeWarning, text.c_str(), 1) != 0)
      throw py::error_already_set();
  }

  std::unique_ptr<FileReader> reader_;
  bool busy_ = false;
  bool warned_ = false;
};

class PyDecoder {
 public:
  PyDecoder(const std::string& codec, bool median, bool sharpen, bool strict)
      : session_(CodecOf(codec), StageOf(median, sharpen), strict) {}

  // (array, index) or None.
  py::object Decode(const py::handle& packet) {
    Exclusive exclusive(busy_);
    Py_buffer view;
    if (PyObject_GetBuffer(packet.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
    std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&view, PyBuffer_Release);
    if (view.len > INT32_MAX) throw std::invalid_argument("a packet holds at most 2 GiB");
    return Run([&] {
      return session_.Feed(static_cast<const uint8_t*>(view.buf), static_cast<int32_t>(view.len));
    });
  }

  py::object Drain() {
    Exclusive exclusive(busy_);
    return Run([&] { return session_.Drain(); });
  }

 private:
  template <typename Call>
  py::object Run(Call call) {
    bool got = false;
    {
      py::gil_scoped_release released;
      got = call();
    }
    if (!got) return py::none();
    Picture picture = session_.TakePicture();
    return Item(picture);
  }

  Session session_;
  bool busy_ = false;
};

void RegisterErrors(py::module_& m) {
  static py::exception<LibraryError> decodeError(m, "DecodeError", PyExc_RuntimeError);
  decodeError.doc() =
      "The library refused a packet or a session: `code` holds its result code "
      "(-996 a packet the decoder refused, -883 no memory, -879 no decoder...).";
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const LibraryError& e) {
      py::object error = py::reinterpret_borrow<py::object>(decodeError)(e.what());
      error.attr("code") = e.code();
      PyErr_SetObject(decodeError.ptr(), error.ptr());
    } catch (const NotInLibrary& e) {
      PyErr_SetString(PyExc_NotImplementedError, e.what());
    } catch (const OpenError& e) {
      errno = e.error();  // OSError picks its subclass (FileNotFoundError...) by errno
      PyErr_SetFromErrnoWithFilename(PyExc_OSError, e.path().c_str());
    }
  });
}

}  // namespace

}  // namespace corvane::python

PYBIND11_MODULE(_corvane, m) {
  using namespace corvane::python;
  m.doc() = "The compiled part of corvane: decoder sessions and file reading.";
  RegisterErrors(m);
  m.def(
      "version", [] { return std::string(corvane_version()); },
      "The library's version, \"MAJOR.MINOR.PATCH\".");

  py::class_<PyFileReader>(m, "FileReader")
      .def(py::init<const std::string&, bool, bool, bool>(), py::arg("path"), py::arg("median"),
           py::arg("sharpen"), py::arg("strict"))
      .def("read", &PyFileReader::Read)
      .def("close", &PyFileReader::Close)
      .def_property_readonly(
          "codec", [](const PyFileReader& r) { return CodecName(r.Open().container().codec()); })
      .def_property_readonly("width",
                             [](const PyFileReader& r) { return r.Open().container().width(); })
      .def_property_readonly("height",
                             [](const PyFileReader& r) { return r.Open().container().height(); })
      .def_property_readonly("format",
                             [](const PyFileReader& r) { return r.Open().container().format(); })
      .def_property_readonly("duration",
                             [](const PyFileReader& r) -> py::object {
                               const double seconds = r.Open().container().duration();
                               return seconds > 0 ? py::float_(seconds) : py::object(py::none());
                             })
      .def_property_readonly("packets", [](const PyFileReader& r) { return r.Open().packets(); })
      .def_property_readonly("refused", [](const PyFileReader& r) { return r.Open().refused(); });

  py::class_<PyDecoder>(m, "Decoder")
      .def(py::init<const std::string&, bool, bool, bool>(), py::arg("codec"), py::arg("median"),
           py::arg("sharpen"), py::arg("strict"))
      .def("decode", &PyDecoder::Decode, py::arg("packet"))
      .def("drain", &PyDecoder::Drain);

  m.def(
      "sharpen",
      [](const py::handle& img, const std::string& border, const py::handle& value) {
        const Image src = AsImage(img, "img");
        const Image dst = NewImage(src.image.width, src.image.height, src.image.format);
        const int32_t rule = Border(border);
        const BorderPixel pixel = BorderValue(value, src.image);
        CheckStatus(
            WithoutGil([&] { return corvane_sharpen(&src.image, &dst.image, rule, pixel.bytes); }),
            "sharpen");
        return dst.array;
      },
      py::arg("img"), py::arg("border") = "replicate", py::arg("value") = py::none());

  // How an array reaches the image functions: (width, height, step, format).
  m.def(
      "image_layout",
      [](const py::handle& array, bool keepFourth) {
        const Image view = AsImage(array, "img", keepFourth);
        return py::make_tuple(view.image.width, view.image.height, view.image.step,
                              view.image.format);
      },
      py::arg("img"), py::arg("keep_fourth") = false);
  DefineMedian(m);
  DefineWarp(m);
}
