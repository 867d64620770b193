#include "restoration/restoration.h"

#include <cmath>
#include <new>
#include <vector>

#include "image/pixel_kind.h"
#include "restoration/dots.h"
#include "restoration/gate.h"
#include "restoration/line_offsets.h"
#include "restoration/local_notches.h"
#include "restoration/polish.h"
#include "restoration/rim.h"
#include "restoration/taken_channels.h"
#include "restoration/tone.h"

namespace tessaline {

namespace {

// How the whole of the progress is shared out.
constexpr double kMeasured = 0.25, kFiltered = 0.65, kNoiseKnown = 0.75, kRimSmooth = 0.76;

GatePlan PlanFor(const Findings& findings, const RestorationSettings& settings) {
  if (settings.everywhere) return {};
  GatePlan plan = PlanGate(findings);
  plan.strong = settings.strong;
  // Of these channels the differences say nothing: what is as strong in all of them is not black.
  if (plan.carriers.size() > 2 && plan.isByInk && settings.meaning == ChannelMeaning::kOpponents)
    plan.carriers.resize(2);
  return plan;
}

void DrawGate(const Gate& gate, std::vector<float>& row, const ImageView& drawn) {
  for (int32_t y = 0; y < drawn.height; ++y) {
    gate.Row(y, 0, gate.blocks(), row.data());
    for (int32_t x = 0; x < drawn.width; ++x) {
      drawn.Row(y)[x] = static_cast<uint8_t>(std::lround(row[x] * kByteMax));
    }
  }
}
std::vector<float> RowToDraw(const PictureView& picture) {
  return std::vector<float>(static_cast<size_t>(picture.width) + Gate::kReduction);
}

int32_t RestoreOrThrow(const PictureView& from, const PictureView& to, const Findings& findings,
                       const Mask& mask, Workspace& workspace, const ApplyOptions& options,
                       const RestorationSettings& settings, const Progress& progress, Image* drawnGate) {
  Parallel& parallel = workspace.parallel();
  if (IsOfLines(findings)) {
    const int32_t drawn =
        drawnGate != nullptr ? MeasureGate(from, findings, workspace, settings, drawnGate) : kSuccess;
    return drawn != kSuccess ? drawn : TakeLineOffsetsOut(from, to, findings, parallel, progress);
  }
  const Axes axes(from, settings.meaning);
  Gate gate;
  Noise noise;
  Polish polish;
  Rim rim;
  Tone tone;
  TakenChannels channels;
  LocalNotches localNotches;
  const bool isLocal = IsLocal(findings);
  if (!workspace.Prepare(TransformSizeFor(from)) ||
      (isLocal && !localNotches.Prepare(from, parallel.threads(), workspace.idlePlane())) ||
      !gate.Prepare(from, PlanFor(findings, settings), parallel.threads(), workspace.idlePlane()) ||
      !noise.Prepare(from, axes) || !polish.Prepare(axes, parallel.threads()) ||
      !tone.Prepare(from, CurveOf(settings, findings)) ||
      !channels.Prepare(from, gate, tone, noise, workspace) ||
      (drawnGate != nullptr && !drawnGate->Create(from.width, from.height, kGray8))) {
    return kOutOfMemory;
  }
  std::vector<float> row = RowToDraw(from);
  if (gate.Measure(from, parallel, progress.Part(0.0, kMeasured))) return kUserCancelled;
  if (drawnGate != nullptr) DrawGate(gate, row, drawnGate->view());
  if (IsSquareLattice(findings) && !rim.Find(gate, from, axes)) return kOutOfMemory;
  const Progress filtering = progress.Part(kMeasured, kFiltered);
  const int32_t result =
      isLocal ? localNotches.Filter(from, findings, mask.cells.view(), gate, parallel, filtering, channels)
              : Filter(from, mask, workspace, options, filtering, channels);
  if (result != kSuccess) return result;
  if (tone.IsKept()) {
    tone.Settle(parallel);
    channels.AddTone(parallel);
  }
  const bool isWhole = settings.strong == 0.0f;
  const DotsLeft dots = DotsOf(from, isWhole, findings, axes, gate, channels);
  if (noise.Settle(settings.polish, dots, parallel, progress.Part(kFiltered, kNoiseKnown)))
    return kUserCancelled;
  if (rim.Smooth(noise, gate, parallel, progress.Part(kNoiseKnown, kRimSmooth), &channels))
    return kUserCancelled;
  polish.Store(channels, noise, gate, parallel, to, progress.Part(kRimSmooth, 1.0));
  return kSuccess;
}

}  // namespace

const ToneCurve* CurveOf(const RestorationSettings& settings, const Findings& findings) {
  const bool isOfLevels = settings.meaning == ChannelMeaning::kOpponents || IsOfLines(findings);
  return isOfLevels ? nullptr : LightFor(settings.light, findings);
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
  Parallel& parallel = workspace.parallel();
  try {
    Gate gate;
    std::vector<float> row = RowToDraw(picture);
    if (!gate.Prepare(picture, PlanFor(findings, settings), parallel.threads(), workspace.idlePlane()) ||
        !drawn->Create(picture.width, picture.height, kGray8)) {
      return kOutOfMemory;
    }
    gate.Measure(picture, parallel, {});
    DrawGate(gate, row, drawn->view());
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

}  // namespace tessaline
