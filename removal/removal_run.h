// The run: one image without its repeating pattern.
#pragma once

#include <cstdint>

#include "fft/run_context.h"
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"
#include "removal/peak_detection.h"

namespace tessaline {

constexpr int32_t kLargestSide = 7500;  // pixels, of the image or selection

// What a run spends its time on. The first pass enters kLoad to kSpectrum once per channel, the second pass
// kLoad, kPaddingFill, kForward, kApplyMask, kInverse and kStore.
enum class RemovalStage {
  kLoad,  // a channel from the source into the transform plane
  kPaddingFill,
  kForward,
  kSpectrum,  // magnitudes, log scaling, peak enhancement
  kDialog,
  kMask,
  kApplyMask,
  kInverse,
  kStore,  // a channel back into the source
  kCount
};

// The spectrum that a detector decides on. Slots are valid during the call only; all are 512 x 512.
struct SpectrumFacts {
  int32_t transformSize;  // N
  int32_t rawGray16Slot;  // 16-bit: log spectrum, 0..32768, before the peak enhancement
  int32_t gray16Slot;     // 16-bit: the same after it
  double logSpan;         // natural log of spectrum maximum over minimum, centre cross left out
};

// What the run found, handed out when the mask stands and before any pixel is changed. Slots as above.
struct RemovalFindings {
  SpectrumFacts spectrum;
  int32_t seedSlot;   // bytes: pattern cells 255, others 0
  int32_t maskSlot;   // bytes: the finished notch mask
  int32_t seedCells;  // pattern cells in the seed map
  int32_t threshold;  // what a cell's enhanced value must exceed, 0..32768 (of the acceptance, used or not)
};

// What a run needs from whoever starts it. Every callback may be null.
struct RemovalContext {
  RunContext progress;

  // Opens the preview dialog on the source slot; it may change the three values. Returns 0 for OK, anything
  // else for cancel. Null: there is no dialog to open.
  int32_t (*openDialog)(void* user, int32_t sourceSlot, FilterParameters* parameters) = nullptr;

  // Fills the seed map (512 x 512 bytes, all 0) in place of the threshold test: a rule of its own, or a map
  // kept from another picture. Must be point-symmetric (removal/automatic_detection.h). Returns 0, or a
  // result that ends the run with the source unchanged. Null: the threshold test with the parameters'
  // acceptance.
  int32_t (*detect)(void* user, const SpectrumFacts& spectrum, const FilterParameters& parameters,
                    int32_t seedSlot) = nullptr;

  // Shows the findings, also where nothing was found. False ends the run there with 0 and the source
  // unchanged.
  bool (*inspect)(void* user, const RemovalFindings& findings) = nullptr;

  // The run enters a stage and leaves the one before.
  void (*enterStage)(void* user, RemovalStage stage) = nullptr;

  void* user = nullptr;  // handed to openDialog, detect, inspect and enterStage
};

// True for the pixel kinds a run takes: 1, 2, 3 and 6 bytes per pixel.
bool CanRemoveFrom(int32_t bytesPerPixel);

// True, after a message to the user, for an image larger than kLargestSide. A run asks by itself; for callers
// that would have to fetch the image first.
bool RefuseTooLarge(int32_t width, int32_t height);

// Side of the square transform for an image whose longer side is `side` pixels.
int32_t TransformSizeFor(int32_t side);

// Takes the pattern out of the buffer in `sourceSlot`, in place. Values in `parameters` that are no numbers
// first take their defaults, others are cut to their ranges (glue/parameters/filter_parameters.h). With
// `suppressDialog`, or without an openDialog, the values in `parameters` are used as they are and neither the
// list nor the settings record is touched. After a dialog that ended with OK both receive the chosen values.
// `list` may be null.
//
// Cancelling is possible until the second pass begins; from then on channels are being replaced, so the abort
// check is still called (a host may need it to stay alive) but its answer is not taken.
//
// Where no cell is marked as pattern there is no second pass: the source keeps every sample.
//
// Returns 0; kUserCancelled, source unchanged, when the user cancelled or (after a message) the image is
// larger than 7500 on a side; kUnknownPixelKind, source unchanged, for an unsupported or empty source;
// kOutOfMemory, source unchanged, when working memory cannot be had: all of it is taken before the first
// pixel changes.
int32_t RunRemoval(int32_t sourceSlot, FilterParameters* parameters, ParameterList* list, bool suppressDialog,
                   const RemovalContext& context);

}  // namespace tessaline
