// The run as the host's side knows it: over a buffer of the table, with its dialog, its message and its
// codes. The work is that of the four steps (removal/steps.h).
#pragma once

#include <cstdint>

#include "buffers/run_context.h"
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"
#include "removal/steps.h"

namespace tessaline {

// What a run needs from whoever starts it. Every callback may be null.
struct RunDoor {
  RunContext progress;

  // Opens the preview dialog on the source slot; it may change the three values. Returns 0 for OK,
  // kOutOfMemory where it could not be set up, anything else for cancel. Null: there is no dialog to open.
  int32_t (*openDialog)(void* user, int32_t sourceSlot, FilterParameters* parameters) = nullptr;
  void* user = nullptr;  // handed to openDialog
};

// True, after a message to the user, for an image larger than kLargestSide. A run asks by itself; for callers
// that would have to fetch the image first.
bool RefuseTooLarge(int32_t width, int32_t height);

// Takes the pattern out of the buffer in `sourceSlot`, in place. With `suppressDialog`, or without an
// openDialog, the values in `parameters` are used and neither the list nor the settings record is touched.
// After a dialog that ended with OK both receive the chosen values. `list` may be null. Values that are no
// numbers take their defaults first and others are cut to their ranges, in `parameters` too.
//
// Cancelling is possible until the second pass begins; from then on channels are being replaced, so the abort
// check is still called (a host may need it to stay alive) but its answer is not taken.
//
// Where no cell is marked as pattern there is no second pass: the source keeps every sample.
//
// Returns 0; kUserCancelled, source unchanged, when the user cancelled or (after a message) the image is
// larger than 7500 on a side; kUnknownPixelKind, source unchanged, for an unsupported or empty source;
// kOutOfMemory, source unchanged, when working memory cannot be had.
int32_t RunRemoval(int32_t sourceSlot, FilterParameters* parameters, ParameterList* list, bool suppressDialog,
                   const RunDoor& door);

}  // namespace tessaline
