#include "removal/kept_spectra.h"

#include <algorithm>
#include <cstring>

#include "image/pixel_kind.h"

namespace tessaline {
namespace {

size_t ColumnFloats(int32_t size) {
  return 2 * static_cast<size_t>(size);
}

class KeepColumns final : public SpectrumColumns {
 public:
  KeepColumns(int32_t size, float* columns) : floats_(ColumnFloats(size)), columns_(columns) {}
  bool IsWanted(int32_t, int32_t) const override { return true; }
  void Visit(int32_t kx, float* column, int32_t) override {
    std::memcpy(columns_ + static_cast<size_t>(kx) * floats_, column, floats_ * sizeof(float));
  }

 private:
  size_t floats_;
  float* columns_;
};

class TakenColumns final : public SpectrumColumns {
 public:
  TakenColumns(int32_t size, const float* columns, const float* shares, const uint8_t* isUsed)
      : size_(static_cast<size_t>(size)), columns_(columns), shares_(shares), isUsed_(isUsed) {}
  bool IsWanted(int32_t first, int32_t count) const override {
    return std::any_of(isUsed_ + first, isUsed_ + first + count, [](uint8_t isUsed) { return isUsed != 0; });
  }
  void Visit(int32_t kx, float* column, int32_t) override {
    const float* const shares = shares_ + static_cast<size_t>(kx) * size_;
    const float* const spectrum = columns_ + static_cast<size_t>(kx) * 2 * size_;
    for (size_t ky = 0; ky < size_; ++ky) {
      column[2 * ky] = spectrum[2 * ky] * shares[ky];
      column[2 * ky + 1] = spectrum[2 * ky + 1] * shares[ky];
    }
  }

 private:
  size_t size_;
  const float *columns_, *shares_;
  const uint8_t* isUsed_;
};

class RowsOfChannel final : public FinishedRows {
 public:
  RowsOfChannel(FilteredRows& rows, int32_t channel) : rows_(rows), channel_(channel) {}
  void Take(int32_t y, float* row) override { rows_.Take(channel_, y, row); }

 private:
  FilteredRows& rows_;
  int32_t channel_;
};

}  // namespace

int32_t KeptSpectra::Load(const PictureView& picture, Workspace& workspace) {
  Release();
  if (!IsUsable(picture)) return kUnknownPixelKind;
  const int32_t n = TransformSizeFor(picture);
  const size_t floats = (static_cast<size_t>(n) / 2 + 1) * ColumnFloats(n);
  for (int32_t channel = 0; channel < picture.channels; ++channel) {
    columns_[channel] = AllocateBlock<float>(floats);
    if (columns_[channel]) continue;
    Release();
    return kOutOfMemory;
  }
  if (!workspace.Prepare(n)) {
    Release();
    return kOutOfMemory;
  }
  for (int32_t channel = 0; channel < picture.channels; ++channel) {
    float mean = 0.0f;
    const ConstantRows constant = workspace.LoadPlane(picture, channel, PaddingChain{}.remainder, &mean);
    KeepColumns columns(n, columns_[channel].get());
    workspace.transform_.Examine(workspace.plane_, constant, columns, workspace.parallel_, {});
  }
  size_ = n;
  height_ = picture.height;
  channels_ = picture.channels;
  return kSuccess;
}

int32_t MaskShares::Fill(const Mask& mask, int32_t transformSize, Workspace& workspace) {
  if (!IsSpectrumGrid(mask.cells.view(), kGray8)) return kUnequalSizes;
  const auto n = static_cast<size_t>(transformSize);
  const int32_t columns = transformSize / 2 + 1;
  if (size_ != transformSize) {
    size_ = 0;
    shares_ = AllocateBlock<float>(static_cast<size_t>(columns) * n);
    isUsed_ = AllocateBlock<uint8_t>(static_cast<size_t>(columns));
    if (!shares_ || !isUsed_) return kOutOfMemory;
  }
  if (!workspace.Prepare(transformSize)) return kOutOfMemory;
  size_ = transformSize;
  NotchFilter& filter = workspace.filter_;
  filter.Begin(mask.cells.view());
  const auto fill = [&](int32_t kx, int32_t worker) {
    isUsed_[static_cast<size_t>(kx)] = filter.IsWanted(kx, 1);
    if (isUsed_[static_cast<size_t>(kx)] == 0) return;
    filter.Shares(kx, shares_.get() + static_cast<size_t>(kx) * n, worker);
  };
  constexpr int32_t kAtOnce = 32;
  ForEachTask(
      workspace.parallel(), (columns + kAtOnce - 1) / kAtOnce,
      [&](int32_t index, int32_t worker) {
        const int32_t end = std::min((index + 1) * kAtOnce, columns);
        for (int32_t kx = index * kAtOnce; kx < end; ++kx) fill(kx, worker);
      },
      [](int32_t) { return false; });
  return kSuccess;
}

int32_t KeptSpectra::TakeOut(const MaskShares& shares, Workspace& workspace, FilteredRows& rows) const {
  if (shares.size_ != size_) return kUnequalSizes;
  if (!workspace.Prepare(size_)) return kOutOfMemory;
  for (int32_t channel = 0; channel < channels_; ++channel) {
    TakenColumns columns(size_, columns_[channel].get(), shares.shares_.get(), shares.isUsed_.get());
    RowsOfChannel channelRows(rows, channel);
    workspace.transform_.Synthesise(workspace.plane_, columns, height_, channelRows, workspace.parallel_, {});
  }
  return kSuccess;
}

}  // namespace tessaline
