#include "python/array_picture.h"

#include <cmath>
#include <string>

#include "tiling/any_size.h"

namespace py = pybind11;

namespace tessaline::python {

namespace {

constexpr int kFullWhite = 65535;
constexpr int kHostWhite = 32768;

// Nobody's picture is brighter than this many whites; squares of the transforms' sums then fit a float.
constexpr float kLargestFloat = 1e6f;

struct SampleTraits {
  char kind;  // as NumPy's
  ptrdiff_t bytes;
  int white;  // 0: any
  SampleFormat format;
};
constexpr SampleTraits kSampleTraits[] = {
    {'u', 1, 0, SampleFormat::kByte},
    {'u', 2, kFullWhite, SampleFormat::kFull16},
    {'u', 2, kHostWhite, SampleFormat::kHost16},
    {'f', 4, 0, SampleFormat::kFloat},
};

std::string Text(const py::handle& value) {
  return py::str(value);
}

SampleFormat FormatOf(const py::dtype& type, int white) {
  if (white != kFullWhite && white != kHostWhite) {
    throw py::value_error("white must be 65535 or 32768, not " + std::to_string(white));
  }
  for (const SampleTraits& traits : kSampleTraits) {
    if (type.kind() == traits.kind && type.itemsize() == traits.bytes &&
        (traits.white == 0 || traits.white == white)) {
      return traits.format;
    }
  }
  throw py::value_error("arrays of " + Text(type) +
                        " cannot be cleaned; convert to uint8, uint16 or float32 (levels 0 to 1)");
}

bool IsInPlaceForEngine(const py::array& array) {
  return array.dtype().attr("isnative").cast<bool>() && array.attr("flags").attr("aligned").cast<bool>();
}

// For arrays whose type and shape have been looked at.
PictureView ViewOf(const py::array& array, SampleFormat format) {
  PictureView picture;
  picture.height = static_cast<int32_t>(array.shape(0));
  picture.width = static_cast<int32_t>(array.shape(1));
  picture.format = format;
  const ptrdiff_t channels = array.ndim() == 2 ? 1 : array.shape(2);
  picture.channels = channels == 1 ? 1 : 3;
  // Inputs are read only; an output has been asked whether it may be written.
  auto* const data = static_cast<uint8_t*>(const_cast<void*>(array.data()));
  for (int32_t c = 0; c < picture.channels; ++c) {
    picture.channel[c] = {channels == 1 ? data : data + c * array.strides(2), array.strides(1),
                          array.strides(0)};
  }
  return picture;
}

bool IsSameView(const py::array& a, const py::array& b) {
  if (a.data() != b.data()) return false;
  for (py::ssize_t i = 0; i < a.ndim(); ++i) {
    if (a.strides(i) != b.strides(i)) return false;
  }
  return true;
}

py::object NumPy(const char* name) {
  return py::module_::import("numpy").attr(name);
}

}  // namespace

ArrayPicture ReadArray(const py::array& array, int white) {
  const SampleFormat format = FormatOf(array.dtype(), white);
  const std::string shape = Text(array.attr("shape"));
  const ptrdiff_t channels = array.ndim() == 3 ? array.shape(2) : 1;
  if (array.ndim() < 2 || array.ndim() > 3 || (channels != 1 && channels != 3 && channels != 4)) {
    throw py::value_error("an array of shape " + shape +
                          " is no picture; give (H, W), (H, W, 1), (H, W, 3) or (H, W, 4)");
  }
  if (array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > kLargestTiledSide ||
      array.shape(1) > kLargestTiledSide) {
    throw py::value_error("an array of shape " + shape + " is empty or larger than " +
                          std::to_string(kLargestTiledSide) + " on a side");
  }
  py::array readable = array;
  if (!IsInPlaceForEngine(array)) {
    readable = array.attr("astype")(array.dtype().attr("newbyteorder")("="));
  }
  return {readable, ViewOf(readable, format), channels == 4};
}

ArrayPicture ArrayForResult(const py::object& out, int white, ArrayPicture* from) {
  if (out.is_none()) {
    const py::array fresh(
        from->array.dtype(),
        std::vector<py::ssize_t>(from->array.shape(), from->array.shape() + from->array.ndim()));
    return {fresh, ViewOf(fresh, from->picture.format), from->hasAlpha};
  }
  if (!py::isinstance<py::array>(out)) throw py::type_error("out must be an array or None");
  const auto array = py::reinterpret_borrow<py::array>(out);
  const SampleFormat format = FormatOf(array.dtype(), white);
  if (format != from->picture.format || !array.attr("shape").equal(from->array.attr("shape"))) {
    throw py::value_error("out must have the shape and type of the array: " +
                          Text(from->array.attr("shape")) + " of " + Text(from->array.dtype()));
  }
  if (!array.writeable() || !IsInPlaceForEngine(array)) {
    throw py::value_error("out must be writeable, aligned and in the machine's byte order");
  }
  if (!IsSameView(array, from->array) && NumPy("may_share_memory")(array, from->array).cast<bool>()) {
    from->array = from->array.attr("copy")();
    from->picture = ViewOf(from->array, format);
  }
  return {array, ViewOf(array, format), from->hasAlpha};
}

bool HasUsableLevels(const PictureView& picture) {
  if (picture.format != SampleFormat::kFloat) return true;
  for (int32_t c = 0; c < picture.channels; ++c) {
    const ChannelView& channel = picture.channel[c];
    for (int32_t y = 0; y < picture.height; ++y) {
      for (int32_t x = 0; x < picture.width; ++x) {
        const float level =
            *reinterpret_cast<const float*>(channel.data + y * channel.rowBytes + x * channel.pixelBytes);
        if (!(std::fabs(level) <= kLargestFloat)) return false;
      }
    }
  }
  return true;
}

void CopyArray(const ArrayPicture& from, const ArrayPicture& to) {
  if (!IsSameView(from.array, to.array)) NumPy("copyto")(to.array, from.array);
}

void CopyAlpha(const ArrayPicture& from, const ArrayPicture& to) {
  if (!from.hasAlpha || IsSameView(from.array, to.array)) return;
  const py::tuple alpha = py::make_tuple(py::ellipsis(), 3);
  to.array[alpha] = from.array[alpha];
}

}  // namespace tessaline::python
