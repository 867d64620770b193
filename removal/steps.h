// The removal as four steps between plain values. A door composes them as it needs:
//
//   Analyse   picture               to  Analysis   the spectrum, summed over channels
//   Decide    Analysis, Settings    to  Findings   which cells belong to a pattern, and why
//   Shape     Findings, Settings    to  Mask       how much of every frequency goes
//   Apply     picture, Mask         to  picture    without it
//
// A dry run ends after Decide; frames that share one decision only Apply; parts of a large picture sum their
// spectra (AddSpectrum, FinishAnalysis). The steps keep nothing: what one call needs to know of another is in
// the values. Any number of threads may each run steps of their own, each with a Workspace of its own.
// Results have the same bits for every number of threads inside a step.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "image/image_view.h"
#include "image/result_codes.h"
#include "platform/parallel.h"
#include "platform/progress.h"
#include "removal/automatic_detection.h"
#include "removal/magnitude_sums.h"
#include "removal/notch_filter.h"
#include "removal/padding_chain.h"
#include "removal/padding_fill.h"
#include "removal/picture.h"
#include "removal/settings.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

constexpr int32_t kLargestSide = 7500;  // pixels, of a picture that is transformed as a whole

// Side of the square transform for a picture whose longer side is `side` pixels, at most kLargestSide.
int32_t TransformSizeFor(int32_t side);
inline int32_t TransformSizeFor(const PictureView& picture) {
  return TransformSizeFor(picture.width > picture.height ? picture.width : picture.height);
}

// Whether the steps take such a picture: 1 .. kLargestSide pixels both ways, 1 .. kMostChannels channels.
bool IsUsable(const PictureView& picture);
bool HasSameShape(const PictureView& a, const PictureView& b);

// What an analysis is for.
enum class DecisionKind {
  kAny,
  kByNumber,  // asks for less: no powers
};

// The memory and the threads that steps work with. Kept from call to call it saves taking the memory anew; it
// holds no results.
class Workspace {
 public:
  // `parallel` outlives the workspace; SerialWork() keeps everything on the caller's thread.
  explicit Workspace(Parallel& parallel = SerialWork()) : parallel_(parallel) {}

  // Everything that a step needs for transforms of that size. False: no memory; steps then say so too.
  bool Prepare(int32_t transformSize);
  void Release();

  Parallel& parallel() const { return parallel_; }

  // The plane that the next step will load, for whoever needs memory until then.
  std::span<float> idlePlane() const {
    return {samples_.get(), static_cast<size_t>(size_) * static_cast<size_t>(size_)};
  }
  // Memory for what is made of the filtered rows, as it was left; null where there is not so much. Kept, as
  // all of this is, until Release.
  void* KeptMemory(size_t bytes);

 private:
  friend int32_t AddSpectrum(const PictureView&, Workspace&, const Progress&, struct Analysis*, DecisionKind);
  friend int32_t Filter(const PictureView&, const struct Mask&, Workspace&, const struct ApplyOptions&,
                        const Progress&, class FilteredRows&);
  friend class KeptSpectra;
  friend class MaskShares;

  // One channel as a plane with its padding; returns the rows that are constant.
  ConstantRows LoadPlane(const PictureView& picture, int32_t channel, double remainder, float* mean);

  Parallel& parallel_;
  int32_t size_ = 0;
  OwnedBlock<float> samples_;
  RealPlane plane_;
  PaddingFill fill_;
  RealTransform transform_;
  MagnitudeSums magnitudes_;
  NotchFilter filter_;
  OwnedBlock<double> scratch_;  // 2 N
  OwnedBlock<double> rowSums_;  // N
  OwnedBlock<uint8_t> kept_;
  size_t keptBytes_ = 0;
};

struct Analysis {
  int32_t transformSize = 0;  // N; 0: nothing added yet
  Image sums;    // 512 x 512 doubles: magnitudes, summed over channels and D x D blocks, D = N / 512
  Image powers;  // the same of their squares, which the smeared peaks of a warped page are found in; may be
                 // empty

  // Of FinishAnalysis:
  Image rawGray16;       // 512 x 512, 16-bit: log spectrum, 0..32768, before the peak enhancement
  Image gray16;          // the same after it
  double logSpan = 0.0;  // natural log of spectrum maximum over minimum, centre cross left out

  // What Apply's padding goes on from when it follows the analysis of the same picture (padding_chain.h).
  PaddingChain chain;
  float meanLevels[kMostChannels] = {};  // that the padding of each channel faded towards, 0..32768
};

// Adds a picture's spectrum. All pictures of one analysis have one transform size. Returns 0; kUnequalSizes
// for another transform size; kUnknownPixelKind for a picture without channels or pixels, or larger than
// kLargestSide; kOutOfMemory; kUserCancelled. After an error the analysis is of no use. The first picture's
// kind of decision counts for all.
int32_t AddSpectrum(const PictureView& picture, Workspace& workspace, const Progress& progress,
                    Analysis* analysis, DecisionKind decision = DecisionKind::kAny);
// Makes the images. Returns 0 or kOutOfMemory.
int32_t FinishAnalysis(Analysis* analysis);
// Both for one picture, begun anew.
int32_t Analyse(const PictureView& picture, Workspace& workspace, const Progress& progress,
                Analysis* analysis, DecisionKind decision = DecisionKind::kAny);

struct Findings {
  Image seeds;            // 512 x 512 bytes: pattern cells 255, others 0; point-symmetric
  int32_t seedCells = 0;  // 0: nothing was found
  int32_t threshold = 0;  // by number: what a cell's enhanced value had to exceed, 0..32768
  bool isAutomatic = false;
  std::vector<SpectrumPeak> peaks;  // automatic: all that stand out, highest first
  // Of the strongest licensed peak, in the picture's strong places, 0..32768, up to 16 levels of 255; 0 where
  // nobody has measured it (restoration/decision.h).
  double strongAmplitude = 0.0;
};

int32_t CountSeeds(const ConstImageView& seeds);  // cells of 255

// `licensedBefore`, for the automatic rule: peaks that had a licence in other pictures with the same pattern,
// which keep it here more easily (automatic_detection.h); may be null. Returns 0; kOutOfMemory.
int32_t Decide(const Analysis& analysis, const Settings& settings, Findings* findings,
               const std::vector<SpectrumPeak>* licensedBefore = nullptr);

struct Mask {
  Image cells;  // 512 x 512 bytes: 255 removes the frequency, 0 keeps it
};

// Returns 0; kOutOfMemory.
int32_t Shape(const Findings& findings, const Settings& settings, Mask* mask);

struct ApplyOptions {
  Rounding rounding = Rounding::kTruncate;
  PaddingChain chain;           // the analysis' own after Analyse of the same picture, else as it is
  float* meanLevels = nullptr;  // receives those of the channels, if given
};

// `from` without what the mask takes, into `to`, a picture of the same size, format and number of channels
// that is `from` itself or does not overlap it. Returns 0; kUnknownPixelKind, kUnequalSizes or kOutOfMemory
// with nothing changed. All memory is taken before the first sample changes, and cancelling counts until
// then: a picture is either untouched or finished. What `progress` returns later is not taken.
int32_t Apply(const PictureView& from, const PictureView& to, const Mask& mask, Workspace& workspace,
              const ApplyOptions& options, const Progress& progress);

// Who takes the filtered channels while they are still floating point.
class FilteredRows {
 public:
  virtual ~FilteredRows() = default;
  // Row y of a channel, on the scale 0 .. 32768, unclamped: sample x is levels[2 * x]. Channel after channel,
  // its rows from several threads at once, those from a multiple of 64 on one after the other from one of
  // them; the channel's own samples may be overwritten from then on, those of later ones not. The levels may
  // be overwritten too; those of the last channel stay where they are until the workspace is used again.
  virtual void Take(int32_t channel, int32_t y, float* levels) = 0;
};

// Apply for who wants the channels themselves; `options.rounding` is theirs. Returns what Apply returns.
int32_t Filter(const PictureView& from, const Mask& mask, Workspace& workspace, const ApplyOptions& options,
               const Progress& progress, FilteredRows& rows);

}  // namespace tessaline
