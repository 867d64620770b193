#include "restoration/taken_channels.h"

#include <algorithm>

#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr int32_t kPart = Noise::kPart;  // pixels that are worked on at once

}  // namespace

bool TakenChannels::Prepare(const PictureView& picture, const Gate& gate, Tone& tone, Noise& noise,
                            Workspace& workspace) {
  picture_ = picture;
  gate_ = &gate;
  tone_ = &tone;
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

void TakenChannels::Expect(const PixelPart& part) const {
  constexpr size_t kLine = 64;
  const auto expect = [&](const void* begin, size_t bytes) {
    for (size_t i = 0; i < bytes; i += kLine) __builtin_prefetch(static_cast<const char*>(begin) + i);
  };
  const auto count = static_cast<size_t>(part.count);
  for (int32_t c = 0; c < picture_.channels; ++c) {
    const size_t place = PlaceOf(c, part.y) + static_cast<size_t>(part.first);
    if (IsLast(c)) {
      expect(lastRows_[static_cast<size_t>(part.y)] + 2 * part.first, 2 * count * sizeof(float));
    } else if (codes_ != nullptr) {
      expect(codes_ + place, count * sizeof(int16_t));
    } else {
      expect(floats_ + place, count * sizeof(float));
    }
  }
}

void TakenChannels::TakeOutBlocks(int32_t firstRow) {
  const int32_t endRow = std::min(firstRow + Noise::kReduction, picture_.height);
  alignas(64) float levels[kMostChannels][kPart], taken[kMostChannels][kPart], open[kPart];
  const LevelRows levelRows = {levels[0], levels[1], levels[2]}, takenRows = {taken[0], taken[1], taken[2]};
  Tone::Sums light;
  for (int32_t first = 0; first < picture_.width; first += kPart) {
    PixelPart part{firstRow, first, std::min(kPart, picture_.width - first)};
    alignas(64) Noise::Squares squares;
    const bool isOpen = gate_->IsOpen(first, firstRow, part.count, endRow - firstRow);
    for (; part.y < endRow; ++part.y) {
      if (part.y + 1 < endRow) Expect({part.y + 1, part.first, part.count});
      LoadChannels(picture_, part, levelRows);
      if (!isOpen) OpenRow(part, open);
      TakeOutRow(part, levelRows, isOpen ? nullptr : open, takenRows);
      noise_->AddRow(part.count, takenRows, &squares);
      if (tone_->IsKept()) tone_->AddRow(part.count, levelRows, takenRows, &light);
    }
    noise_->KeepBlocks({firstRow, first, part.count}, squares);
    if (tone_->IsKept()) {
      tone_->KeepBlocks({firstRow, first, part.count}, light);
      light = {};
    }
  }
}

void TakenChannels::AddTone(Parallel& parallel) {
  RowsInParallel(parallel, picture_.height, [&](int32_t y, int32_t) {
    float levels[kMostChannels][kPart], open[kPart], added[kPart];
    const LevelRows rows = {levels[0], levels[1], levels[2]};
    for (int32_t first = 0; first < picture_.width; first += kPart) {
      const PixelPart part{y, first, std::min(kPart, picture_.width - first)};
      Load(part, rows);
      OpenRow(part, open);
      for (int32_t c = 0; c < picture_.channels; ++c) {
        const int32_t block = first / Noise::kReduction;
        tone_->Row(c, y, block, ReducedSide(part.count, Noise::kReduction), added);
        for (int32_t x = 0; x < part.count; ++x) levels[c][x] += open[x] * added[x];
      }
      Replace(part, rows);
    }
  });
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
