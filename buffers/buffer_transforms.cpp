#include "buffers/buffer_transforms.h"

#include <new>

#include "buffers/buffer_table.h"
#include "buffers/host_progress.h"
#include "fft/fft_2d.h"
#include "image/result_codes.h"

namespace tessaline {

namespace {

int32_t TransformBuffer(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                        const TransformSteps& steps) {
  const ImageView image = ViewOf(slot);
  if (image.IsEmpty()) return kSuccess;
  try {
    HostProgress progress(showProgress ? context : nullptr, image.width, image.height, {steps});
    MarkDirty(slot);
    return Transform(image, steps.direction, useDoubleKernels ? Precision::kDouble : Precision::kSingle,
                     progress.progress());
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

}  // namespace

int32_t ForwardFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps) {
  return TransformBuffer(slot, showProgress, useDoubleKernels, context,
                         {Direction::kForward, firstStep, lastStep, totalSteps});
}

int32_t InverseFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps) {
  return TransformBuffer(slot, showProgress, useDoubleKernels, context,
                         {Direction::kInverse, firstStep, lastStep, totalSteps});
}

int32_t ApplySpectrumMask(int32_t spectrumSlot, int32_t maskSlot) {
  const int32_t result = MultiplyByMask(ViewOf(spectrumSlot), ViewOf(maskSlot));
  if (result == kSuccess) MarkDirty(spectrumSlot);
  return result;
}

}  // namespace tessaline
