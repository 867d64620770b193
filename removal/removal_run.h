// The run: one image without its repeating pattern.
#pragma once

#include <cstdint>

#include "fft/run_context.h"
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"

namespace tessaline {

constexpr int32_t kLargestSide = 7500;   // pixels, of the image or selection
constexpr int32_t kSpectrumCells = 512;  // side of every spectrum image and mask
constexpr int32_t kSpectrumCentre = kSpectrumCells / 2;

// Stages of a run, in the order in which they come.
enum class RemovalStage { kLoad, kPaddingFill, kForward, kSpectrum, kDialog, kMask, kSecondPass, kCount };

// What the run found, handed out when the mask stands and before any pixel is changed. Slots are valid during
// the call only.
struct RemovalFindings {
  int32_t transformSize;  // N
  int32_t gray16Slot;     // 512 x 512, 16-bit: log spectrum after the peak enhancement
  int32_t rawGray16Slot;  // the same before the enhancement
  int32_t seedSlot;       // 512 x 512 bytes: pattern cells 255
  int32_t maskSlot;       // 512 x 512 bytes: the softened notch mask
  int32_t seedCells;      // pattern cells in the seed map
  int32_t threshold;      // what a cell's enhanced value must exceed, 0..32768
  double logSpan;         // natural log of spectrum maximum over minimum, centre cross left out
};

// What a run needs from whoever starts it. Every callback may be null.
struct RemovalContext {
  RunContext progress;

  // Opens the preview dialog on the source slot; it may change the three values. Returns 0 for OK, anything
  // else for cancel. Null: there is no dialog to open.
  int32_t (*openDialog)(void* user, int32_t sourceSlot, FilterParameters* parameters) = nullptr;

  // Shows the findings. False ends the run there with 0 and the source unchanged.
  bool (*inspect)(void* user, const RemovalFindings& findings) = nullptr;

  // The run enters a stage (a stage is entered once per channel, or once).
  void (*enterStage)(void* user, RemovalStage stage) = nullptr;

  void* user = nullptr;  // handed to openDialog, inspect and enterStage
};

// True for the pixel kinds a run takes: 1, 2, 3 and 6 bytes per pixel.
bool CanRemoveFrom(int32_t bytesPerPixel);

// Takes the pattern out of the buffer in `sourceSlot`, in place. With `suppressDialog`, or without an
// openDialog, the values in `parameters` are used as they are and neither the list nor the settings record is
// touched. `list` may be null.
//
// Returns 0; kUserCancelled, source unchanged, when the user cancelled or (after a message) the image is
// larger than 7500 on a side; kUnknownPixelKind, source unchanged, for an unsupported or empty source;
// kOutOfMemory, source unchanged, when the working buffers cannot be had.
int32_t RunRemoval(int32_t sourceSlot, FilterParameters* parameters, ParameterList* list, bool suppressDialog,
                   const RemovalContext& context);

}  // namespace tessaline
