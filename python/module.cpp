// The extension module tessaline._tessaline, which the package tessaline shows to the world.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>

#include "python/array_picture.h"
#include "python/findings.h"
#include "restoration/restoration.h"
#include "tiling/any_size.h"

namespace py = pybind11;
using namespace py::literals;

namespace tessaline::python {

namespace {

double InRange(const char* name, const py::handle& value, const SettingRange& range) {
  const double number = py::float_(py::reinterpret_borrow<py::object>(value));
  const auto asFloat = static_cast<float>(number);  // as the bounds are: 1.3 is not above them
  if (asFloat >= range.minimum && asFloat <= range.maximum) return number;
  const auto plain = [](double bound) { return std::string(py::str("{:.3g}").format(bound)); };
  throw py::value_error(std::string(name) + " must be from " + plain(range.minimum) + " to " +
                        plain(range.maximum) + ", not " + std::string(py::str(value)));
}

// What analyse, decide and clean take to decide by.
Settings ReadSettings(const py::object& acceptance, const py::object& sensitivity,
                      const py::object& notchRadius, const py::object& protectionRadius) {
  Settings settings;
  if (py::isinstance<py::str>(acceptance)) {
    if (acceptance.cast<std::string>() != "auto") {
      throw py::value_error("acceptance must be \"auto\" or a number from 0 to 100");
    }
    settings.isAutomatic = true;
  } else {
    settings.acceptance = static_cast<float>(InRange("acceptance", acceptance, kAcceptanceRange));
  }
  settings.sensitivity = InRange("sensitivity", sensitivity, kSensitivityRange);
  settings.notchRadius = static_cast<float>(InRange("notch_radius", notchRadius, kNotchRadiusRange));
  settings.protectionRadius =
      static_cast<float>(InRange("protection_radius", protectionRadius, kProtectionRadiusRange));
  return settings;
}

Light ReadLight(const std::string& name) {
  constexpr std::pair<const char*, Light> kLights[] = {
      {"auto", Light::kAuto}, {"coded", Light::kCoded}, {"linear", Light::kLinear}};
  for (const auto& [known, light] : kLights) {
    if (name == known) return light;
  }
  throw py::value_error("light must be \"auto\", \"coded\" or \"linear\", not \"" + name + "\"");
}

std::optional<ToneCurve> ReadLightCurve(const py::object& values) {
  if (values.is_none()) return std::nullopt;
  const auto light = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(values);
  ToneCurve curve;
  if (!light || light.ndim() != 1 || light.size() > 65536 ||
      !curve.Create(light.data(), static_cast<int32_t>(light.size()))) {
    PyErr_Clear();
    throw py::value_error("light_curve must be 2 to 65536 numbers that never fall, the last above the first");
  }
  return curve;
}

// The levels that the program writes; in the range that only arrays and files use, the nearest.
Rounding RoundingFor(SampleFormat format) {
  return format == SampleFormat::kFull16 ? Rounding::kNearest : Rounding::kTruncate;
}

void DemandUsableLevels(const PictureView& picture) {
  bool isUsable = false;
  {
    const py::gil_scoped_release letGo;
    isUsable = HasUsableLevels(picture);
  }
  if (!isUsable) {
    throw py::value_error(
        "the array holds values that are no numbers or beyond a million; float32 levels go "
        "from 0 to 1");
  }
}

std::shared_ptr<ExaminedPicture> AnalysePart(const PictureView& picture, Call& call, double end) {
  DemandUsableLevels(picture);
  auto examined = std::make_shared<ExaminedPicture>();
  call.Run(0.0, end, [&](Workspace& workspace, const Progress& progress) {
    return AnalyseAnySize(picture, workspace, progress, &examined->spectrum, &examined->tiles);
  });
  return examined;
}

// remove(workspace, options, progress) takes what `mask` takes from `from` into `to`; alpha goes along.
template <typename Remove>
void RemovePart(const ArrayPicture& from, const ArrayPicture& to, const PythonMask& mask,
                const PaddingChain& chain, Call& call, double begin, const Remove& remove) {
  if (mask.IsEmpty()) {  // sample for sample
    CopyArray(from, to);
  } else {
    ApplyOptions options;
    options.rounding = RoundingFor(from.picture.format);
    options.chain = chain;
    call.Run(begin, 1.0, [&](Workspace& workspace, const Progress& progress) {
      return remove(workspace, options, progress);
    });
    CopyAlpha(from, to);
  }
  call.Finish();
}

std::shared_ptr<PythonAnalysis> AnalyseArray(const py::array& array, const py::object& acceptance,
                                             const py::object& sensitivity, const py::object& notchRadius,
                                             const py::object& protectionRadius, int white,
                                             const py::object& resolution, std::optional<int> threads,
                                             const py::object& progress) {
  const Settings settings = ReadSettings(acceptance, sensitivity, notchRadius, protectionRadius);
  const py::object perInch = ReadResolution(resolution);
  const ArrayPicture from = ReadArray(array, white);
  CallMemory memory;
  Call call(threads, progress, memory);
  auto analysis = DecideOn(AnalysePart(from.picture, call, 1.0), settings, perInch);
  call.Finish();
  return analysis;
}

py::array CleanArray(const py::array& array, const py::object& acceptance, const py::object& sensitivity,
                     const py::object& notchRadius, const py::object& protectionRadius, bool everywhere,
                     const py::object& polish, const std::string& light, const py::object& lightCurve,
                     int white, std::optional<int> threads, const py::object& out,
                     const py::object& progress) {
  constexpr double kLooked = 0.5;  // looking costs about as much as removing
  const Settings settings = ReadSettings(acceptance, sensitivity, notchRadius, protectionRadius);
  RestorationSettings restoration;
  restoration.everywhere = everywhere;
  restoration.polish = static_cast<float>(InRange("polish", polish, kPolishRange));
  const std::optional<ToneCurve> curve = ReadLightCurve(lightCurve);
  restoration.light = {ReadLight(light), curve ? &*curve : nullptr};
  ArrayPicture from = ReadArray(array, white);
  const ArrayPicture to = ArrayForResult(out, white, &from);
  CallMemory memory;
  Call call(threads, progress, memory);
  const std::shared_ptr<ExaminedPicture> examined = AnalysePart(from.picture, call, kLooked);
  const PaddingChain chain = examined->spectrum.chain;
  const auto analysis = DecideOn(examined, settings, py::none());
  RemovePart(from, to, *analysis->mask, chain, call, kLooked,
             [&](Workspace& workspace, const ApplyOptions& options, const Progress& part) {
               const Mask& mask = analysis->mask->mask();
               return TakeOutAnySize(from.picture, to.picture, analysis->findings, mask, workspace, options,
                                     restoration, part);
             });
  return to.array;
}

py::array ApplyMask(PythonMask& mask, const py::array& array, const py::object& out, int white,
                    std::optional<int> threads, const py::object& progress) {
  ArrayPicture from = ReadArray(array, white);
  const ArrayPicture to = ArrayForResult(out, white, &from);
  DemandUsableLevels(from.picture);
  std::unique_ptr<CallMemory> memory = mask.TakeMemory();
  Call call(threads, progress, *memory);
  RemovePart(from, to, mask, {}, call, 0.0,
             [&](Workspace& workspace, const ApplyOptions& options, const Progress& part) {
               return TakeOutAnySize(from.picture, to.picture, {}, mask.mask(), workspace, options, {}, part);
             });
  mask.GiveBack(std::move(memory));
  return to.array;
}

constexpr const char* kModuleDoc =
    R"(Takes repeating patterns (halftone screens, line noise, scan textures) out of pictures.

Pictures are NumPy arrays of shape (H, W), (H, W, 1), (H, W, 3) or (H, W, 4), of any size:
uint8 of 0 to 255, uint16 of 0 to 65535 (or, with white=32768, 0 to 32768), float32 of 0 to 1, whose results may lie a
little outside. A fourth channel is alpha and left alone. Strides do not matter: slices, transposed and flipped
arrays are read and written where they lie. An array in foreign byte order or at an odd address is copied first.

What does not fit raises ValueError, memory that cannot be had MemoryError. Python's lock is released while the engine
computes; Ctrl-C ends a call, and so does an exception from a progress callback. Results have the same bits for any
number of threads.)";

constexpr const char* kCleanDoc =
    R"(The array without its repeating patterns, as a new array of its shape and type, or in `out`.

acceptance         "auto" finds it from the picture; or 0 to 100 percent, higher finds more
sensitivity        of "auto", 0.7 to 1.3; more takes fainter patterns
notch_radius       1 to 16 spectrum cells: how far round each peak frequencies are taken out
protection_radius  1 to 128 pixels: repeats longer than 512 / protection_radius pixels are left alone
everywhere         of "auto": also where the picture has no pattern, which is left alone otherwise
polish             of "auto", 0 to 2: how strongly to smooth what the notches leave of the pattern
light              of "auto": "linear" takes the pattern out of the light that levels stand for, in which a print's dots
                   average; "coded" out of the levels; "auto" out of light for a dot screen where light_curve is given
light_curve        the light, 0 to 1, of levels evenly spaced from black to white; None: not known, "linear" takes sRGB's
white              the level that uint16 calls white, 65535 or 32768
threads            1 to 256; None: all processors that the process may use
out                an array of the same shape and type, also the array itself; it is untouched or finished
progress           called with the part that is done, 0 to 1, on this thread, now and then; what it raises ends
                   the call and reaches the caller (once the result is being written, at its end)

Where no pattern is found, every sample is the one given. "auto" rounds to nearest, and so does uint16 of 0 to 65535; by
number uint8 and the uint16 of 0 to 32768 are rounded down. Samples of uint8 are those of the program.)";

constexpr const char* kAnalyseDoc = R"(What repeats in the array, as an Analysis; the array stays as it is.

resolution         pixels per inch, a number or (horizontal, vertical), for lines_per_inch
The other arguments are those of clean.)";

constexpr const char* kAnalysisDoc = R"(What analyse found. Keeps the spectrum, so that decide is cheap.)";

constexpr const char* kDecideDoc =
    R"(Another decision on the same spectrum, as a new Analysis. The arguments are those of clean.)";

constexpr const char* kMaskDoc = R"(How much of every frequency is taken out, for any number of pictures.

cells  a (512, 512) array of uint8 in any strides: 255 takes a frequency out, 0 keeps it. The zero frequency is at
       [256, 256]; a cell at distance r from it has a period of 512 / r pixels. A frequency and its opposite
       count as their mean.

A mask can be pickled and copied.)";

constexpr const char* kApplyDoc =
    R"(The array without what the mask takes out, as a new array or in `out`; arguments as for clean.

The picture is not looked at, which takes half the time of clean or less. The mask counts everywhere and nothing is
polished; whole numbers are rounded as clean by number does. One mask may be applied from several threads at once. It
keeps the memory of finished calls, one lot for each that ran at once, as long as it lives.)";

void AddMask(py::module_& module) {
  py::class_<PythonMask, std::shared_ptr<PythonMask>>(module, "Mask", kMaskDoc)
      .def(py::init(&PythonMask::FromArray), "cells"_a)
      .def_property_readonly(
          "cells",
          [](const py::object& self) {
            return GridArray(self.cast<const PythonMask&>().mask().cells.view(), self);
          },
          "The (512, 512) array of uint8, read-only, without a copy.")
      .def("__reduce__",
           [](const py::object& self) {
             return py::make_tuple(py::type::of(self), py::make_tuple(self.attr("cells")));
           })
      .def_property_readonly("is_empty", &PythonMask::IsEmpty, "Whether nothing is taken out.")
      .def("apply", ApplyMask, "array"_a, "out"_a = py::none(), py::kw_only(), "white"_a = 65535,
           "threads"_a = py::none(), "progress"_a = py::none(), kApplyDoc);
}

// An attribute that is a grid of the analysis.
template <typename Grid>
auto GridOf(Grid grid) {
  return [grid](const py::object& self) { return GridArray(grid(self.cast<const PythonAnalysis&>()), self); };
}

void AddAnalysis(py::module_& module) {
  using Self = PythonAnalysis;
  py::class_<Self, std::shared_ptr<Self>>(module, "Analysis", kAnalysisDoc)
      .def_property_readonly(
          "found", [](const Self& self) { return self.findings.seedCells > 0; },
          "Whether there is a pattern to take out.")
      .def_property_readonly("peaks", PeaksOf,
                             "Automatic decisions: all that stand out, as a list of Peak, highest first.")
      .def_property_readonly("notches", NotchesOf, "What is taken out, as a list of Notch, strongest first.")
      .def_property_readonly(
          "mask", [](const Self& self) { return self.mask; }, "The Mask of this decision.")
      .def_property_readonly(
          "transform_size", [](const Self& self) { return self.examined->spectrum.transformSize; },
          "N: the picture was transformed as N x N, a cell stands for N / 512 frequencies each way.")
      .def_property_readonly(
          "threshold",
          [](const Self& self) {
            return self.settings.isAutomatic ? std::nullopt : std::optional(self.findings.threshold);
          },
          "The level that a cell of `enhanced` had to exceed, 0 to 32768; None for \"auto\".")
      .def_property_readonly(
          "log_span", [](const Self& self) { return self.examined->spectrum.logSpan; },
          "The natural log that 32768 in `spectrum` stands for.")
      .def_property_readonly(
          "pattern_cells", [](const Self& self) { return self.findings.seedCells; },
          "Spectrum cells taken for pattern, both halves.")
      .def_property_readonly(
          "spectrum", GridOf([](const Self& self) { return self.examined->spectrum.rawGray16.view(); }),
          "The log spectrum, (512, 512) of uint16, 0 to 32768, read-only; the zero "
          "frequency is at [256, 256].")
      .def_property_readonly("enhanced",
                             GridOf([](const Self& self) { return self.examined->spectrum.gray16.view(); }),
                             "The same after its peaks were brought out.")
      .def_property_readonly(
          "seeds", GridOf([](const Self& self) { return self.findings.seeds.view(); }),
          "The cells taken for pattern, (512, 512) of uint8: 255, others 0; the mask grows from them.")
      .def("draw", DrawingOf,
           "The spectrum with what was found, (rows, 512, 3) of uint8: what is taken out in red, the "
           "protected "
           "disc in blue, peaks marked, a legend below.")
      .def(
          "decide",
          [](const Self& self, const py::object& acceptance, const py::object& sensitivity,
             const py::object& notchRadius, const py::object& protectionRadius) {
            const Settings settings = ReadSettings(acceptance, sensitivity, notchRadius, protectionRadius);
            return DecideOn(self.examined, settings, self.resolution);
          },
          "acceptance"_a = "auto", py::kw_only(), "sensitivity"_a = kSensitivityRange.standard,
          "notch_radius"_a = kNotchRadiusRange.standard,
          "protection_radius"_a = kProtectionRadiusRange.standard, kDecideDoc);
}

}  // namespace

PYBIND11_MODULE(_tessaline, module) {
  module.doc() = kModuleDoc;
  module.attr("__version__") = TESSALINE_VERSION;
  AddTuples(module);
  AddMask(module);
  AddAnalysis(module);
  module.def("clean", CleanArray, "array"_a, "acceptance"_a = "auto", py::kw_only(),
             "sensitivity"_a = kSensitivityRange.standard, "notch_radius"_a = kNotchRadiusRange.standard,
             "protection_radius"_a = kProtectionRadiusRange.standard, "everywhere"_a = false,
             "polish"_a = kPolishRange.standard, "light"_a = "auto", "light_curve"_a = py::none(),
             "white"_a = 65535, "threads"_a = py::none(), "out"_a = py::none(), "progress"_a = py::none(),
             kCleanDoc);
  module.def("analyse", AnalyseArray, "array"_a, "acceptance"_a = "auto", py::kw_only(),
             "sensitivity"_a = kSensitivityRange.standard, "notch_radius"_a = kNotchRadiusRange.standard,
             "protection_radius"_a = kProtectionRadiusRange.standard, "white"_a = 65535,
             "resolution"_a = py::none(), "threads"_a = py::none(), "progress"_a = py::none(), kAnalyseDoc);
}

}  // namespace tessaline::python
