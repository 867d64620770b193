#include "frei0r/video_filter.h"

#include <new>
#include <utility>

#include "restoration/decision.h"

namespace tessaline::frei0r {

namespace {

constexpr ptrdiff_t kPixelBytes = 4;
constexpr int32_t kColours = 3;  // of four samples; the last is alpha

PictureView FrameView(int32_t width, int32_t height, uint8_t* rgba) {
  PictureView frame;
  frame.width = width;
  frame.height = height;
  frame.format = SampleFormat::kByte;
  frame.channels = kColours;
  for (int32_t c = 0; c < kColours; ++c) frame.channel[c] = {rgba + c, kPixelBytes, kPixelBytes * width};
  return frame;
}

}  // namespace

VideoFilter::VideoFilter(int32_t width, int32_t height)
    : width_(width),
      height_(height),
      pool_(MakeThreadPool(UsableProcessors())),
      workspace_(pool_ ? *pool_ : SerialWork()),
      wishes_(values_.Ask()),
      gathering_(wishes_.settings) {}

void VideoFilter::Clean(double time, uint8_t* rgba) noexcept {
  const std::lock_guard<std::mutex> hold(turn_);
  int32_t result = kOutOfMemory;
  try {
    result = CleanFrame(FrameView(width_, height_, rgba), time);
  } catch (const std::bad_alloc&) {
  }
  if (result != kSuccess) {
    if (!isGathered_) gathered_ = 0;  // a frame may be half in it
    workspace_.Release();
  }
  ++frame_;
}

void VideoFilter::SetNumber(int number, double value) {
  const std::lock_guard<std::mutex> hold(turn_);
  values_.SetNumber(number, value);
  TakeWishes();
}

double VideoFilter::Number(int number) const {
  const std::lock_guard<std::mutex> hold(turn_);
  return values_.Number(number);
}

void VideoFilter::SetText(const char* text) {
  const std::lock_guard<std::mutex> hold(turn_);
  values_.SetText(text);
  TakeWishes();
}

const char* VideoFilter::Text() const {
  const std::lock_guard<std::mutex> hold(turn_);
  return values_.Text().c_str();
}

// Hosts set every parameter before every frame, mostly to what it was. What cannot be taken over for want of
// memory is found different the next time.
void VideoFilter::TakeWishes() {
  const Wishes wishes = values_.Ask();
  if (!wishes.DecideAlike(wishes_)) ForgetDecision(wishes);
  wishes_ = wishes;
  isShaped_ = false;
}

void VideoFilter::ForgetDecision(const Wishes& wishes) {
  gathering_ = FilmDecision(wishes.settings);
  gathered_ = 0;
  isGathered_ = isDecided_ = false;
  kept_ = {};
}

int32_t VideoFilter::CleanFrame(const PictureView& frame, double time) {
  if (!wishes_.isSteady) return CleanByItself(frame);
  // An editor that stands still asks for one frame again and again. Hosts that do not know the time say 0 or
  // less, all along.
  const bool isAskedAgain = gathered_ > 0 && time == lastTime_ && time > 0.0;
  if (!isDecided_ && !isAskedAgain) {
    const int32_t result = Look(frame);
    if (result != kSuccess) return result;
    lastTime_ = time;
    isShaped_ = false;
  }
  if (!isShaped_) {
    const int32_t result = Shape(kept_, wishes_.settings, &mask_);
    if (result != kSuccess) return result;
    isShaped_ = true;
  }
  return TakeOut(frame, kept_, mask_, {});
}

int32_t VideoFilter::CleanByItself(const PictureView& frame) {
  Analysis analysis;
  Findings findings;
  Mask mask;
  const DecisionKind kind = wishes_.settings.isAutomatic ? DecisionKind::kAny : DecisionKind::kByNumber;
  int32_t result = Analyse(frame, workspace_, {}, &analysis, kind);
  if (result == kSuccess) result = DecideWhole(frame, analysis, wishes_.settings, workspace_, &findings);
  if (result == kSuccess) result = Shape(findings, wishes_.settings, &mask);
  return result == kSuccess ? TakeOut(frame, findings, mask, analysis.chain) : result;
}

// Brings the decision further by a frame.
int32_t VideoFilter::Look(const PictureView& frame) {
  const bool decidesAlone = wishes_.decidingFrame && frame_ >= *wishes_.decidingFrame;
  if (isGathered_ && !decidesAlone) return kSuccess;  // until the frame that decides
  Analysis analysis;
  const int32_t result = Analyse(frame, workspace_, {}, &analysis);
  if (result != kSuccess) return result;
  return decidesAlone ? DecideAlone(frame, analysis) : Gather(frame, analysis);
}

int32_t VideoFilter::DecideAlone(const PictureView& frame, const Analysis& analysis) {
  // Kept as others would be that were not looked at: what belongs to this frame alone is left out.
  Findings findings;
  int32_t result = DecideWhole(frame, analysis, wishes_.settings, workspace_, &findings);
  if (result == kSuccess) result = FindingsOf({CellsOf(findings.seeds), findings.peaks}, &kept_);
  isDecided_ = result == kSuccess;
  return result;
}

int32_t VideoFilter::Gather(const PictureView& frame, const Analysis& analysis) {
  int32_t result = gathered_ == 0 ? gathering_.Begin() : kSuccess;
  if (result == kSuccess) result = gathering_.Add(frame, analysis, workspace_.parallel());
  if (result != kSuccess) return result;
  ++gathered_;
  KeptDecision decision;
  result = gathering_.Make(workspace_, &decision);
  if (result == kSuccess) result = FindingsOf(decision, &kept_);
  if (result != kSuccess) return result;
  if (gathered_ < kDecidingFrames) return kSuccess;
  // Where nothing is found the next frames gather anew.
  gathered_ = 0;
  isGathered_ = kept_.seedCells > 0;
  isDecided_ = isGathered_ && !wishes_.decidingFrame;
  return kSuccess;
}

int32_t VideoFilter::TakeOut(const PictureView& frame, const Findings& findings, const Mask& mask,
                             const PaddingChain& chain) {
  if (findings.seedCells == 0) return kSuccess;
  ApplyOptions options;
  options.chain = chain;
  return wishes_.settings.isAutomatic
             ? Restore(frame, frame, findings, mask, workspace_, options, wishes_.restoration, {})
             : Apply(frame, frame, mask, workspace_, options, {});
}

}  // namespace tessaline::frei0r
