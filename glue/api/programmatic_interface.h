// The programmatic interface behind its exported names: instances, and one image. What the functions promise
// to outside callers stands in tessaline_legacy.h; here is what the program itself may set and ask.
#pragma once

#include <cstddef>
#include <cstdint>

#include "glue/parameters/parameter_list.h"
#include "glue/run/removal_run.h"
#include "include/tessaline/tessaline_legacy.h"

namespace tessaline {

constexpr int32_t kRefused = TESSALINE_REFUSED;
constexpr uint32_t kInstanceTextBytes = 4096;

// Who started the run: 0 for the host, else one of the three. Program-wide; the run does not look at it.
constexpr uint32_t kCallerOsapi = FourCharCode("InpA");
constexpr uint32_t kCallerMtapi = FourCharCode("MorF");
constexpr uint32_t kCallerAlias = FourCharCode("Altr");
extern uint32_t callerCode;

// What every run of the interface is given: a module with a preview dialog sets openDialog once, when it is
// loaded. Until then a run that asks for the dialog goes without.
void SetInterfaceContext(const RunDoor& context);

// True once a bad image record was handed in.
bool HasFailed();
// As if the library had just been loaded. For tests alone: outside callers count on the state lasting.
void ResetInterface();

// Behind the exports, which hold the turn (glue/parameters/door.h) and let no exception out.
int32_t CreateInstance(TessalineInstance* instance);
void FreeInstance(TessalineInstance* instance);
int32_t ProcessImage(TessalineInstance* instance, const TessalineImage* image, bool showDialog,
                     uint32_t caller);

// Writes "Memory has been released" over the `bytes` bytes of a block that is about to be freed, as much of
// it as fits before a closing NUL.
void MarkReleased(char* block, size_t bytes);

// True for an instance without a text capacity: FreeInstance had it or CreateInstance never did, and its
// pointers must not be followed.
bool WasReleased(const TessalineInstance& instance);

// True for the six kinds.
bool IsKnownKind(int32_t kind);
// True when an image of that kind and positive size can be processed: it stays below 2^31 bytes, and the
// second-row kinds have a second row.
bool FitsInterface(int32_t width, int32_t height, int32_t kind);

}  // namespace tessaline
