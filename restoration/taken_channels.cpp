#include "restoration/taken_channels.h"

#include <algorithm>

#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr int32_t kPart = 512;  // pixels that are worked on at once

// Where the filtered samples are linear light it is that which goes in part. Where the gate is closed levels
// stay exactly as they are.
void TakeLightOut(const ToneCurve& light, const float* filtered, const float* open, int32_t count,
                  float* levels) {
  for (int32_t x = 0; x < count; ++x) {
    const float before = light.LightOf(levels[x]);
    const float after = light.LevelOf(before - (before - filtered[2 * x]) * open[x]);
    levels[x] = open[x] > 0.0f ? after : levels[x];
  }
}

}  // namespace

bool TakenChannels::Prepare(const PictureView& picture, const Gate& gate, const ToneCurve* light) {
  picture_ = picture;
  gate_ = &gate;
  light_ = light;
  lastRows_.resize(static_cast<size_t>(picture.height));
  const size_t samples = static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height) *
                         static_cast<size_t>(picture.channels - 1);
  if (picture.format == SampleFormat::kByte) {
    codes_ = AllocateBlock<int16_t>(samples);
    return codes_ != nullptr;
  }
  floats_ = AllocateBlock<float>(samples);
  return floats_ != nullptr;
}

size_t TakenChannels::PlaceOf(const RowPart& part) const {
  const auto row =
      static_cast<size_t>(part.channel) * static_cast<size_t>(picture_.height) + static_cast<size_t>(part.y);
  return row * static_cast<size_t>(picture_.width) + static_cast<size_t>(part.first);
}

void TakenChannels::Take(int32_t channel, int32_t y, float* filtered) {
  if (IsLast(channel)) lastRows_[static_cast<size_t>(y)] = filtered;
  float levels[kPart], open[kPart];
  for (int32_t first = 0; first < picture_.width; first += kPart) {
    const RowPart part{channel, y, first, std::min(kPart, picture_.width - first)};
    LoadPart(picture_, part, levels);
    const int32_t block = first / Gate::kReduction;
    gate_->Row(y, block, std::min(kPart / Gate::kReduction, gate_->blocks() - block), open);
    if (light_ != nullptr) {
      TakeLightOut(*light_, filtered + 2 * first, open, part.count, levels);
    } else {
      ActiveRowKernels().takeOut(part.count, filtered + 2 * first, open, levels);
    }
    Keep(part, levels);
  }
}

void TakenChannels::Load(const RowPart& part, float* levels) const {
  if (IsLast(part.channel)) {
    const float* const row = lastRows_[static_cast<size_t>(part.y)] + 2 * part.first;
    for (int32_t x = 0; x < part.count; ++x) levels[x] = row[2 * x];
  } else if (floats_) {
    std::copy_n(floats_.get() + PlaceOf(part), part.count, levels);
  } else {
    ActiveRowKernels().decode(part.count, codes_.get() + PlaceOf(part), levels);
  }
}

void TakenChannels::Keep(const RowPart& part, const float* levels) {
  if (IsLast(part.channel)) {
    float* const row = lastRows_[static_cast<size_t>(part.y)] + 2 * part.first;
    for (int32_t x = 0; x < part.count; ++x) row[2 * x] = levels[x];
  } else if (floats_) {
    std::copy_n(levels, part.count, floats_.get() + PlaceOf(part));
  } else {
    ActiveRowKernels().encode(part.count, levels, codes_.get() + PlaceOf(part));
  }
}

}  // namespace tessaline
