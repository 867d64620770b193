#include "python/findings.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "removal/spectrum_picture.h"
#include "restoration/decision.h"

namespace py = pybind11;

namespace tessaline::python {

namespace {

void Demand(int32_t result) {
  if (result != kSuccess) throw std::bad_alloc();
}

bool IsEmptyGrid(const ConstImageView& grid) {
  const uint8_t* const end = grid.data + size_t{kSpectrumCells} * kSpectrumCells;
  return std::all_of(grid.data, end, [](uint8_t cell) { return cell == 0; });
}

py::object TupleType(const char* name) {
  return py::module_::import("tessaline._tessaline").attr(name);
}

template <typename Found>
py::object LinesOrNone(const Found& found, const py::object& resolution) {
  if (resolution.is_none()) return py::none();
  const auto [x, y] = resolution.cast<std::pair<double, double>>();
  return py::float_(LinesPerInch(found, x, y));
}

}  // namespace

PythonMask::PythonMask(Mask mask) : mask_(std::move(mask)), isEmpty_(IsEmptyGrid(mask_.cells.view())) {}

std::shared_ptr<PythonMask> PythonMask::FromArray(const py::array& cells) {
  if (!cells.dtype().equal(py::dtype::of<uint8_t>()) || cells.ndim() != 2 ||
      cells.shape(0) != kSpectrumCells || cells.shape(1) != kSpectrumCells) {
    throw py::value_error("a mask is an array of shape (512, 512) of uint8, not " +
                          std::string(py::str(cells.attr("shape"))) + " of " +
                          std::string(py::str(cells.dtype())));
  }
  Mask mask;
  if (!mask.cells.Create(kSpectrumCells, kSpectrumCells, 1)) throw std::bad_alloc();
  const auto from = cells.unchecked<uint8_t, 2>();
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    for (int32_t x = 0; x < kSpectrumCells; ++x) mask.cells.view().Row(y)[x] = from(y, x);
  }
  return std::make_shared<PythonMask>(std::move(mask));
}

std::unique_ptr<CallMemory> PythonMask::TakeMemory() {
  if (idle_.empty()) return std::make_unique<CallMemory>();
  std::unique_ptr<CallMemory> memory = std::move(idle_.back());
  idle_.pop_back();
  return memory;
}

py::object ReadResolution(const py::object& resolution) {
  if (resolution.is_none()) return resolution;
  const bool isPair = py::isinstance<py::sequence>(resolution);
  py::object pair = isPair ? py::object(py::tuple(resolution)) : py::make_tuple(resolution, resolution);
  if (py::len(pair) != 2) throw py::value_error("resolution must be a number of pixels per inch, or two");
  for (const py::handle& value : pair) {
    const double number = py::float_(py::reinterpret_borrow<py::object>(value));
    if (!(number > 0.0) || !std::isfinite(number)) throw py::value_error("resolution must be above 0");
  }
  return pair;
}

std::shared_ptr<PythonAnalysis> DecideOn(std::shared_ptr<const ExaminedPicture> examined,
                                         const Settings& settings, py::object resolution) {
  auto decided = std::make_shared<PythonAnalysis>();
  Mask mask;
  {
    const py::gil_scoped_release letGo;
    Workspace workspace;
    Demand(DecideWhole(examined->tiles, examined->spectrum, settings, workspace, &decided->findings));
    Demand(Shape(decided->findings, settings, &mask));
    decided->notches = CollectNotches(examined->spectrum, decided->findings);
  }
  decided->examined = std::move(examined);
  decided->resolution = std::move(resolution);
  decided->settings = settings;
  decided->mask = std::make_shared<PythonMask>(std::move(mask));
  return decided;
}

void AddTuples(py::module_& module) {
  const auto add = [&](const char* name, const char* fields, const char* doc) {
    const py::object type =
        py::module_::import("collections").attr("namedtuple")(name, fields, py::arg("module") = "tessaline");
    type.attr("__doc__") = doc;
    module.attr(name) = type;
  };
  add("Peak", "dx dy period angle lines_per_inch height isolation is_licensed is_used verdict",
      R"(A peak of the spectrum that the automatic decision weighed.

dx, dy          spectrum cells from the zero frequency, dy <= 0; a cell at distance r has a period of 512 / r pixels
period          pixels
angle           degrees, 0 <= angle < 180: the direction of the repeat, counter-clockwise from the x axis
lines_per_inch  None where no resolution was given
height          natural log over the usual magnitude nearby
isolation       natural log over the highest cell 4 to 12 cells away
is_licensed     high and isolated enough to allow removal at all
is_used         its cells are in the mask
verdict         "used", or why not: "text lines", "blocks", "windows", "skirt", "not isolated", "no licence")");
  add("Notch", "dx dy period angle lines_per_inch level above_threshold cells",
      R"(A repeating pattern, or one harmonic of it, that the mask takes out.

dx, dy           the strongest cell, in spectrum cells from the zero frequency, dy <= 0
period           pixels, finer than a cell
angle            degrees, 0 <= angle < 180, across the pattern's lines: 0 for upright lines, 90 for level ones
lines_per_inch   None where no resolution was given
level            of the strongest cell after peak enhancement, 0 to 32768
above_threshold  level less the threshold; None for acceptance="auto"
cells            pattern cells of one of the two symmetric halves)");
}

py::list PeaksOf(const PythonAnalysis& analysis) {
  const py::object type = TupleType("Peak");
  py::list peaks;
  for (const SpectrumPeak& peak : analysis.findings.peaks) {
    peaks.append(type(peak.dx, peak.dy, peak.period, peak.angle, LinesOrNone(peak, analysis.resolution),
                      peak.height, peak.isolation, peak.isLicensed, peak.verdict == PeakVerdict::kUsed,
                      VerdictWords(peak)));
  }
  return peaks;
}

py::list NotchesOf(const PythonAnalysis& analysis) {
  const py::object type = TupleType("Notch");
  py::list notches;
  for (const Notch& notch : analysis.notches) {
    const py::object above =
        analysis.settings.isAutomatic ? py::object(py::none()) : py::object(py::int_(notch.aboveThreshold));
    notches.append(type(notch.dx, notch.dy, notch.periodPixels, notch.angleDegrees,
                        LinesOrNone(notch, analysis.resolution), notch.level, above, notch.cells));
  }
  return notches;
}

py::array GridArray(const ConstImageView& grid, const py::object& owner) {
  const py::dtype type = grid.bytesPerPixel == 1 ? py::dtype::of<uint8_t>() : py::dtype::of<uint16_t>();
  py::array array(type, {grid.height, grid.width}, {grid.rowBytes, ptrdiff_t{grid.bytesPerPixel}}, grid.data,
                  owner);
  array.attr("flags").attr("writeable") = false;
  return array;
}

py::array DrawingOf(const PythonAnalysis& analysis) {
  const std::vector<uint8_t> drawn = DrawSpectrum(analysis.examined->spectrum, analysis.findings,
                                                  analysis.mask->mask(), analysis.settings.protectionRadius);
  const auto rows = static_cast<py::ssize_t>(drawn.size()) / (3 * kSpectrumCells);
  return py::array_t<uint8_t>({rows, py::ssize_t{kSpectrumCells}, py::ssize_t{3}}, drawn.data());
}

}  // namespace tessaline::python
