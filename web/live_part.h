// The visible part while a setting moves: what the notches take of it and where the pattern is, at the pace
// of a hand. Its transforms and its gate are kept as long as it and the decision stay; the polish comes with
// the result.
#pragma once

#include <cstdint>
#include <vector>

#include "image/image_view.h"
#include "removal/kept_spectra.h"
#include "restoration/gate.h"

namespace tessaline::web {

// A part of the picture; at most kLargestPart both ways.
struct Part {
  int32_t x = 0, y = 0, width = 0, height = 0;

  bool operator==(const Part&) const = default;
};
constexpr int32_t kLargestPart = 1024;
PictureView PartOf(const PictureView& whole, const Part& part);

// What the largest live part of such a picture keeps and works with, in bytes.
double LiveBytesNeeded(int32_t width, int32_t height, int32_t channels);

class LivePart {
 public:
  // How the part is cleaned, but for the mask. `plan` counts where `isGated`.
  struct Way {
    const ToneCurve* light = nullptr;
    bool isGated = false;
    GatePlan plan;
  };

  // `parallel` outlives it.
  explicit LivePart(Parallel& parallel = SerialWork()) : workspace_(parallel) {}

  // Makes ready what is not. `whole` is all of the picture; its pixels stay until another Prepare or Release.
  // Returns 0 or kOutOfMemory, then with nothing kept. May throw std::bad_alloc.
  int32_t Prepare(const PictureView& whole, const Part& part, const Way& way);
  // Whether Draw can go on from what was prepared, for a part that is cleaned so: the gate's own plan may be
  // an older one, but it is one of carriers, or open everywhere, as `isGated` tells.
  bool IsReady(const Part& part, const ToneCurve* light, bool isGated) const;
  // The part without what the mask takes: rows of RGBA, opaque. Returns 0 or kOutOfMemory.
  int32_t Draw(const Mask& mask, std::vector<uint8_t>* rgba);
  void Release();

 private:
  // A piece of the part that the smallest transform holds, for several of those are faster than a large one.
  struct Piece {
    Part part;            // of the picture
    PictureView around;   // with some of what surrounds it, which the transform sees
    int32_t left, above;  // of that, beside the piece
    KeptSpectra spectra;
  };
  class Rows;
  int32_t LoadPieces(const PictureView& whole, const Way& way);
  bool IsGateReady(const Way& way) const;
  int32_t MeasureGate(const PictureView& whole, const Way& way);

  Workspace workspace_;
  MaskShares shares_;
  std::vector<Piece> pieces_;
  Gate gate_;  // of the part
  Way way_;
  bool hasGate_ = false;
  Part part_;
  std::vector<uint8_t> codes_;  // of light, at even steps of its square root
};

}  // namespace tessaline::web
