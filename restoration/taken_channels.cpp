#include "restoration/taken_channels.h"

#include <algorithm>

#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr int32_t kPart = Noise::kPart;  // pixels that are worked on at once

// Where the filtered samples are linear light it is that which goes in part. Where the gate is closed levels
// stay exactly as they are. Filtered samples stand two floats apart; they become what remains, in levels.
void TakeLightOut(const ToneCurve& light, const float* levels, const float* open, int32_t count,
                  float* filtered) {
  for (int32_t x = 0; x < count; ++x) {
    const float before = light.LightOf(levels[x]);
    const float after = light.LevelOf(before - (before - filtered[2 * x]) * open[x]);
    filtered[2 * x] = open[x] > 0.0f ? after : levels[x];
  }
}

}  // namespace

bool TakenChannels::Prepare(const PictureView& picture, const Gate& gate, const ToneCurve* light,
                            Noise& noise, Workspace& workspace) {
  picture_ = picture;
  gate_ = &gate;
  light_ = light;
  noise_ = &noise;
  lastRows_.resize(static_cast<size_t>(picture.height));
  const size_t samples = static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height) *
                         static_cast<size_t>(picture.channels - 1);
  const bool isCoded = picture.format == SampleFormat::kByte;
  void* const memory = workspace.KeptMemory(samples * (isCoded ? sizeof(int16_t) : sizeof(float)));
  if (isCoded) {
    codes_ = static_cast<int16_t*>(memory);
  } else {
    floats_ = static_cast<float*>(memory);
  }
  return memory != nullptr;
}

size_t TakenChannels::PlaceOf(int32_t channel, int32_t y) const {
  const auto row =
      static_cast<size_t>(channel) * static_cast<size_t>(picture_.height) + static_cast<size_t>(y);
  return row * static_cast<size_t>(picture_.width);
}

void TakenChannels::OpenRow(const PixelPart& part, float* open) const {
  const int32_t block = part.first / Gate::kReduction;
  gate_->Row(part.y, block, std::min(kPart / Gate::kReduction, gate_->blocks() - block), open);
}

void TakenChannels::Take(int32_t channel, int32_t y, float* filtered) {
  if (light_ != nullptr) {  // whose samples have no even steps: the gate's turn is now
    float levels[kPart], open[kPart];
    for (int32_t first = 0; first < picture_.width; first += kPart) {
      const PixelPart part{y, first, std::min(kPart, picture_.width - first)};
      LoadPart(picture_, {channel, y, first, part.count}, levels);
      OpenRow(part, open);
      TakeLightOut(*light_, levels, open, part.count, filtered + 2 * first);
    }
  }
  if (!IsLast(channel)) {
    Keep(channel, y, filtered);
    return;
  }
  lastRows_[static_cast<size_t>(y)] = filtered;
  if ((y + 1) % Noise::kReduction == 0 || y + 1 == picture_.height) {
    TakeOutBlocks(y / Noise::kReduction * Noise::kReduction);
  }
}

void TakenChannels::Keep(int32_t channel, int32_t y, const float* filtered) {
  if (codes_ != nullptr) {
    ActiveRowKernels().encode(picture_.width, filtered, codes_ + PlaceOf(channel, y));
  } else {
    ActiveRowKernels().everySecond(picture_.width, filtered, floats_ + PlaceOf(channel, y));
  }
}

void TakenChannels::TakeOutRow(const PixelPart& part, const LevelRows& levels, const float* open,
                               const LevelRows& taken) {
  const RowKernels& kernels = ActiveRowKernels();
  for (int32_t c = 0; c < picture_.channels; ++c) {
    const size_t place = PlaceOf(c, part.y) + static_cast<size_t>(part.first);
    if (IsLast(c)) {
      float* const row = lastRows_[static_cast<size_t>(part.y)] + 2 * part.first;
      kernels.takeOut[1](part.count, levels[c], open, row, taken[c]);
    } else if (codes_ != nullptr) {
      kernels.takeOutOfCodes(part.count, levels[c], open, codes_ + place, taken[c]);
    } else {
      kernels.takeOut[0](part.count, levels[c], open, floats_ + place, taken[c]);
    }
  }
}

void TakenChannels::TakeOutBlocks(int32_t firstRow) {
  const int32_t endRow = std::min(firstRow + Noise::kReduction, picture_.height);
  alignas(64) float levels[kMostChannels][kPart], taken[kMostChannels][kPart], open[kPart];
  const LevelRows levelRows = {levels[0], levels[1], levels[2]}, takenRows = {taken[0], taken[1], taken[2]};
  if (light_ != nullptr) std::fill_n(open, kPart, 1.0f);
  for (int32_t first = 0; first < picture_.width; first += kPart) {
    PixelPart part{firstRow, first, std::min(kPart, picture_.width - first)};
    alignas(64) Noise::Squares squares;
    for (; part.y < endRow; ++part.y) {
      LoadChannels(picture_, part, levelRows);
      if (light_ == nullptr) OpenRow(part, open);
      TakeOutRow(part, levelRows, open, takenRows);
      noise_->AddRow(part.count, takenRows, &squares);
    }
    noise_->KeepBlocks({firstRow, first, part.count}, squares);
  }
}

void TakenChannels::Load(const PixelPart& part, const LevelRows& levels) const {
  const RowKernels& kernels = ActiveRowKernels();
  for (int32_t c = 0; c < picture_.channels; ++c) {
    const size_t place = PlaceOf(c, part.y) + static_cast<size_t>(part.first);
    if (IsLast(c)) {
      kernels.everySecond(part.count, lastRows_[static_cast<size_t>(part.y)] + 2 * part.first, levels[c]);
    } else if (codes_ != nullptr) {
      kernels.decode(part.count, codes_ + place, levels[c]);
    } else {
      std::copy_n(floats_ + place, part.count, levels[c]);
    }
  }
}

void TakenChannels::Replace(const PixelPart& part, const LevelRows& levels) {
  for (int32_t c = 0; c < picture_.channels; ++c) {
    const size_t place = PlaceOf(c, part.y) + static_cast<size_t>(part.first);
    float apart[2 * kMostReplaced];
    float* const row = IsLast(c) ? lastRows_[static_cast<size_t>(part.y)] + 2 * part.first : apart;
    for (int32_t x = 0; x < part.count; ++x) row[2 * x] = levels[c][x];
    if (IsLast(c)) continue;
    if (codes_ != nullptr) {
      ActiveRowKernels().encode(part.count, apart, codes_ + place);
    } else {
      std::copy_n(levels[c], part.count, floats_ + place);
    }
  }
}

}  // namespace tessaline
