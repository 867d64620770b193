// Where in a picture its pattern is: elsewhere nothing is to be taken out, and text beside a halftone stays
// sample for sample as it is.
//
// The picture is demodulated at the frequencies of its licensed peaks; what comes out is the pattern's
// amplitude at every place, and where it is a small part of what it reaches elsewhere, the gate is closed.
//
// The demodulation is wide, for in a narrow one text would look like a screen, so the amplitude falls off
// slowly beyond a picture's edge. There a narrow one tells: where it holds little of the wave that the wide
// one sees, that wave comes from beside, and the gate is closed too.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/progress.h"
#include "removal/picture.h"
#include "removal/steps.h"
#include "restoration/demodulation.h"
#include "restoration/picture_tiles.h"
#include "restoration/plane.h"

namespace tessaline {

// What the gate is measured by.
struct GatePlan {
  std::vector<Carrier> carriers;  // at most kMostCarriers; none: nothing to measure by, it is open everywhere
  std::vector<Carrier> beside;    // by carrier, the way from it to where the picture alone is as strong
  PeakScale scale = PeakScale::kFine;
  // Carriers come in pairs, an ink's two directions. The first ink may be black, as writing is; another one
  // is where the channels differ by it.
  bool isByInk = false;
  float strong = 0.0f;       // amplitude of the strong places, 0..32768; 0: as the picture measured has them
  bool isCutAtEdges = true;  // and small places mended; false: by the wide demodulation alone
};
// The licensed peaks of greatest magnitude.
GatePlan PlanGate(const Findings& findings);

// The amplitude of a picture's strong places, from tiles of it, for a gate that sees parts of it alone; 0
// where nothing was found. May throw std::bad_alloc.
float MeasureStrong(const TiledPicture& tiled, const Findings& findings);

class Gate {
 public:
  static constexpr int32_t kReduction = 4;

  // For pictures of such a shape. What is needed while it is measured goes to `lent` as far as that is
  // enough. False: no memory. May throw std::bad_alloc.
  bool Prepare(const PictureView& picture, const GatePlan& plan, int32_t threads, std::span<float> lent = {});

  // Measures the picture; without carriers the gate is open throughout. Gives back all memory but the
  // result's. True: stopped.
  bool Measure(const PictureView& picture, Parallel& parallel, const Progress& progress);

  // Of the same, the pattern's amplitudes alone, added to `amplitudes`; Prepare is wanted before each.
  void AddAmplitudes(const PictureView& picture, std::vector<float>* amplitudes);

  // How far it is open along row y, 0, as before, to 1, without what the notches take: for the pixels of some
  // blocks of kReduction.
  void Row(int32_t y, int32_t firstBlock, int32_t blocks, float* open) const {
    EnlargeRow(open_, kReduction, y, firstBlock, blocks, open);
  }
  int32_t blocks() const { return open_.width; }
  const float* Blocks(int32_t blockY) const { return open_.Row(blockY); }  // a row of them, at their middles
  // Whether it is wide open everywhere in a part of the picture.
  bool IsOpen(int32_t x, int32_t y, int32_t columns, int32_t rows) const;

 private:
  struct Scratch;
  // From a carrier's planes to the places beside it: they are turned on by the distance. Both sides share the
  // work, for the one turns as the other one back.
  struct Beside {
    Wave acrossX, acrossY;
    float gain;  // what the window took of the power there, to multiply by

    Beside(const Carrier& step, const Demodulation& demodulation, const struct GateRule& rule,
           int32_t reduction);
  };

  void AddRow(int32_t y, const Scratch& scratch);
  void AddInks(int32_t y, const Scratch& scratch);
  void AddColouredInks(Parallel& parallel);
  bool MeasureAmplitude(const PictureView& picture, Parallel& parallel, const Progress& progress);
  void TakeUsualOff(Parallel& parallel);
  void OpenWherePattern(Parallel& parallel);
  void CutAtEdges(Parallel& parallel);
  Scratch ScratchOf(int32_t worker);

  Plane open_;
  // While it is measured.
  GatePlan plan_;
  int32_t reduction_ = kReduction;  // of the demodulation
  Demodulation demodulation_;
  struct {
    GaussianKernel wide{0.0}, near{0.0};
  } kernels_;
  std::vector<Beside> beside_;  // by carrier; none where the usual is not looked at
  Plane pattern_, usual_;       // greatest power of the channels at the carriers, and beside them
  struct ColouredInk {
    Plane most, least;  // power of the channels
  };
  std::vector<ColouredInk> colouredInks_;
  Plane near_, wide_;         // what the narrow waves have of the wide ones, and those; none without edges
  Plane amplitude_;           // of the pattern
  Plane softened_;            // what the gate is blurred by way of
  OwnedBlock<float> memory_;  // of every thread
  size_t threadFloats_ = 0;
};

}  // namespace tessaline
