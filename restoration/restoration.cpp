#include "restoration/restoration.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "image/pixel_kind.h"
#include "restoration/gate.h"

namespace tessaline {

namespace {

// Rows of three samples a pixel, one for every thread.
class ThreadRows {
 public:
  bool Prepare(int32_t width, int32_t threads) {
    const size_t floats = 3 * static_cast<size_t>(width) + kReduction;
    block_ = AllocateBlock<float>(floats * static_cast<size_t>(threads));
    for (int32_t i = 0; block_ && i < threads; ++i) rows_.push_back(block_.get() + i * floats);
    return block_ != nullptr;
  }
  float* const* rows() const { return rows_.data(); }

 private:
  OwnedBlock<float> block_;
  std::vector<float*> rows_;
};

// Keeps the filtered channels.
class FilteredPlanes final : public FilteredRows {
 public:
  explicit FilteredPlanes(Plane* planes) : planes_(planes) {}
  void Take(int32_t channel, int32_t y, const float* levels) override {
    Plane& plane = planes_[channel];
    float* const row = plane.Row(y);
    for (int32_t x = 0; x < plane.width; ++x) row[x] = levels[2 * x];
  }

 private:
  Plane* planes_;
};

// Opens the gate; `channel` is scratch.
void OpenGate(const PictureView& picture, const Findings& findings, const RestorationSettings& settings,
              Parallel& parallel, const ThreadRows& rows, Plane* channel, Gate* gate) {
  const GatePlan plan = PlanGate(findings);
  if (settings.everywhere || plan.count == 0) {
    gate->OpenEverywhere();
  } else {
    gate->Measure(picture, plan, parallel, channel, rows.rows());
  }
}

void DrawGate(const Gate& gate, float* row, const ImageView& drawn) {
  for (int32_t y = 0; y < drawn.height; ++y) {
    gate.Row(y, row);
    for (int32_t x = 0; x < drawn.width; ++x) {
      drawn.Row(y)[x] = static_cast<uint8_t>(std::lround(row[x] * kByteMax));
    }
  }
}

// The same where the filtered row is linear light: it is that which goes in part, and what goes of the level
// is told. Where the gate is closed it is exactly nothing.
void TakeLightOut(const ToneCurve& light, const float* levels, const float* open, int32_t width, float* row) {
  for (int32_t x = 0; x < width; ++x) {
    const float before = light.LightOf(levels[2 * x]);
    const float after = light.LevelOf(before - (before - row[x]) * open[x]);
    row[x] = open[x] > 0.0f ? levels[2 * x] - after : 0.0f;
  }
}

// From the filtered channels to what is to be taken out: nothing where the gate is closed.
void TakeOutWhereOpen(const PictureView& picture, const Gate& gate, const ToneCurve* light,
                      Parallel& parallel, const ThreadRows& rows, Plane* planes) {
  RowsInParallel(parallel, picture.height, [&](int32_t y, int32_t worker) {
    float* const levels = rows.rows()[worker];
    float* const open = levels + 2 * picture.width;
    gate.Row(y, open);
    for (int32_t c = 0; c < picture.channels; ++c) {
      LoadLevels(picture, c, y, levels);
      float* const row = planes[c].Row(y);
      if (light != nullptr) {
        TakeLightOut(*light, levels, open, picture.width, row);
        continue;
      }
      for (int32_t x = 0; x < picture.width; ++x) row[x] = (levels[2 * x] - row[x]) * open[x];
    }
  });
}

// From what is taken out to what remains.
void LeaveRest(const PictureView& picture, Parallel& parallel, const ThreadRows& rows, Plane* taken) {
  RowsInParallel(parallel, picture.height, [&](int32_t y, int32_t worker) {
    float* const levels = rows.rows()[worker];
    for (int32_t c = 0; c < picture.channels; ++c) {
      LoadLevels(picture, c, y, levels);
      float* const row = taken[c].Row(y);
      for (int32_t x = 0; x < picture.width; ++x) row[x] = levels[2 * x] - row[x];
    }
  });
}

int32_t RestoreOrThrow(const PictureView& from, const PictureView& to, const Findings& findings,
                       const Mask& mask, Workspace& workspace, const ApplyOptions& options,
                       const RestorationSettings& settings, const Progress& progress, Image* drawnGate) {
  Parallel& parallel = workspace.parallel();
  Gate gate;
  Polish polish;
  ThreadRows rows;
  Plane planes[kMostChannels];
  bool isReady = gate.Prepare(from.width, from.height) &&
                 polish.Prepare(from.width, from.height, from.channels, parallel.threads()) &&
                 rows.Prepare(from.width, parallel.threads()) &&
                 (drawnGate == nullptr || drawnGate->Create(from.width, from.height, kGray8));
  for (int32_t c = 0; c < from.channels; ++c) isReady = isReady && planes[c].Create(from.width, from.height);
  if (!isReady) return kOutOfMemory;

  OpenGate(from, findings, settings, parallel, rows, &planes[0], &gate);
  if (drawnGate != nullptr) DrawGate(gate, rows.rows()[0], drawnGate->view());
  FilteredPlanes filtered(planes);
  PictureView filteredFrom = from;
  const ToneCurve* const light = CurveOf(settings, findings);
  filteredFrom.light = light;
  ApplyOptions filterOptions = options;
  if (light != nullptr) filterOptions.chain = {};  // the analysis', which saw levels
  const int32_t result = Filter(filteredFrom, mask, workspace, filterOptions, progress, filtered);
  if (result != kSuccess) return result;
  TakeOutWhereOpen(from, gate, light, parallel, rows, planes);
  polish.MeasureNoise(planes, settings.meaning, settings.polish, parallel);
  LeaveRest(from, parallel, rows, planes);
  polish.Store(planes, parallel, to);
  return kSuccess;
}

}  // namespace

const ToneCurve* CurveOf(const RestorationSettings& settings, const Findings& findings) {
  return settings.meaning == ChannelMeaning::kOpponents ? nullptr : LightFor(settings.light, findings);
}

int32_t Restore(const PictureView& from, const PictureView& to, const Findings& findings, const Mask& mask,
                Workspace& workspace, const ApplyOptions& options, const RestorationSettings& settings,
                const Progress& progress, Image* gate) {
  if (!IsUsable(from)) return kUnknownPixelKind;
  if (!HasSameShape(from, to)) return kUnequalSizes;
  try {
    return RestoreOrThrow(from, to, findings, mask, workspace, options, settings, progress, gate);
  } catch (const std::bad_alloc&) {  // only while memory is taken
    return kOutOfMemory;
  }
}

int32_t MeasureGate(const PictureView& picture, const Findings& findings, Workspace& workspace,
                    const RestorationSettings& settings, Image* drawn) {
  if (!IsUsable(picture)) return kUnknownPixelKind;
  Gate gate;
  ThreadRows rows;
  Plane channel;
  Parallel& parallel = workspace.parallel();
  try {
    if (!gate.Prepare(picture.width, picture.height) || !rows.Prepare(picture.width, parallel.threads()) ||
        !channel.Create(picture.width, picture.height) ||
        !drawn->Create(picture.width, picture.height, kGray8)) {
      return kOutOfMemory;
    }
    OpenGate(picture, findings, settings, parallel, rows, &channel, &gate);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  DrawGate(gate, rows.rows()[0], drawn->view());
  return kSuccess;
}

}  // namespace tessaline
