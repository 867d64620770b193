// NumPy arrays as pictures: without a copy wherever the engine can read them as they lie in memory.
#pragma once

#include <pybind11/numpy.h>

#include "removal/picture.h"

namespace tessaline::python {

// A view of an array and what keeps its memory.
struct ArrayPicture {
  pybind11::array array;
  PictureView picture;
  bool hasAlpha = false;  // a fourth channel, which the picture leaves out
};

// `array` is (H, W), (H, W, 1), (H, W, 3) or (H, W, 4) of uint8, uint16 or float32; `white` is the level that
// uint16 calls white, 65535 or 32768. Foreign byte order and odd addresses are copied. Throws ValueError for
// anything else.
ArrayPicture ReadArray(const pybind11::array& array, int white);

// Where the result for `from` goes: a new array for None, else `out`, which must have its shape and type and
// be writeable. What overlaps it without being the same is copied away in `from`. Throws ValueError or
// TypeError.
ArrayPicture ArrayForResult(const pybind11::object& out, int white, ArrayPicture* from);

// Whether floats are numbers that the transforms can hold; other samples always are. Needs no Python.
bool HasUsableLevels(const PictureView& picture);

// All of `from`, or its alpha alone, into `to`.
void CopyArray(const ArrayPicture& from, const ArrayPicture& to);
void CopyAlpha(const ArrayPicture& from, const ArrayPicture& to);

}  // namespace tessaline::python
