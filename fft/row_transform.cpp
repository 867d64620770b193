#include "fft/row_transform.h"

#include <bit>
#include <cstddef>

#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "fft/vector_engine.h"

namespace tessaline {

bool RowTransform::Prepare(int32_t length, Precision precision) {
  length_ = static_cast<uint32_t>(length);
  useDoubleKernels_ = precision == Precision::kDouble;
  if (!useDoubleKernels_) {
    table_ = AllocateBlock<float>(size_t{length_} + 2);
    if (table_ == nullptr) return false;
    MakeCosineTable(&log2Length_, length, table_.get());
    return true;
  }
  const int log2Length = std::bit_width(length_) - 1;
  if (std::has_single_bit(length_) && log2Length >= kShortestVectorLog2 && log2Length <= kLongestVectorLog2) {
    const auto& byInverse = activeVectorEngine->transformWidened[log2Length - kShortestVectorLog2];
    widened_[static_cast<int>(Direction::kForward)] = byInverse[1];
    widened_[static_cast<int>(Direction::kInverse)] = byInverse[0];
    return true;
  }
  scratch_ = AllocateBlock<double>(2 * (size_t{length_} + 2));
  return scratch_ != nullptr;
}

void RowTransform::operator()(float* row, Direction direction) const {
  const bool isForward = direction == Direction::kForward;
  if (widened_[static_cast<int>(direction)] != nullptr) {
    widened_[static_cast<int>(direction)](row);
  } else if (useDoubleKernels_) {
    // `inverse` of FftComplexFloat names the exp(-) kernels, which make the forward transform.
    FftComplexFloat(isForward, row, length_, scratch_.get());
  } else if (std::has_single_bit(length_)) {
    // Other lengths have no transform: such rows stay, as they do with the double kernels.
    (isForward ? FloatFft : FloatFftInverse)(row, log2Length_, table_.get());
  }
}

}  // namespace tessaline
