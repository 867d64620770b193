// What an engine of the interface holds, and the work of its calls. Each method either finishes or throws
// (CallFault, std::bad_alloc), and then has changed nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "include/tessaline/tessaline.h"
#include "interface/picture_record.h"
#include "removal/steps.h"
#include "restoration/picture_tiles.h"
#include "restoration/restoration.h"

namespace tessaline {

// What was decided, ready to be handed out.
struct Decision {
  TessalineFindings findings = {};
  std::vector<TessalineNotch> notches;
  std::vector<TessalinePeak> peaks;
  std::string json;  // empty: there was no decision yet
};

// Where a call reads and writes.
struct CallPictures {
  CallerPicture from, to;
  bool isInPlace;
};
// `to` null: in place. Throws CallFault.
CallPictures ViewCallPictures(const TessalinePicture* from, const TessalinePicture* to);

struct CallSettings {
  Settings removal;
  RestorationSettings restoration;
  std::shared_ptr<const ToneCurve> curve;  // the one that `restoration` points to, if it does
};
// Whether some version's settings record has that size.
bool IsSettingsRecord(uint32_t recordBytes);
// What a caller's record says; null stands for the standard values. Throws CallFault.
CallSettings SettingsOf(const TessalineSettings* record);

class InterfaceEngine {
 public:
  // `pool` null: everything on the caller's thread.
  explicit InterfaceEngine(std::unique_ptr<Parallel> pool)
      : pool_(std::move(pool)), workspace_(pool_ ? *pool_ : SerialWork()) {}

  TessalineProgress progress = nullptr;
  void* progressUser = nullptr;

  void AnalyseAnew(const CallerPicture& picture);
  void AnalyseMore(const CallerPicture& picture);
  void DecideBy(const CallSettings& settings);
  void SetMask(const uint8_t* cells);
  void ApplyMask(const CallPictures& pictures, uint32_t flags);
  void Clean(const CallPictures& pictures, const CallSettings& settings, uint32_t flags);
  void ReleaseMemory() { workspace_.Release(); }

  const Decision& decision() const { return decision_; }
  ConstImageView mask() const { return removal_.mask.cells.view(); }

 private:
  // What is taken out, and how.
  struct Removal {
    Mask mask;
    Findings findings;  // automatic: the mask is theirs, and the restoration measures by them
    RestorationSettings restoration;
    std::shared_ptr<const ToneCurve> curve;  // that it points to
  };
  struct Decided {
    Decision decision;
    Removal removal;
  };
  // What was analysed: the spectrum, and tiles to check licences in.
  struct Analysed {
    Analysis spectrum;
    PictureTiles tiles;
  };
  Analysed Examine(const CallerPicture& picture, const Progress& part);
  Decided DecideOn(const Analysed& analysed, const CallSettings& settings);
  void TakeOut(const CallPictures& pictures, const Removal& removal, uint32_t flags,
               const PaddingChain& chain, const Progress& part);
  Progress ProgressOfCall() { return {Report, this}; }
  static bool Report(void* user, double part);

  std::unique_ptr<Parallel> pool_;
  Workspace workspace_;
  Analysed analysed_;
  Decision decision_;
  Removal removal_;
};

}  // namespace tessaline
