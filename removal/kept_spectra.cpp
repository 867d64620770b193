#include "removal/kept_spectra.h"

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
  TakenColumns(int32_t size, const float* columns, NotchFilter& filter)
      : floats_(ColumnFloats(size)), columns_(columns), filter_(filter) {}
  bool IsWanted(int32_t first, int32_t count) const override { return filter_.IsWanted(first, count); }
  void Visit(int32_t kx, float* column, int32_t worker) override {
    filter_.Take(kx, columns_ + static_cast<size_t>(kx) * floats_, column, worker);
  }

 private:
  size_t floats_;
  const float* columns_;
  NotchFilter& filter_;
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

int32_t KeptSpectra::TakeOut(const Mask& mask, Workspace& workspace, FilteredRows& rows) const {
  if (!IsSpectrumGrid(mask.cells.view(), kGray8)) return kUnequalSizes;
  if (!workspace.Prepare(size_)) return kOutOfMemory;
  workspace.filter_.Begin(mask.cells.view());
  for (int32_t channel = 0; channel < channels_; ++channel) {
    TakenColumns columns(size_, columns_[channel].get(), workspace.filter_);
    RowsOfChannel channelRows(rows, channel);
    workspace.transform_.Synthesise(workspace.plane_, columns, height_, channelRows, workspace.parallel_, {});
  }
  return kSuccess;
}

}  // namespace tessaline
