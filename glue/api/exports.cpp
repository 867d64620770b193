// The twelve exported names.
#include <cstddef>

#include "glue/api/frame_stream.h"
#include "glue/api/programmatic_interface.h"
#include "glue/parameters/door.h"
#include "image/result_codes.h"
#include "include/tessaline/tessaline_legacy.h"

// Records are laid out as callers in other languages declare them: natural alignment, 64-bit pointers.
static_assert(sizeof(TessalineInstance) == 24);
static_assert(offsetof(TessalineInstance, description) == 8 && offsetof(TessalineInstance, reserved) == 16 &&
              offsetof(TessalineInstance, textCapacity) == 20);
static_assert(sizeof(TessalineImage) == 24);
static_assert(offsetof(TessalineImage, height) == 4 && offsetof(TessalineImage, kind) == 8 &&
              offsetof(TessalineImage, pixels) == 16);
static_assert(offsetof(TessalineStream, kind) == 8 && offsetof(TessalineStream, firstFrame) == 12 &&
              offsetof(TessalineStream, lastFrame) == 16 && offsetof(TessalineStream, dialogFrame) == 20 &&
              offsetof(TessalineStream, inputPath) == 24 && offsetof(TessalineStream, outputPath) == 1048);

static_assert(int32_t{TESSALINE_NO_MEMORY} == tessaline::kOutOfMemory);
static_assert(int32_t{TESSALINE_CANCELLED} == tessaline::kUserCancelled);

namespace {

// For the calls that work in what all instances share. The other two touch nothing but their instance.
template <typename Call>
int32_t InTurn(Call call) {
  const tessaline::EngineTurn turn;
  return turn.IsMine() ? tessaline::WithoutExceptions(call) : tessaline::kRefused;
}

int32_t Process(TessalineInstance* instance, const TessalineImage* image, int64_t showDialog,
                uint32_t caller) {
  return InTurn([&] { return tessaline::ProcessImage(instance, image, showDialog != 0, caller); });
}

int32_t ProcessStream(TessalineInstance* instance, const TessalineStream* stream, int64_t showDialog,
                      uint32_t caller) {
  return InTurn([&] { return tessaline::ProcessStream(instance, stream, showDialog != 0, caller); });
}

}  // namespace

int32_t OSAPI_CreateInstance(TessalineInstance* instance) {
  return tessaline::WithoutExceptions([&] { return tessaline::CreateInstance(instance); });
}
int32_t MTAPI_CreateInstance(TessalineInstance* instance) {
  return OSAPI_CreateInstance(instance);
}
int32_t _Larch(TessalineInstance* instance) {
  return MTAPI_CreateInstance(instance);
}

void OSAPI_FreeInstance(TessalineInstance* instance) {
  tessaline::FreeInstance(instance);
}
void MTAPI_FreeInstance(TessalineInstance* instance) {
  OSAPI_FreeInstance(instance);
}
void _Birch(TessalineInstance* instance) {
  MTAPI_FreeInstance(instance);
}

int32_t OSAPI_Process(TessalineInstance* instance, const TessalineImage* image, int64_t showDialog) {
  return Process(instance, image, showDialog, tessaline::kCallerOsapi);
}
int32_t MTAPI_Process(TessalineInstance* instance, const TessalineImage* image, int64_t showDialog) {
  return Process(instance, image, showDialog, tessaline::kCallerMtapi);
}
int32_t _Alder(TessalineInstance* instance, const TessalineImage* image, int64_t showDialog) {
  return Process(instance, image, showDialog, tessaline::kCallerAlias);
}

int32_t OSAPI_ProcessStream(TessalineInstance* instance, const TessalineStream* stream, int64_t showDialog) {
  return ProcessStream(instance, stream, showDialog, tessaline::kCallerOsapi);
}
int32_t MTAPI_ProcessStream(TessalineInstance* instance, const TessalineStream* stream, int64_t showDialog) {
  return ProcessStream(instance, stream, showDialog, tessaline::kCallerMtapi);
}
int32_t _Cedar(TessalineInstance* instance, const TessalineStream* stream, int64_t showDialog) {
  return ProcessStream(instance, stream, showDialog, tessaline::kCallerAlias);
}
