// The library's C interface: pictures of any layout, any settings, calls in any order. Memory is as large as
// a picture's record says, to the byte, and what a call must not change is compared.
#include <memory>
#include <vector>

#include "include/tessaline/tessaline.h"
#include "tests/fuzz/bytes.h"

namespace tessaline::fuzz {
namespace {

constexpr size_t kMostBytes = 1 << 16;

class CallerPicture {
 public:
  explicit CallerPicture(Bytes& input) {
    const bool isSane = input.Pick(4) != 0;
    record_.width = isSane ? 1 + input.Pick(48) : input.Hostile();
    record_.height = isSane ? 1 + input.Pick(48) : input.Hostile();
    record_.format = input.Pick(isSane ? 4 : 7) + (isSane ? 1 : -1);
    record_.channels = input.Pick(isSane ? 4 : 7) + (isSane ? 1 : -1);
    const bool hasPlanes = input.Flag();
    const int32_t sample = record_.format == TESSALINE_UINT8     ? 1
                           : record_.format == TESSALINE_FLOAT32 ? 4
                                                                 : 2;
    const int32_t packed = sample * (hasPlanes ? 1 : record_.channels);
    if (input.Flag()) record_.pixelStride = (packed + sample * input.Pick(3)) * (input.Flag() ? 1 : -1);
    if (input.Flag())
      record_.rowStride =
          record_.width * ptrdiff_t{packed + sample * input.Pick(3)} * (input.Flag() ? 1 : -1);
    if (input.Pick(8) == 0) std::swap(record_.pixelStride, record_.rowStride);
    if (input.Pick(16) == 0) record_.rowStride = input.Take<ptrdiff_t>();
    // By the header: from the lowest to the highest byte of any sample.
    const __int128 pixelStride = record_.pixelStride != 0 ? record_.pixelStride : packed;
    const __int128 rowStride = record_.rowStride != 0
                                   ? __int128{record_.rowStride}
                                   : record_.width * (pixelStride < 0 ? -pixelStride : pixelStride);
    const __int128 across = pixelStride * (record_.width - 1), down = rowStride * (record_.height - 1);
    const __int128 low = std::min<__int128>(across, 0) + std::min<__int128>(down, 0);
    const __int128 size = std::max<__int128>(across, 0) + std::max<__int128>(down, 0) - low + packed;
    if (record_.width < 1 || record_.height < 1 || record_.channels < 1 || record_.channels > 4 ||
        size > kMostBytes)
      return;
    Noise noise(input.Take<uint8_t>());
    const int32_t contents = input.Pick(5);
    for (int32_t plane = 0; plane < (hasPlanes ? record_.channels : 1); ++plane) {
      auto& block = blocks_.emplace_back(static_cast<size_t>(size) + static_cast<size_t>(sample));
      size_t begin = 0;
      if (contents == 4) begin = static_cast<size_t>(input.Pick(sample + 1));  // perhaps at an odd address
      Fill(block, record_.format, contents, noise);
      uint8_t* const first = block.data() + begin - static_cast<ptrdiff_t>(low);
      if (hasPlanes)
        record_.planes[plane] = first;
      else
        record_.pixels = first;
    }
    before_ = blocks_;
  }

  const TessalinePicture* record() const { return &record_; }
  bool IsUntouched() const { return blocks_ == before_; }
  void Settle() { before_ = blocks_; }

 private:
  static void Fill(std::vector<uint8_t>& block, int32_t format, int32_t contents, Noise& noise) {
    const float levels[] = {0.0f, 1.0f, 0.5f, -2.0f, 1e7f};
    for (size_t i = 0; i < block.size(); ++i)
      block[i] = static_cast<uint8_t>(contents == 0 ? 128 : noise.Next());
    if (format != TESSALINE_FLOAT32 || contents == 1) return;  // 1: any bits
    for (size_t i = 0; i + 4 <= block.size(); i += 4) {
      const float level =
          contents == 2 ? levels[noise.Next() % 5] : static_cast<float>(noise.Next() % 256) / 255.0f;
      std::memcpy(block.data() + i, &level, sizeof level);
    }
  }

  TessalinePicture record_ = {};
  std::vector<std::vector<uint8_t>> blocks_, before_;
};

struct Watch {
  TessalineEngine* engine;
  int32_t toldUntilCancelled;
  double last = 0;
};

int32_t OnProgress(void* user, double part) {
  auto& watch = *static_cast<Watch*>(user);
  DEMAND(part >= watch.last && part <= 1);
  watch.last = part;
  DEMAND(tessaline_release_memory(watch.engine) == TESSALINE_ERROR_BUSY);
  return --watch.toldUntilCancelled == 0;
}

TessalineSettings TakeSettings(Bytes& input, const std::vector<float>& curve) {
  TessalineSettings settings = {};
  tessaline_settings_init(&settings, sizeof settings);
  if (input.Flag()) settings.isAutomatic = input.Pick(3);
  if (input.Flag())
    settings.acceptance = input.Flag() ? static_cast<float>(input.Pick(101)) : input.Take<float>();
  if (input.Pick(3) == 0) settings.notchRadius = input.Take<float>();
  if (input.Pick(3) == 0) settings.protectionRadius = input.Take<float>();
  if (input.Pick(3) == 0) settings.sensitivity = input.Take<double>();
  if (input.Pick(3) == 0) settings.polish = input.Flag() ? input.Pick(3) : input.Take<double>();
  if (input.Pick(3) == 0) settings.light = input.Pick(4);
  if (input.Pick(3) == 0) settings.colours = input.Pick(3);
  if (input.Pick(4) == 0) {
    settings.lightCurve = curve.data();
    settings.lightCurveCount = static_cast<int32_t>(curve.size());
  }
  if (input.Pick(8) == 0) settings.recordBytes = input.Take<uint8_t>();
  if (input.Pick(8) == 0) settings.lightCurveCount = 0;
  return settings;
}

void DemandFindings(const TessalineEngine* engine) {
  TessalineFindings findings = {};
  findings.recordBytes = sizeof findings;
  if (tessaline_get_findings(engine, &findings) != TESSALINE_OK) return;
  DEMAND(tessaline_findings_json(engine) != nullptr);
  for (int32_t i = -1; i <= findings.notchCount; ++i) {
    TessalineNotch notch = {};
    notch.recordBytes = sizeof notch;
    const int32_t wanted = i >= 0 && i < findings.notchCount ? TESSALINE_OK : TESSALINE_ERROR_ARGUMENT;
    DEMAND(tessaline_get_notch(engine, i, &notch) == wanted);
  }
  for (int32_t i = -1; i <= findings.peakCount; ++i) {
    TessalinePeak peak = {};
    peak.recordBytes = sizeof peak;
    const int32_t wanted = i >= 0 && i < findings.peakCount ? TESSALINE_OK : TESSALINE_ERROR_ARGUMENT;
    DEMAND(tessaline_get_peak(engine, i, &peak) == wanted);
  }
}

// One call, of which the dear ones are counted.
int32_t Call(Bytes& input, TessalineEngine* engine, int32_t* dear) {
  CallerPicture from(input), to(input);
  std::vector<float> curve(static_cast<size_t>(2 + input.Pick(4)));
  for (float& light : curve)
    light = input.Flag() ? static_cast<float>(&light - curve.data()) / 5 : input.Take<float>();
  const TessalineSettings settings = TakeSettings(input, curve);
  const TessalineSettings* const given = input.Flag() ? &settings : nullptr;
  const int32_t where = input.Pick(3);
  const TessalinePicture* const target = where == 0 ? nullptr : where == 1 ? from.record() : to.record();
  const uint32_t flags = input.Pick(4) == 0 ? input.Take<uint8_t>() : 0;
  Watch watch = {engine, input.Pick(40)};
  tessaline_set_progress(engine, input.Flag() ? OnProgress : nullptr, &watch);
  int32_t result = TESSALINE_OK;
  bool mayChange = false;
  switch (input.Pick(7)) {
    case 0:
      if (++*dear <= 2) result = tessaline_analyse(engine, from.record());
      break;
    case 1:
      if (++*dear <= 2) result = tessaline_analyse_more(engine, from.record());
      break;
    case 2:
      result = tessaline_decide(engine, given);
      break;
    case 3: {
      std::vector<uint8_t> cells(TESSALINE_MASK_BYTES, input.Take<uint8_t>());
      result =
          input.Flag() ? tessaline_get_mask(engine, cells.data()) : tessaline_set_mask(engine, cells.data());
      break;
    }
    case 4:
      mayChange = true;
      if (++*dear <= 2) result = tessaline_apply(engine, from.record(), target, flags);
      break;
    case 5:
      mayChange = true;
      if (++*dear <= 2) result = tessaline_clean(engine, from.record(), target, given, flags);
      break;
    default:
      result = tessaline_release_memory(engine);
  }
  if (result != TESSALINE_OK || !mayChange) DEMAND(from.IsUntouched() && to.IsUntouched());
  if (where == 2) DEMAND(from.IsUntouched());
  DEMAND((result == TESSALINE_OK) == (tessaline_error_text(engine)[0] == '\0') ||
         result == TESSALINE_ERROR_ORDER);
  DEMAND(tessaline_code_text(result) != nullptr);
  DemandFindings(engine);
  return result;
}

}  // namespace
}  // namespace tessaline::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  tessaline::fuzz::Bytes input(bytes, count);
  TessalineEngine* engine = nullptr;
  if (tessaline_create(input.Flag() ? 1 : 1 + input.Pick(2), &engine) != TESSALINE_OK) return 0;
  int32_t dear = 0;
  for (int32_t call = 0; call < 6 && !input.IsEmpty(); ++call) tessaline::fuzz::Call(input, engine, &dear);
  tessaline_destroy(engine);
  return 0;
}
