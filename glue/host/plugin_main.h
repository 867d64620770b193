// The filter's entry point, and the one routine in which it does its work.
#pragma once

#include <cstdint>

#include "glue/host/host_records.h"

// What the host calls, once per selector. Returns, and stores through `result`, the selector's 16-bit code: 0
// done, negative a host's error code, -128 cancelled (glue/host/host_records.h tells the selectors and
// records). An unknown selector leaves the host's result as it is. Null is allowed for `data` and `result`; a
// start or continue selector without a parameter block is kParameterError. No exception leaves it: what
// throws ends with kOutOfMemory, cleaned up.
//
// A start while another call into the module is at work, from another thread or out of its open dialog, is
// refused at once with nothing touched: kReportString with the reason in the host's error string, or
// kUserCancelled in a host without one.
//
// The name is the one in the module's resources: C linkage, no decoration.
extern "C" intptr_t PluginMain(int16_t selector, void* parameterBlock, intptr_t* data, int16_t* result);

namespace tessaline {

struct FilterParameters;

// What the host passed to the call in progress. Program-wide; the pointers are the host's and mean nothing
// between calls.
struct HostCall {
  void* parameterBlock;
  intptr_t* data;
  int16_t* result;
  host::SPBasicSuite* basicSuite;  // null in some hosts
};
extern HostCall hostCall;

// Opens the preview dialog over `ownerWindow` (the host's, may be null) on the buffer in `sourceSlot`; it may
// change the parameters. Returns 0 for OK, kOutOfMemory where it could not be set up, anything else for
// cancel. Null, as it is at first: no run opens a dialog. Returns the opener that was in force.
using DialogOpener = int32_t (*)(void* ownerWindow, int32_t sourceSlot, FilterParameters* parameters);
DialogOpener SetDialogOpener(DialogOpener opener);

// The start selector: fetches the work rectangle, takes the pattern out, and writes picture, scripting
// parameters and preferences back. Whatever the result, all buffers and handles are released.
//
// Returns 0; the code of a host that fails to deliver or to take the picture; kUserCancelled; kOutOfMemory;
// or, for planes that a run cannot take (CMYK and every mode but greyscale, RGB and Lab), kReportString with
// the reason in the host's error string (kUnknownPixelKind in a host without one). On anything but 0 nothing
// was recorded, no preferences written and nothing written back; unless the host itself failed in taking the
// picture: its code is the result then, and the values are recorded and kept as after any other run.
//
// 32-bit pictures end with 0 unchanged, as do those of a bitmap or unknown mode (after a message) and a
// selection without a pixel of coverage 128 or more.
int32_t MainGlueProcess(host::FilterRecord* record);

}  // namespace tessaline
