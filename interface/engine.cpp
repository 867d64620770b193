#include "interface/engine.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

#include "interface/call_fault.h"
#include "interface/findings_json.h"
#include "removal/notches.h"
#include "restoration/decision.h"
#include "tiling/any_size.h"

namespace tessaline {
namespace {

static_assert(TESSALINE_MASK_SIDE == kSpectrumCells);
constexpr uint32_t kAllFlags = TESSALINE_ROUND_TO_NEAREST | TESSALINE_PICTURE_OF_ANALYSIS;

// What a step says, as the interface says it.
void Demand(int32_t result) {
  switch (result) {
    case kSuccess:
      return;
    case kOutOfMemory:
      throw CallFault{TESSALINE_ERROR_NO_MEMORY,
                      "not enough memory for the transform; close other programs or take a smaller picture"};
    case kUserCancelled:
      throw CallFault{TESSALINE_ERROR_CANCELLED, "cancelled by the progress function"};
    case kUnequalSizes:
      throw CallFault{TESSALINE_ERROR_PICTURE,
                      "the picture's transform has another size than those analysed before; pictures of one "
                      "analysis have to be about as large"};
    default:
      throw CallFault{TESSALINE_ERROR_PICTURE, "the engine refused it with " + std::to_string(result)};
  }
}

void CheckFlags(uint32_t flags) {
  if ((flags & ~kAllFlags) == 0) return;
  throw CallFault{TESSALINE_ERROR_ARGUMENT, "flags " + std::to_string(flags) + " has bits without a meaning"};
}

template <typename Value>
void CheckRange(Value value, const SettingRange& range, const char* name) {
  // The standard values are floats; a double that was written as 1.3 means that one. False for not-a-number.
  const auto given = static_cast<float>(value);
  if (given >= range.minimum && given <= range.maximum) return;
  throw CallFault{TESSALINE_ERROR_SETTINGS, std::string(name) + " is " + std::to_string(value) +
                                                "; it has to be " + std::to_string(range.minimum) + " to " +
                                                std::to_string(range.maximum)};
}

static_assert(TESSALINE_LIGHT_CODED == static_cast<int32_t>(Light::kCoded) &&
              TESSALINE_LIGHT_LINEAR == static_cast<int32_t>(Light::kLinear) &&
              TESSALINE_COLOURS_LAB == static_cast<int32_t>(ChannelMeaning::kOpponents));
void CheckChoice(int32_t value, int32_t last, const char* name) {
  if (value >= 0 && value <= last) return;
  throw CallFault{TESSALINE_ERROR_SETTINGS, std::string(name) + " is " + std::to_string(value) +
                                                "; it has to be 0 to " + std::to_string(last)};
}

// Null where the record has none.
std::shared_ptr<const ToneCurve> CurveOf(const TessalineSettings& record) {
  constexpr int32_t kMostEntries = 65536;
  if (record.lightCurve == nullptr && record.lightCurveCount == 0) return nullptr;
  const auto curve = std::make_shared<ToneCurve>();
  if (record.lightCurve == nullptr || record.lightCurveCount > kMostEntries ||
      !curve->Create(record.lightCurve, record.lightCurveCount)) {
    throw CallFault{
        TESSALINE_ERROR_SETTINGS,
        "lightCurve is none: it takes 2 to 65536 numbers that never fall, the last above the first"};
  }
  return curve;
}

int32_t VerdictOf(const SpectrumPeak& peak) {
  static_assert(TESSALINE_PEAK_NO_LICENCE == static_cast<int32_t>(PeakVerdict::kNoLicence) &&
                TESSALINE_PEAK_BLOCKS == static_cast<int32_t>(PeakVerdict::kBlocks));
  const bool isWindows = peak.isGrid && peak.verdict != PeakVerdict::kUsed;
  return isWindows ? int32_t{TESSALINE_PEAK_WINDOWS} : static_cast<int32_t>(peak.verdict);
}

TessalinePeak RecordOf(const SpectrumPeak& peak) {
  return {sizeof(TessalinePeak), peak.dx,    peak.dy,     VerdictOf(peak), peak.isLicensed, 0,
          peak.period,           peak.angle, peak.height, peak.isolation};
}

TessalineNotch RecordOf(const Notch& notch, bool hasThreshold) {
  return {sizeof(TessalineNotch),
          notch.dx,
          notch.dy,
          notch.cells,
          notch.level,
          hasThreshold ? notch.aboveThreshold : 0,
          notch.periodPixels,
          notch.angleDegrees,
          notch.cyclesPerPixelX,
          notch.cyclesPerPixelY};
}

Decision Describe(const Analysis& analysis, const Findings& findings) {
  const std::vector<Notch> notches = CollectNotches(analysis, findings);
  Decision decision;
  for (const Notch& notch : notches) decision.notches.push_back(RecordOf(notch, !findings.isAutomatic));
  for (const SpectrumPeak& peak : findings.peaks) decision.peaks.push_back(RecordOf(peak));
  decision.findings = {sizeof(TessalineFindings),
                       analysis.transformSize,
                       findings.isAutomatic,
                       findings.isAutomatic ? 0 : findings.threshold,
                       findings.seedCells,
                       static_cast<int32_t>(decision.notches.size()),
                       static_cast<int32_t>(decision.peaks.size()),
                       0,
                       analysis.logSpan};
  decision.json = FindingsAsJson(analysis, findings, notches);
  return decision;
}

bool TakesNothing(const ConstImageView& mask) {
  return std::all_of(mask.data, mask.data + TESSALINE_MASK_BYTES, [](uint8_t cell) { return cell == 0; });
}

}  // namespace

CallPictures ViewCallPictures(const TessalinePicture* from, const TessalinePicture* to) {
  CallPictures pictures;
  pictures.from = ViewCallerPicture(from, "from");
  pictures.to = to != nullptr ? ViewCallerPicture(to, "to") : pictures.from;
  DemandSameShape(pictures.from, pictures.to);
  pictures.isInPlace = IsSameMemory(pictures.from, pictures.to);
  DemandUsableSamples(pictures.from);
  return pictures;
}

bool IsSettingsRecord(uint32_t recordBytes) {
  return recordBytes == offsetof(TessalineSettings, light) || recordBytes == sizeof(TessalineSettings);
}

CallSettings SettingsOf(const TessalineSettings* record) {
  TessalineSettings known;
  tessaline_settings_init(&known, sizeof known);
  if (record != nullptr) {
    if (!IsSettingsRecord(record->recordBytes)) {
      throw CallFault{TESSALINE_ERROR_SETTINGS, "recordBytes is " + std::to_string(record->recordBytes) +
                                                    "; this library knows " + std::to_string(sizeof known) +
                                                    " (begin with tessaline_settings_init)"};
    }
    std::memcpy(&known, record, record->recordBytes);
  }
  CheckRange(known.acceptance, kAcceptanceRange, "acceptance");
  CheckRange(known.notchRadius, kNotchRadiusRange, "notchRadius");
  CheckRange(known.protectionRadius, kProtectionRadiusRange, "protectionRadius");
  CheckRange(known.sensitivity, kSensitivityRange, "sensitivity");
  CheckRange(known.polish, kPolishRange, "polish");
  CheckChoice(known.light, TESSALINE_LIGHT_LINEAR, "light");
  CheckChoice(known.colours, TESSALINE_COLOURS_LAB, "colours");
  CallSettings settings;
  settings.curve = CurveOf(known);
  settings.removal = {known.isAutomatic != 0, known.acceptance, known.sensitivity, known.notchRadius,
                      known.protectionRadius};
  settings.restoration.everywhere = known.isEverywhere != 0;
  settings.restoration.polish = static_cast<float>(known.polish);
  settings.restoration.meaning = static_cast<ChannelMeaning>(known.colours);
  settings.restoration.light = {static_cast<Light>(known.light), settings.curve.get()};
  return settings;
}

bool InterfaceEngine::Report(void* user, double part) {
  const auto& engine = *static_cast<InterfaceEngine*>(user);
  return engine.progress != nullptr && engine.progress(engine.progressUser, part) != 0;
}

InterfaceEngine::Analysed InterfaceEngine::Examine(const CallerPicture& picture, const Progress& part) {
  Analysed analysed;
  Demand(AnalyseAnySize(picture.cleaned, workspace_, part, &analysed.spectrum, &analysed.tiles));
  return analysed;
}

void InterfaceEngine::AnalyseAnew(const CallerPicture& picture) {
  analysed_ = Examine(picture, ProgressOfCall());
}

void InterfaceEngine::AnalyseMore(const CallerPicture& picture) {
  if (analysed_.spectrum.transformSize == 0) {
    throw CallFault{TESSALINE_ERROR_ORDER, "nothing was analysed yet; call tessaline_analyse first"};
  }
  if (IsDoneInTiles(picture.cleaned)) {
    throw CallFault{TESSALINE_ERROR_PICTURE,
                    "a picture that is done in tiles is analysed alone; call tessaline_analyse"};
  }
  const Analysis& held = analysed_.spectrum;
  Analysed sum;  // what is held stays as it is until all is well
  if (!sum.spectrum.sums.Create(kSpectrumCells, kSpectrumCells, sizeof(double)) ||
      !sum.spectrum.powers.Create(kSpectrumCells, kSpectrumCells, sizeof(double))) {
    Demand(kOutOfMemory);
  }
  CopyImage(held.sums.view(), sum.spectrum.sums.view());
  CopyImage(held.powers.view(), sum.spectrum.powers.view());
  sum.spectrum.transformSize = held.transformSize;
  sum.tiles = analysed_.tiles;
  Demand(AddSpectrum(picture.cleaned, workspace_, ProgressOfCall(), &sum.spectrum));
  Demand(FinishAnalysis(&sum.spectrum));
  Demand(sum.tiles.Add(picture.cleaned, workspace_.parallel()));
  analysed_ = std::move(sum);
}

InterfaceEngine::Decided InterfaceEngine::DecideOn(const Analysed& analysed, const CallSettings& settings) {
  Decided decided;
  Removal& removal = decided.removal;
  Demand(DecideWhole(analysed.tiles, analysed.spectrum, settings.removal, workspace_, &removal.findings));
  Demand(Shape(removal.findings, settings.removal, &removal.mask));
  removal.restoration = settings.restoration;
  removal.curve = settings.curve;
  decided.decision = Describe(analysed.spectrum, removal.findings);
  return decided;
}

void InterfaceEngine::DecideBy(const CallSettings& settings) {
  if (analysed_.spectrum.transformSize == 0) {
    throw CallFault{TESSALINE_ERROR_ORDER, "nothing was analysed yet; call tessaline_analyse first"};
  }
  Decided decided = DecideOn(analysed_, settings);
  decision_ = std::move(decided.decision);
  removal_ = std::move(decided.removal);
}

void InterfaceEngine::SetMask(const uint8_t* cells) {
  Removal removal;
  if (!removal.mask.cells.Create(kSpectrumCells, kSpectrumCells, 1)) Demand(kOutOfMemory);
  std::memcpy(removal.mask.cells.view().data, cells, TESSALINE_MASK_BYTES);
  removal_ = std::move(removal);
}

void InterfaceEngine::TakeOut(const CallPictures& pictures, const Removal& removal, uint32_t flags,
                              const PaddingChain& chain, const Progress& part) {
  if (TakesNothing(removal.mask.cells.view())) {
    if (part.Advance(0.0, 1.0)) Demand(kUserCancelled);
    if (!pictures.isInPlace) CopySamples(pictures.from, pictures.to, CopiedChannels::kAll);
    part.Unstoppable().Advance(1.0, 1.0);
    return;
  }
  ApplyOptions options;
  options.rounding = (flags & TESSALINE_ROUND_TO_NEAREST) != 0 ? Rounding::kNearest : Rounding::kTruncate;
  options.chain = chain;
  const PictureView &from = pictures.from.cleaned, &to = pictures.to.cleaned;
  Demand(TakeOutAnySize(from, to, removal.findings, removal.mask, workspace_, options, removal.restoration,
                        part));
  if (!pictures.isInPlace) CopySamples(pictures.from, pictures.to, CopiedChannels::kAlpha);
}

void InterfaceEngine::ApplyMask(const CallPictures& pictures, uint32_t flags) {
  CheckFlags(flags);
  if (removal_.mask.cells.IsEmpty()) {
    throw CallFault{TESSALINE_ERROR_ORDER,
                    "there is no mask; call tessaline_decide or tessaline_set_mask first"};
  }
  PaddingChain chain;
  if ((flags & TESSALINE_PICTURE_OF_ANALYSIS) != 0) {
    const PictureView& picture = pictures.from.cleaned;
    if (!IsDoneInTiles(picture) && analysed_.spectrum.transformSize != TransformSizeFor(picture)) {
      throw CallFault{
          TESSALINE_ERROR_ORDER,
          "this is not the picture that was analysed last; leave TESSALINE_PICTURE_OF_ANALYSIS out"};
    }
    chain = analysed_.spectrum.chain;
  }
  TakeOut(pictures, removal_, flags, chain, ProgressOfCall());
}

void InterfaceEngine::Clean(const CallPictures& pictures, const CallSettings& settings, uint32_t flags) {
  CheckFlags(flags);
  const Progress reports = ProgressOfCall();
  Analysed analysed = Examine(pictures.from, reports.Part(0.0, 0.5));
  Decided decided = DecideOn(analysed, settings);
  TakeOut(pictures, decided.removal, flags, analysed.spectrum.chain, reports.Part(0.5, 1.0));
  analysed_ = std::move(analysed);
  decision_ = std::move(decided.decision);
  removal_ = std::move(decided.removal);
}

}  // namespace tessaline
