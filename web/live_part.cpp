#include "web/live_part.h"

#include <algorithm>
#include <cmath>

#include "image/pixel_kind.h"

namespace tessaline::web {
namespace {

constexpr int32_t kMargin = 64;  // pixels round a piece, for its notches reach over its edges
constexpr int32_t kPiece = 710;  // leaves half of that in the smallest transform
constexpr int32_t kCodes = 4096;
constexpr int32_t kSamples = 4;  // of a pixel that is drawn
constexpr uint8_t kSolid = 255;

// The part with some of what is around it, as long as that costs no larger transform.
Part Widened(const PictureView& whole, const Part& part) {
  const int32_t side = std::max(part.width, part.height);
  int32_t margin = kMargin;
  while (TransformSizeFor(side + 2 * margin) > TransformSizeFor(side)) margin /= 2;
  Part around;
  around.x = std::max(0, part.x - margin);
  around.y = std::max(0, part.y - margin);
  around.width = std::min(whole.width, part.x + part.width + margin) - around.x;
  around.height = std::min(whole.height, part.y + part.height + margin) - around.y;
  return around;
}

std::vector<uint8_t> CodesOf(const ToneCurve& curve) {
  std::vector<uint8_t> codes(kCodes + 1);
  for (int32_t i = 0; i <= kCodes; ++i) {
    const float root = static_cast<float>(i) / kCodes;
    const float level = curve.LevelOf(root * root * kHostMax) * kHostToByte;
    codes[static_cast<size_t>(i)] = static_cast<uint8_t>(std::lround(std::clamp(level, 0.0f, kByteMax)));
  }
  return codes;
}

}  // namespace

PictureView PartOf(const PictureView& whole, const Part& part) {
  PictureView view = whole;
  view.width = part.width;
  view.height = part.height;
  for (int32_t c = 0; c < view.channels; ++c) {
    view.channel[c].data += part.y * view.channel[c].rowBytes + part.x * view.channel[c].pixelBytes;
  }
  return view;
}

double LiveBytesNeeded(int32_t width, int32_t height, int32_t channels) {
  constexpr double kWork = 13.0;  // bytes for each value of a transform, as measured for the whole
  const int32_t columns = std::min(width, kLargestPart), rows = std::min(height, kLargestPart);
  const int32_t pieces = ((columns + kPiece - 1) / kPiece) * ((rows + kPiece - 1) / kPiece);
  const double n = TransformSizeFor(kPiece), values = n * (n / 2 + 1);
  const double spectra = 2.0 * sizeof(float) * values * pieces * channels, shares = sizeof(float) * values;
  return spectra + shares + kWork * n * n + double{kSamples} * columns * rows;
}

// Takes what was taken off a piece's samples, row by row, and stores what is seen of it.
class LivePart::Rows final : public FilteredRows {
 public:
  Rows(const LivePart& live, const Piece& piece, std::vector<uint8_t>* rgba)
      : live_(live),
        piece_(piece),
        left_(piece.part.x - live.part_.x),
        top_(piece.part.y - live.part_.y),
        rgba_(rgba->data()) {}

  void Take(int32_t channel, int32_t aroundY, float* taken) override {
    const int32_t width = piece_.part.width, y = aroundY - piece_.above;
    if (y < 0 || y >= piece_.part.height) return;
    float levels[kPiece], open[kLargestPart + Gate::kReduction];
    LoadPart(piece_.around, {channel, aroundY, piece_.left, width}, levels);
    if (live_.hasGate_) {
      live_.gate_.Row(top_ + y, 0, live_.gate_.blocks(), open);
    } else {
      std::fill_n(open, kLargestPart, 1.0f);
    }
    for (int32_t x = 0; x < width; ++x) levels[x] -= open[left_ + x] * taken[2 * (piece_.left + x)];
    const auto place = static_cast<size_t>(top_ + y) * static_cast<size_t>(live_.part_.width);
    Store(levels, rgba_ + kSamples * (place + static_cast<size_t>(left_)), channel);
  }

 private:
  uint8_t CodeOf(float level) const {
    if (level <= 0.0f) return 0;
    if (live_.codes_.empty()) return static_cast<uint8_t>(std::min(level * kHostToByte + 0.5f, kByteMax));
    const float root = std::sqrt(std::min(level * (1.0f / kHostMax), 1.0f));
    return live_.codes_[static_cast<size_t>(root * kCodes + 0.5f)];
  }
  void Store(const float* levels, uint8_t* pixel, int32_t channel) const {
    for (int32_t x = 0; x < piece_.part.width; ++x, pixel += kSamples) {
      const uint8_t code = CodeOf(levels[x]);
      pixel[channel] = code;
      if (piece_.around.channels == 1) pixel[1] = pixel[2] = code;
      pixel[3] = kSolid;
    }
  }

  const LivePart& live_;
  const Piece& piece_;
  int32_t left_, top_;  // of the piece in the part
  uint8_t* rgba_;
};

void LivePart::Release() {
  pieces_.clear();
  hasGate_ = false;
  part_ = {};
}

bool LivePart::IsGateReady(const Way& way) const {
  const auto isSame = [](const Carrier& a, const Carrier& b) { return a.dx == b.dx && a.dy == b.dy; };
  return way.isGated == hasGate_ &&
         (!hasGate_ || (way.plan.scale == way_.plan.scale && way.plan.strong == way_.plan.strong &&
                        std::equal(way.plan.carriers.begin(), way.plan.carriers.end(),
                                   way_.plan.carriers.begin(), way_.plan.carriers.end(), isSame)));
}

bool LivePart::IsReady(const Part& part, const ToneCurve* light, bool isGated) const {
  const bool hasCarriers = hasGate_ && !way_.plan.carriers.empty();
  return !pieces_.empty() && part == part_ && light == way_.light && isGated == hasCarriers;
}

int32_t LivePart::MeasureGate(const PictureView& whole, const Way& way) {
  hasGate_ = false;
  if (!way.isGated) return kSuccess;
  PictureView coded = PartOf(whole, part_);
  coded.light = nullptr;
  gate_ = {};
  if (!gate_.Prepare(coded, way.plan, workspace_.parallel().threads(), workspace_.idlePlane())) {
    return kOutOfMemory;
  }
  gate_.Measure(coded, workspace_.parallel(), {});
  hasGate_ = true;
  return kSuccess;
}

int32_t LivePart::LoadPieces(const PictureView& whole, const Way& way) {
  const int32_t across = (part_.width + kPiece - 1) / kPiece, down = (part_.height + kPiece - 1) / kPiece;
  for (int32_t i = 0; i < across * down; ++i) {
    const int32_t column = i % across, row = i / across;
    const int32_t x = part_.width * column / across, y = part_.height * row / down;
    const int32_t right = part_.width * (column + 1) / across, below = part_.height * (row + 1) / down;
    Piece piece;
    piece.part = {part_.x + x, part_.y + y, right - x, below - y};
    const Part around = Widened(whole, piece.part);
    piece.left = piece.part.x - around.x;
    piece.above = piece.part.y - around.y;
    piece.around = PartOf(whole, around);
    piece.around.light = way.light;
    const int32_t loaded = piece.spectra.Load(piece.around, workspace_);
    if (loaded != kSuccess) return loaded;
    pieces_.push_back(std::move(piece));
  }
  return kSuccess;
}

int32_t LivePart::Prepare(const PictureView& whole, const Part& part, const Way& way) {
  const bool isSame = !pieces_.empty() && part == part_ && way.light == way_.light;
  if (!isSame) {
    Release();
    part_ = part;
    codes_ = way.light != nullptr ? CodesOf(*way.light) : std::vector<uint8_t>{};
    const int32_t loaded = LoadPieces(whole, way);
    if (loaded != kSuccess) {
      Release();
      return loaded;
    }
  }
  if (isSame && IsGateReady(way)) return kSuccess;
  const int32_t measured = MeasureGate(whole, way);
  way_ = way;
  if (measured != kSuccess) Release();
  return measured;
}

int32_t LivePart::Draw(const Mask& mask, std::vector<uint8_t>* rgba) {
  rgba->resize(kSamples * static_cast<size_t>(part_.width) * static_cast<size_t>(part_.height));
  int32_t code = kSuccess;
  for (size_t i = 0; i < pieces_.size() && code == kSuccess; ++i) {  // all of one transform size
    const Piece& piece = pieces_[i];
    if (i == 0) code = shares_.Fill(mask, piece.spectra.transformSize(), workspace_);
    Rows rows(*this, piece, rgba);
    if (code == kSuccess) code = piece.spectra.TakeOut(shares_, workspace_, rows);
  }
  return code;
}

}  // namespace tessaline::web
