#include "web/picture_cleaning.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "image/pixel_kind.h"
#include "removal/spectrum_picture.h"
#include "removal/spectrum_surface.h"
#include "restoration/decision.h"
#include "restoration/gate.h"
#include "restoration/line_offsets.h"
#include "tiling/any_size.h"

namespace tessaline::web {
namespace {

constexpr size_t kGridCells = size_t{kSpectrumCells} * kSpectrumCells;
constexpr int32_t kTurnedOnReach = 1;  // cells to every side of a peak that the user turns on
constexpr uint8_t kSeed = 255, kOpaque = 255;

int32_t CopyFindings(const Findings& from, Findings* to) {
  Findings copy;
  if (!copy.seeds.Create(kSpectrumCells, kSpectrumCells, 1)) return kOutOfMemory;
  CopyImage(from.seeds.view(), copy.seeds.view());
  copy.seedCells = from.seedCells;
  copy.threshold = from.threshold;
  copy.isAutomatic = from.isAutomatic;
  copy.peaks = from.peaks;
  copy.strongAmplitude = from.strongAmplitude;
  *to = std::move(copy);
  return kSuccess;
}

// The cell on the other side of the zero frequency; the grid repeats itself.
int32_t Opposite(int32_t cell) {
  return (kSpectrumCells - cell) % kSpectrumCells;
}

uint8_t& SeedAt(const ImageView& seeds, int32_t dx, int32_t dy) {
  const int32_t x = (kSpectrumCentre + dx) & (kSpectrumCells - 1);
  const int32_t y = (kSpectrumCentre + dy) & (kSpectrumCells - 1);
  return seeds.Row(y)[x];
}

void SetPair(const ImageView& seeds, int32_t dx, int32_t dy, uint8_t value) {
  SeedAt(seeds, dx, dy) = value;
  SeedAt(seeds, -dx, -dy) = value;
}

// A grid of RGB as RGBA.
void CopyColours(const uint8_t* rgb, std::vector<uint8_t>* rgba) {
  rgba->resize(4 * kGridCells);
  for (size_t i = 0; i < kGridCells; ++i) {
    std::copy_n(rgb + 3 * i, 3, &(*rgba)[4 * i]);
    (*rgba)[4 * i + 3] = kOpaque;
  }
}

class SpectrumSeen final : public SpectrumRows {
 public:
  SpectrumSeen(const Analysis& analysis, const Mask& mask)
      : levels_(analysis.rawGray16.view()), mask_(mask.cells.view()) {}
  int32_t width() const override { return kSpectrumCells; }
  int32_t height() const override { return kSpectrumCells; }
  int32_t channels() const override { return 1; }
  void LoadLevels(int32_t y, int32_t, float* levels) const override {
    const auto* const row = levels_.Row<uint16_t>(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) levels[x] = row[x] * (1.0f / kHostMax);
  }
  void LoadMask(int32_t y, float* mask) const override { std::copy_n(mask_.Row(y), kSpectrumCells, mask); }

 private:
  ConstImageView levels_, mask_;
};

// The notch radius is the mask's alone.
bool DecideTheSame(const Settings& a, const Settings& b) {
  return a.isAutomatic == b.isAutomatic && a.acceptance == b.acceptance && a.sensitivity == b.sensitivity &&
         a.protectionRadius == b.protectionRadius;
}

// Tiles that overlap by half say the same four times, and a hand waits for what is measured in them.
TiledPicture SomeOf(TiledPicture tiled) {
  constexpr size_t kEnough = 100;
  const size_t step = std::max<size_t>((tiled.tiles.size() + kEnough - 1) / kEnough, 1);
  size_t kept = 0;
  for (size_t i = 0; i < tiled.tiles.size(); i += step) tiled.tiles[kept++] = tiled.tiles[i];
  tiled.tiles.resize(kept);
  return tiled;
}

template <typename Sample>
bool AreColoursEqual(const PixelLayout& layout, const uint8_t* pixels) {
  const auto* pixel = reinterpret_cast<const Sample*>(pixels);
  const size_t count = static_cast<size_t>(layout.width) * static_cast<size_t>(layout.height);
  for (size_t i = 0; i < count; ++i, pixel += layout.samples) {
    if (pixel[0] != pixel[1] || pixel[0] != pixel[2]) return false;
  }
  return true;
}

}  // namespace

PictureView PixelLayout::View(uint8_t* pixels) const {
  PictureView picture;
  picture.width = width;
  picture.height = height;
  picture.format = format;
  picture.channels = channels;
  const auto pixelBytes = static_cast<ptrdiff_t>(PixelBytes());
  for (int32_t i = 0; i < channels; ++i) {
    picture.channel[i] = {pixels + static_cast<size_t>(i) * SampleBytes(format), pixelBytes,
                          pixelBytes * width};
  }
  return picture;
}

double BytesNeeded(const PixelLayout& layout) {
  // As measured with transforms of 1024, 2048 and 4096: 35, 85 and 293 MiB with the picture and its result.
  constexpr double kEngine = 20.0 * (1 << 20), kPerTransformed = 13.0;
  const int32_t side = TransformSizeFor(std::min(std::max(layout.width, layout.height), kLargestSide));
  return kEngine + kPerTransformed * side * side + 2.0 * static_cast<double>(layout.Bytes()) +
         LiveBytesNeeded(layout.width, layout.height, layout.channels);
}

int32_t PictureCleaning::Open(const PixelLayout& layout) {
  const bool isUsable = layout.width >= 1 && layout.height >= 1 && layout.samples <= 4 &&
                        (layout.channels == 1 || layout.channels == 3) && layout.channels <= layout.samples;
  if (!isUsable || layout.width > kLargestTiledSide || layout.height > kLargestTiledSide) {
    return kUnknownPixelKind;
  }
  if (double{1} * layout.width * layout.height * static_cast<double>(layout.PixelBytes()) >
      double{std::numeric_limits<int32_t>::max()}) {
    return kOutOfMemory;
  }
  auto pixels = AllocateBlock<uint8_t>(layout.Bytes());
  auto result = AllocateBlock<uint8_t>(layout.Bytes());
  if (!pixels || !result) return kOutOfMemory;
  layout_ = layout;
  colours_ = layout.channels;
  pixels_ = std::move(pixels);
  result_ = std::move(result);
  isGrey_ = isDecided_ = false;
  curve_.reset();
  live_.Release();
  return kSuccess;
}

bool PictureCleaning::HasEqualColours() const {
  if (layout_.channels != kMostChannels) return false;
  switch (SampleBytes(layout_.format)) {
    case 1:
      return AreColoursEqual<uint8_t>(layout_, pixels_.get());
    case 2:
      return AreColoursEqual<uint16_t>(layout_, pixels_.get());
    default:
      return AreColoursEqual<float>(layout_, pixels_.get());
  }
}

int32_t PictureCleaning::Expect(int32_t width, int32_t height) {
  const int32_t side = std::max(width, height);
  if (side < 1 || side > kLargestSide) return kSuccess;  // tiles take theirs as they come
  return workspace_.Prepare(TransformSizeFor(side)) ? kSuccess : kOutOfMemory;
}

int32_t PictureCleaning::Analyse(const Progress& progress) {
  isGrey_ = isGrey_ || HasEqualColours();
  if (isGrey_) layout_.channels = 1;
  tiles_ = {};
  kept_ = {};
  strong_ = -1.0f;
  isDecided_ = false;
  const PictureView picture = layout_.View(pixels_.get());
  return AnalyseAnySize(picture, workspace_, progress, &analysis_,
                        IsDoneInTiles(picture) ? &tiles_ : nullptr);
}

// Of a picture as it is at hand, or the copies that were made where its tiles were analysed.
TiledPicture PictureCleaning::Tiled() const {
  const PictureView picture = layout_.View(pixels_.get());
  return IsDoneInTiles(picture) ? tiles_.view() : TilesOf(picture);
}

int32_t PictureCleaning::Decide(const Settings& settings) {
  if (isDecided_ && DecideTheSame(settings, settings_)) {
    settings_ = settings;
    return UseFindings();
  }
  Findings found;
  const int32_t result = DecideWhole(Tiled(), analysis_, settings, workspace_, &found, &kept_);
  if (result != kSuccess) return result;
  const int32_t copied = CopyFindings(found, &findings_);
  if (copied != kSuccess) return copied;
  found_ = std::move(found);
  settings_ = settings;
  restoration_.light.curve = settings.isAutomatic && curve_ ? &*curve_ : nullptr;
  isDecided_ = true;
  return UseFindings();
}

int32_t PictureCleaning::UseFindings() {
  findings_.seedCells = CountSeeds(findings_.seeds.view());
  notches_ = CollectNotches(analysis_, findings_);
  return Shape(findings_, settings_, &mask_);
}

std::vector<PictureCleaning::Place> PictureCleaning::PlacesOfPeaks() const {
  std::vector<Place> places;
  for (const SpectrumPeak& peak : found_.peaks) {
    if (peak.verdict == PeakVerdict::kUsed) places.push_back({peak.dx, peak.dy});
  }
  if (!found_.isAutomatic) {
    for (const Notch& notch : CollectNotches(analysis_, found_)) places.push_back({notch.dx, notch.dy});
  }
  return places;
}

// By the cells beside it: the notch of a neighbour may reach over a peak that the user left.
bool PictureCleaning::IsTakenOut(int32_t dx, int32_t dy) const {
  for (int32_t i = 0; i < 9; ++i) {
    const int32_t x = (kSpectrumCentre + dx + i % 3 - 1) & (kSpectrumCells - 1);
    const int32_t y = (kSpectrumCentre + dy + i / 3 - 1) & (kSpectrumCells - 1);
    if (findings_.seeds.view().Row(y)[x] == kSeed) return true;
  }
  return false;
}

int32_t PictureCleaning::TurnPeak(int32_t dx, int32_t dy, bool isTakenOut) {
  const std::vector<Place> places = PlacesOfPeaks();
  const auto squareFrom = [](const Place& place, int32_t x, int32_t y) {
    const auto square = [](int32_t a, int32_t b) { return a * a + b * b; };
    return std::min(square(place.dx - x, place.dy - y), square(place.dx + x, place.dy + y));
  };
  const Place turned = {dx, dy};
  const auto isNearest = [&](int32_t x, int32_t y) {
    const int32_t own = squareFrom(turned, x, y);
    return std::none_of(places.begin(), places.end(),
                        [&](const Place& other) { return squareFrom(other, x, y) < own; });
  };
  const ImageView seeds = findings_.seeds.view();
  const ImageView found = found_.seeds.view();
  bool wasFound = false;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      if (found.Row(y)[x] != kSeed || !isNearest(x - kSpectrumCentre, y - kSpectrumCentre)) continue;
      wasFound = true;
      seeds.Row(y)[x] = isTakenOut ? kSeed : 0;
      seeds.Row(Opposite(y))[Opposite(x)] = isTakenOut ? kSeed : 0;
    }
  }
  for (int32_t y = -kTurnedOnReach; !wasFound && y <= kTurnedOnReach; ++y) {
    for (int32_t x = -kTurnedOnReach; x <= kTurnedOnReach; ++x) {
      SetPair(seeds, dx + x, dy + y, isTakenOut ? kSeed : 0);
    }
  }
  // Where the pattern is gets measured at the licensed peaks: what the user wants out has a licence.
  for (size_t i = 0; i < findings_.peaks.size(); ++i) {
    SpectrumPeak& peak = findings_.peaks[i];
    if (peak.dx == dx && peak.dy == dy) {
      const SpectrumPeak& before = found_.peaks[i];
      peak.isLicensed = isTakenOut && (before.isLicensed || before.verdict != PeakVerdict::kUsed);
    }
  }
  return UseFindings();
}

void PictureCleaning::CopyGrey(const PixelLayout& layout, uint8_t* pixels) const {
  if (!isGrey_) return;
  const size_t bytes = SampleBytes(layout.format), step = layout.PixelBytes();
  uint8_t* const end = pixels + layout.Bytes();
  for (uint8_t* pixel = pixels; pixel != end; pixel += step) {
    std::memcpy(pixel + bytes, pixel, bytes);
    std::memcpy(pixel + 2 * bytes, pixel, bytes);
  }
}

int32_t PictureCleaning::Restore(const Progress& progress) {
  std::memcpy(result_.get(), pixels_.get(), layout_.Bytes());
  if (findings_.seedCells == 0) return kSuccess;
  ApplyOptions options;
  options.chain = analysis_.chain;
  const int32_t code = TakeOutAnySize(layout_.View(pixels_.get()), layout_.View(result_.get()), findings_,
                                      mask_, workspace_, options, restoration_, progress);
  if (code == kSuccess) CopyGrey(layout_, result_.get());
  return code;
}

bool PictureCleaning::IsInside(const Part& part) const {
  return part.x >= 0 && part.y >= 0 && part.width >= 1 && part.height >= 1 && part.width <= kLargestPart &&
         part.height <= kLargestPart && part.x <= layout_.width - part.width &&
         part.y <= layout_.height - part.height;
}

const ToneCurve* PictureCleaning::LightNow() const {
  return findings_.isAutomatic ? CurveOf(restoration_, findings_) : nullptr;
}

// Measured anew where the decision goes by other carriers.
float PictureCleaning::Strong() {
  std::vector<Carrier> carriers = PlanGate(findings_).carriers;
  const auto isSame = [](const Carrier& a, const Carrier& b) { return a.dx == b.dx && a.dy == b.dy; };
  if (strong_ < 0.0f ||
      !std::equal(carriers.begin(), carriers.end(), strongCarriers_.begin(), strongCarriers_.end(), isSame)) {
    strong_ = MeasureStrong(SomeOf(Tiled()), findings_);
    strongCarriers_ = std::move(carriers);
  }
  return strong_;
}

int32_t PictureCleaning::PrepareLive(const Part& part) {
  if (!IsInside(part)) return kUnknownPixelKind;
  LivePart::Way way = {LightNow(), findings_.isAutomatic, PlanGate(findings_)};
  if (way.isGated) way.plan.strong = Strong();
  return live_.Prepare(layout_.View(pixels_.get()), part, way);
}

// Offsets of lines are no waves, which a mask could take; each part tells its own.
int32_t PictureCleaning::DrawWithoutLines(const Part& part, std::vector<uint8_t>* rgba) {
  PixelLayout packed = layout_;
  packed.width = part.width;
  packed.height = part.height;
  std::vector<uint8_t> pixels(packed.Bytes());
  const PictureView cleaned = packed.View(pixels.data());
  const int32_t code = TakeLineOffsetsOut(PartOf(layout_.View(pixels_.get()), part), cleaned, findings_,
                                          workspace_.parallel(), {});
  if (code != kSuccess) return code;
  std::vector<float> levels(static_cast<size_t>(part.width));
  rgba->assign(4 * levels.size() * static_cast<size_t>(part.height), 255);
  uint8_t* row = rgba->data();
  for (int32_t y = 0; y < part.height; ++y, row += 4 * levels.size()) {
    for (int32_t c = 0; c < 3; ++c) {
      LoadPart(cleaned, {std::min(c, packed.channels - 1), y, 0, part.width}, levels.data());
      for (size_t x = 0; x < levels.size(); ++x) {
        row[4 * x + static_cast<size_t>(c)] =
            static_cast<uint8_t>(std::clamp(levels[x] * kHostToByte + 0.5f, 0.0f, kByteMax));
      }
    }
  }
  CopyAlpha(part, rgba);
  return kSuccess;
}

int32_t PictureCleaning::DrawLive(const Part& part, std::vector<uint8_t>* rgba) {
  if (IsInside(part) && IsOfLines(findings_)) return DrawWithoutLines(part, rgba);
  const bool isGated = findings_.isAutomatic && !PlanGate(findings_).carriers.empty();
  const int32_t code = live_.IsReady(part, LightNow(), isGated) ? int32_t{kSuccess} : PrepareLive(part);
  if (code != kSuccess) return code;
  const int32_t drawn = live_.Draw(mask_, rgba);
  if (drawn == kSuccess) CopyAlpha(part, rgba);
  return drawn;
}

// The sample after the colours, of 16 bits its upper byte.
void PictureCleaning::CopyAlpha(const Part& part, std::vector<uint8_t>* rgba) const {
  if (layout_.samples == colours_) return;
  const size_t bytes = SampleBytes(layout_.format), step = layout_.PixelBytes();
  const size_t upper = static_cast<size_t>(colours_) * bytes + (bytes == 2 ? 1 : 0);
  uint8_t* alpha = rgba->data() + 3;
  for (int32_t y = part.y; y < part.y + part.height; ++y) {
    const size_t first =
        static_cast<size_t>(y) * static_cast<size_t>(layout_.width) + static_cast<size_t>(part.x);
    const uint8_t* pixel = pixels_.get() + first * step;
    for (int32_t x = 0; x < part.width; ++x, pixel += step, alpha += 4) *alpha = pixel[upper];
  }
}

int32_t PictureCleaning::DrawSpectrum(std::vector<uint8_t>* rgba) const {
  Findings withoutMarks;  // the page draws its own, which can be clicked
  const std::vector<uint8_t> rgb =
      tessaline::DrawSpectrum(analysis_, withoutMarks, mask_, settings_.protectionRadius);
  CopyColours(rgb.data(), rgba);
  return kSuccess;
}

int32_t PictureCleaning::DrawSurface(std::vector<uint8_t>* rgba) const {
  constexpr size_t kGridFloats = size_t{kSurfacePlanes} * kSurfaceGrid * kSurfaceGrid;
  constexpr size_t kVertexBytes = size_t{kSurfaceVertexColumn} * kSurfaceGrid * kSurfaceVertexBytes;
  constexpr HighlightColor kTaken = {255, 0, 0};
  const auto grid = AllocateBlock<float>(kGridFloats);
  const auto vertices = AllocateBlock<uint8_t>(kVertexBytes);
  Image view;
  if (!grid || !vertices || !view.Create(kSpectrumCells, kSpectrumCells, kRgb8)) return kOutOfMemory;
  const SpectrumSeen spectrum(analysis_, mask_);
  const int32_t code = DrawSpectrumSurface(spectrum, settings_.protectionRadius, 1.0f, kTaken,
                                           {grid.get(), vertices.get()}, view.view());
  if (code == kSuccess) CopyColours(view.view().data, rgba);
  return code;
}

int32_t PictureCleaning::DrawMask(std::vector<uint8_t>* rgba) const {
  rgba->resize(4 * kGridCells);
  const uint8_t* const cells = mask_.cells.view().data;
  for (size_t i = 0; i < kGridCells; ++i) {
    std::fill_n(&(*rgba)[4 * i], 3, cells[i]);
    (*rgba)[4 * i + 3] = kOpaque;
  }
  return kSuccess;
}

}  // namespace tessaline::web
