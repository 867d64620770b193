// What Python sees of a spectrum, a decision on it, and a mask.
#pragma once

#include <pybind11/numpy.h>

#include <memory>
#include <utility>
#include <vector>

#include "python/call.h"
#include "removal/notches.h"
#include "removal/steps.h"
#include "restoration/picture_tiles.h"

namespace tessaline::python {

// tessaline.Mask
class PythonMask {
 public:
  explicit PythonMask(Mask mask);
  // From 512 x 512 bytes, which are copied. Throws ValueError.
  static std::shared_ptr<PythonMask> FromArray(const pybind11::array& cells);

  const Mask& mask() const { return mask_; }
  bool IsEmpty() const { return isEmpty_; }

  // Only with Python's lock held, which guards the list.
  std::unique_ptr<CallMemory> TakeMemory();
  void GiveBack(std::unique_ptr<CallMemory> memory) { idle_.push_back(std::move(memory)); }

 private:
  Mask mask_;
  bool isEmpty_;
  std::vector<std::unique_ptr<CallMemory>> idle_;  // of calls that have ended
};

// What every decision on a picture needs of it.
struct ExaminedPicture {
  Analysis spectrum;
  PictureTiles tiles;  // to check licences in
};

// tessaline.Analysis: a spectrum, which several decisions can share, and one of them. Never changes.
struct PythonAnalysis {
  std::shared_ptr<const ExaminedPicture> examined;
  pybind11::object resolution;  // None, or pixels per inch as (horizontal, vertical)
  Settings settings;
  Findings findings;
  std::vector<Notch> notches;
  std::shared_ptr<PythonMask> mask;
};

// None, a number or two. Throws ValueError.
pybind11::object ReadResolution(const pybind11::object& resolution);

// DecideWhole and Shape. Throws std::bad_alloc.
std::shared_ptr<PythonAnalysis> DecideOn(std::shared_ptr<const ExaminedPicture> examined,
                                         const Settings& settings, pybind11::object resolution);

// Lists of the named tuples that `module` holds as "Peak" and "Notch".
void AddTuples(pybind11::module_& module);
pybind11::list PeaksOf(const PythonAnalysis& analysis);
pybind11::list NotchesOf(const PythonAnalysis& analysis);

// A grid of 512 x 512 as a read-only array that keeps `owner`.
pybind11::array GridArray(const ConstImageView& grid, const pybind11::object& owner);
// DrawSpectrum as an array of (rows, 512, 3).
pybind11::array DrawingOf(const PythonAnalysis& analysis);

}  // namespace tessaline::python
