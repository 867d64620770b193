// One picture of the page on its way from its pixels to its result: the engine's steps with everything kept
// between them, so that a changed setting or a peak that the user turns off repeats no more than it must.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "removal/notches.h"
#include "removal/steps.h"
#include "removal/tone_curve.h"
#include "restoration/decision.h"
#include "restoration/picture_tiles.h"
#include "restoration/restoration.h"
#include "web/live_part.h"

namespace tessaline::web {

// Pixels as the page hands them over: interleaved samples, colours first, whatever follows them is carried.
struct PixelLayout {
  int32_t width = 0;
  int32_t height = 0;
  int32_t samples = 0;   // of a pixel, 1 .. 4
  int32_t channels = 0;  // of them cleaned: 1 or 3
  SampleFormat format = SampleFormat::kByte;

  size_t PixelBytes() const { return static_cast<size_t>(samples) * SampleBytes(format); }
  size_t Bytes() const { return static_cast<size_t>(width) * static_cast<size_t>(height) * PixelBytes(); }
  PictureView View(uint8_t* pixels) const;
};

// What the run of such a picture will have taken of memory when it ends, the engine's tables included.
double BytesNeeded(const PixelLayout& layout);

// Every function returns a result code of the engine's; after one that is not kSuccess, what was there before
// still is.
class PictureCleaning {
 public:
  // `parallel` outlives it.
  explicit PictureCleaning(Parallel& parallel = SerialWork()) : workspace_(parallel), live_(parallel) {}

  // Takes memory for the pixels and for the result; the caller fills pixels().
  int32_t Open(const PixelLayout& layout);
  uint8_t* pixels() { return pixels_.get(); }
  const uint8_t* result() const { return result_.get(); }
  const PixelLayout& layout() const { return layout_; }
  // What the picture's file says of its levels; automatic runs may work on light then.
  void SetLight(const ToneCurve& curve) { curve_ = curve; }

  // Takes the memory beforehand that a picture of that size will be analysed in.
  int32_t Expect(int32_t width, int32_t height);
  // A picture whose colours are equal throughout is taken as grey from here on.
  int32_t Analyse(const Progress& progress);
  // Takes back what the user turned, but where the notch radius alone is another.
  int32_t Decide(const Settings& settings);
  // Takes a peak of peaks() or notches() out or leaves it: the cells nearest to it and to no other.
  int32_t TurnPeak(int32_t dx, int32_t dy, bool isTakenOut);
  int32_t Restore(const Progress& progress);
  // A part as Restore makes it but for the polish, while a setting moves: RGBA, with its alpha. The first of
  // a part transforms it and finds where the pattern is, which PrepareLive does beforehand; while it stays
  // the same part the pattern's places stay those that PrepareLive found.
  int32_t PrepareLive(const Part& part);
  int32_t DrawLive(const Part& part, std::vector<uint8_t>* rgba);

  // After Decide. All 512 x 512 pixels of RGBA: the logarithm of the spectrum with what is taken out in red,
  // from above and as a surface, and the mask alone.
  int32_t DrawSpectrum(std::vector<uint8_t>* rgba) const;
  int32_t DrawSurface(std::vector<uint8_t>* rgba) const;
  int32_t DrawMask(std::vector<uint8_t>* rgba) const;

  const Analysis& analysis() const { return analysis_; }
  const Findings& findings() const { return findings_; }
  const Settings& settings() const { return settings_; }
  const std::vector<Notch>& notches() const { return notches_; }
  bool IsTakenOut(int32_t dx, int32_t dy) const;
  bool IsOfLight() const { return CurveOf(restoration_, findings_) != nullptr; }

 private:
  struct Place {
    int32_t dx, dy;
  };
  std::vector<Place> PlacesOfPeaks() const;
  int32_t UseFindings();
  bool IsInside(const Part& part) const;
  int32_t DrawWithoutLines(const Part& part, std::vector<uint8_t>* rgba);
  TiledPicture Tiled() const;
  const ToneCurve* LightNow() const;
  void CopyAlpha(const Part& part, std::vector<uint8_t>* rgba) const;
  float Strong();
  void CopyGrey(const PixelLayout& layout, uint8_t* pixels) const;
  bool HasEqualColours() const;

  PixelLayout layout_;
  int32_t colours_ = 0;  // channels of the picture as it came
  OwnedBlock<uint8_t> pixels_, result_;
  bool isDecided_ = false;
  bool isGrey_ = false;  // three equal channels, of which one is cleaned
  Workspace workspace_;
  Analysis analysis_;
  PictureTiles tiles_;  // of a picture that is too large for one transform
  KeptMeasures kept_;   // of the analysis
  Settings settings_;
  RestorationSettings restoration_;
  std::optional<ToneCurve> curve_;
  Findings found_;     // as decided
  Findings findings_;  // with what the user turned
  std::vector<Notch> notches_;
  Mask mask_;
  float strong_ = -1.0f;                 // amplitude of the strong places; below 0: not measured yet
  std::vector<Carrier> strongCarriers_;  // it was measured by
  LivePart live_;
};

}  // namespace tessaline::web
