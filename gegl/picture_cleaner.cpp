#include "gegl/picture_cleaner.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "image/sample_holes.h"

namespace tessaline::gegl {
namespace {

// A picture's samples, packed.
struct Samples {
  SampleFormat format;
  int32_t width, height;
  std::vector<uint8_t> bytes;

  TessalinePicture Record() {
    return {.width = width,
            .height = height,
            .format = format.samples,
            .channels = format.colours,
            .pixels = bytes.data(),
            .pixelStride = static_cast<ptrdiff_t>(format.PixelBytes())};
  }
};

Samples Read(GeglBuffer* input, const GeglRectangle& picture) {
  Samples samples = {SampleFormatFor(gegl_buffer_get_format(input)), picture.width, picture.height, {}};
  samples.bytes.resize(samples.format.PixelBytes() * static_cast<size_t>(picture.width) *
                       static_cast<size_t>(picture.height));
  gegl_buffer_get(input, &picture, 1.0, samples.format.babl, samples.bytes.data(), GEGL_AUTO_ROWSTRIDE,
                  GEGL_ABYSS_NONE);
  return samples;
}

size_t Fingerprint(const std::vector<uint8_t>& bytes) {
  return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Of all colours; other formats have no holes.
void BridgeHoles(Samples* samples, SampleHoles* holes) {
  if (samples->format.samples != TESSALINE_FLOAT32) return;
  auto* const first = reinterpret_cast<float*>(samples->bytes.data());
  const ptrdiff_t channels = samples->format.channels;
  for (int32_t colour = 0; colour < samples->format.colours; ++colour) {
    holes->Bridge({first + colour, samples->width, samples->height, channels, channels * samples->width});
  }
}

int32_t ThreadsOfHost() {
  int threads = 0;
  g_object_get(gegl_config(), "threads", &threads, nullptr);
  return std::clamp(threads, 1, 1024);
}

TessalineSettings SettingsOf(const Wishes& wishes, const std::vector<float>& lightCurve) {
  TessalineSettings settings = StandardSettings();
  settings.isAutomatic = wishes.isAutomatic;
  settings.acceptance = static_cast<float>(wishes.acceptance);
  settings.notchRadius = static_cast<float>(wishes.notchRadius);
  settings.protectionRadius = static_cast<float>(wishes.protectionRadius);
  settings.isEverywhere = wishes.isEverywhere;
  settings.sensitivity = wishes.sensitivity;
  settings.polish = wishes.polish;
  settings.light = wishes.light;
  settings.lightCurve = lightCurve.empty() ? nullptr : lightCurve.data();
  settings.lightCurveCount = static_cast<int32_t>(lightCurve.size());
  return settings;
}

// --- What is taken out, as a picture of the same format round the middle grey ---

template <typename Sample>
Sample Difference(Sample before, Sample after) {
  if constexpr (std::is_same_v<Sample, float>) {
    constexpr float kMiddle = 0.5f;
    const float lost = before - after;  // of samples that stayed what they were, infinite ones too, nothing
    return std::isfinite(lost) ? kMiddle + lost : kMiddle;
  } else {
    constexpr int kLargest = Sample(-1), kMiddle = kLargest / 2 + 1;
    return static_cast<Sample>(std::clamp(kMiddle + int{before} - int{after}, 0, kLargest));
  }
}

// A row of `before` becomes that of the difference; alpha stays.
template <typename Sample>
void Subtract(const SampleFormat& format, int32_t width, const uint8_t* after, uint8_t* before) {
  auto* pixel = reinterpret_cast<Sample*>(before);
  const auto* other = reinterpret_cast<const Sample*>(after);
  for (int32_t x = 0; x < width; ++x, pixel += format.channels, other += format.channels) {
    for (int32_t c = 0; c < format.colours; ++c) pixel[c] = Difference(pixel[c], other[c]);
  }
}

void WriteDifference(GeglBuffer* before, GeglBuffer* after, const GeglRectangle& roi, GeglBuffer* output) {
  const SampleFormat format = SampleFormatFor(gegl_buffer_get_format(before));
  const auto subtract = format.samples == TESSALINE_UINT8    ? Subtract<uint8_t>
                        : format.samples == TESSALINE_UINT16 ? Subtract<uint16_t>
                                                             : Subtract<float>;
  const size_t rowBytes = format.PixelBytes() * static_cast<size_t>(roi.width);
  std::vector<uint8_t> row(rowBytes), other(rowBytes);
  for (int y = 0; y < roi.height; ++y) {
    const GeglRectangle line = {roi.x, roi.y + y, roi.width, 1};
    gegl_buffer_get(before, &line, 1.0, format.babl, row.data(), GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_NONE);
    gegl_buffer_get(after, &line, 1.0, format.babl, other.data(), GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_NONE);
    subtract(format, roi.width, other.data(), row.data());
    gegl_buffer_set(output, &line, 0, format.babl, row.data(), GEGL_AUTO_ROWSTRIDE);
  }
}

}  // namespace

void PictureCleaner::Process(GeglBuffer* input, GeglBuffer* output, const GeglRectangle& picture,
                             const GeglRectangle& roi, const Wishes& wishes, bool showTakenOut,
                             const Progress& progress) {
  Renew(input, picture, wishes, progress);
  GeglBuffer* const cleaned = result_->cleaned ? result_->cleaned.get() : input;
  if (showTakenOut) {
    WriteDifference(input, cleaned, roi, output);
  } else {
    gegl_buffer_copy(cleaned, &roi, GEGL_ABYSS_NONE, output, &roi);
  }
}

// Afterwards `result_` is that of this input and these wishes.
void PictureCleaner::Renew(GeglBuffer* input, const GeglRectangle& picture, const Wishes& wishes,
                           const Progress& progress) {
  Samples samples = Read(input, picture);
  const Origin origin = {samples.format.babl, picture, Fingerprint(samples.bytes)};
  if (result_ && result_->origin == origin && result_->wishes == wishes) return;
  result_.reset();
  if (!engine_) engine_ = std::make_unique<Engine>(ThreadsOfHost());

  SampleHoles holes;
  BridgeHoles(&samples, &holes);
  const TessalinePicture record = samples.Record();
  double begin = 0.0;  // of the step's part
  engine_->SetProgress([&](double part) {
    progress(begin + part * 0.5);
    return false;
  });
  if (analysed_ != origin) {
    analysed_ = {};
    engine_->Analyse(SourcePicture(record));
    analysed_ = origin;
  }
  begin = 0.5;
  engine_->Decide(SettingsOf(wishes, ToldLightCurve(samples.format)));

  auto result = std::make_unique<Result>(Result{origin, wishes, nullptr});
  if (engine_->Findings().patternCells > 0) {
    engine_->Apply(TargetPicture(record), TESSALINE_PICTURE_OF_ANALYSIS);
    holes.PutBack();
    result->cleaned.reset(gegl_buffer_new(&picture, samples.format.babl));
    gegl_buffer_set(result->cleaned.get(), &picture, 0, samples.format.babl, samples.bytes.data(),
                    GEGL_AUTO_ROWSTRIDE);
  }
  result_ = std::move(result);
  engine_->SetProgress(nullptr);
  // The operations of a document stay for as long as it is open.
  engine_->ReleaseMemory();
}

}  // namespace tessaline::gegl
