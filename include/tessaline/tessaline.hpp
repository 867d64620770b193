// tessaline.hpp: the C interface (tessaline.h, which is the contract) for C++20: engines that free
// themselves, spans instead of pointers, exceptions instead of codes. Header only; link with libtessaline.
//
//   tessaline::Engine engine;
//   std::vector<uint8_t> pixels = ...;  // 640 x 480, RGB
//   engine.Clean(tessaline::TargetPicture(std::span(pixels), 640, 480, 3));
//   std::cout << engine.Json() << '\n';
#pragma once

#include <tessaline/tessaline.h>

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tessaline {

// A call failed and changed nothing. code() is one of TESSALINE_ERROR_..., what() says what to do about it.
class Error : public std::runtime_error {
 public:
  Error(int32_t code, const std::string& text) : std::runtime_error(text), code_(code) {}
  int32_t code() const noexcept { return code_; }

 private:
  int32_t code_;
};

// The format of a sample type. 16 bits are taken as 0..65535; say TESSALINE_UINT16_EDITOR where they are not.
template <typename Sample>
constexpr int32_t FormatOf() {
  static_assert(
      std::is_same_v<Sample, uint8_t> || std::is_same_v<Sample, uint16_t> || std::is_same_v<Sample, float>,
      "samples are uint8_t, uint16_t or float");
  if constexpr (std::is_same_v<Sample, uint8_t>) return TESSALINE_UINT8;
  if constexpr (std::is_same_v<Sample, uint16_t>) return TESSALINE_UINT16;
  return TESSALINE_FLOAT32;
}

// A picture that is only read. Neither kind owns the samples; for strides and planes fill in a record.
class SourcePicture {
 public:
  // Packed rows of `channels` samples a pixel. Throws Error (TESSALINE_ERROR_PICTURE) when the samples are
  // too few.
  template <typename Sample, size_t Extent>
  SourcePicture(std::span<Sample, Extent> samples, int32_t width, int32_t height, int32_t channels,
                int32_t format = FormatOf<std::remove_const_t<Sample>>()) {
    record_.width = width;
    record_.height = height;
    record_.format = format;
    record_.channels = channels;
    // The library does not write through the record of a source.
    record_.pixels = const_cast<std::remove_const_t<Sample>*>(samples.data());
    if (width > 0 && height > 0 && channels > 0 &&
        samples.size() / static_cast<size_t>(width) / static_cast<size_t>(height) <
            static_cast<size_t>(channels)) {
      throw Error(TESSALINE_ERROR_PICTURE, "the span holds fewer samples than the picture has");
    }
  }
  explicit SourcePicture(const TessalinePicture& record) : record_(record) {}

  const TessalinePicture& record() const { return record_; }

 private:
  TessalinePicture record_ = {};
};

// A picture that is written to, and may be read as well.
class TargetPicture : public SourcePicture {
 public:
  template <typename Sample, size_t Extent>
  TargetPicture(std::span<Sample, Extent> samples, int32_t width, int32_t height, int32_t channels,
                int32_t format = FormatOf<std::remove_const_t<Sample>>())
      : SourcePicture(samples, width, height, channels, format) {
    static_assert(!std::is_const_v<Sample>, "a target's samples are written to");
  }
  explicit TargetPicture(const TessalinePicture& record) : SourcePicture(record) {}
};

inline TessalineSettings StandardSettings() {
  TessalineSettings settings;
  tessaline_settings_init(&settings, sizeof settings);
  return settings;
}

// One engine, used by one thread at a time; any number of engines at once. Methods throw Error.
class Engine {
 public:
  using Mask = std::array<uint8_t, TESSALINE_MASK_BYTES>;

  // `threads` as of tessaline_create: 0 for the processors that this process may use.
  explicit Engine(int32_t threads = 0) {
    TessalineEngine* engine = nullptr;
    const int32_t code = tessaline_create(threads, &engine);
    if (code != TESSALINE_OK) throw Error(code, tessaline_code_text(code));
    engine_.reset(engine);
  }

  // Called with the part that is done, 0..1; true cancels the call, which then throws Error
  // (TESSALINE_ERROR_CANCELLED). An exception cancels too and comes out of the call instead; where samples
  // were being changed already, after the picture has been finished.
  void SetProgress(std::function<bool(double part)> progress) {
    auto told = std::make_unique<Told>(Told{std::move(progress), nullptr});
    Demand(tessaline_set_progress(get(), told->progress ? Tell : nullptr, told.get()));
    told_ = std::move(told);
  }

  // In place, or from one picture into another.
  void Clean(const TargetPicture& picture, const TessalineSettings& settings = StandardSettings(),
             uint32_t flags = 0) {
    Demand(tessaline_clean(get(), &picture.record(), nullptr, &settings, flags));
  }
  void Clean(const SourcePicture& from, const TargetPicture& to,
             const TessalineSettings& settings = StandardSettings(), uint32_t flags = 0) {
    Demand(tessaline_clean(get(), &from.record(), &to.record(), &settings, flags));
  }

  void Analyse(const SourcePicture& picture) { Demand(tessaline_analyse(get(), &picture.record())); }
  void AnalyseMore(const SourcePicture& picture) { Demand(tessaline_analyse_more(get(), &picture.record())); }
  void Decide(const TessalineSettings& settings = StandardSettings()) {
    Demand(tessaline_decide(get(), &settings));
  }
  void Apply(const TargetPicture& picture, uint32_t flags = 0) {
    Demand(tessaline_apply(get(), &picture.record(), nullptr, flags));
  }
  void Apply(const SourcePicture& from, const TargetPicture& to, uint32_t flags = 0) {
    Demand(tessaline_apply(get(), &from.record(), &to.record(), flags));
  }

  void GetMask(std::span<uint8_t, TESSALINE_MASK_BYTES> cells) const {
    DemandRead(tessaline_get_mask(get(), cells.data()));
  }
  void SetMask(std::span<const uint8_t, TESSALINE_MASK_BYTES> cells) {
    Demand(tessaline_set_mask(get(), cells.data()));
  }

  TessalineFindings Findings() const {
    TessalineFindings findings = {};
    findings.recordBytes = sizeof findings;
    DemandRead(tessaline_get_findings(get(), &findings));
    return findings;
  }
  std::vector<TessalineNotch> Notches() const {
    return Records<TessalineNotch>(tessaline_get_notch, Findings().notchCount);
  }
  std::vector<TessalinePeak> Peaks() const {
    return Records<TessalinePeak>(tessaline_get_peak, Findings().peakCount);
  }
  // Valid until the next call that works.
  std::string_view Json() const {
    const char* const json = tessaline_findings_json(get());
    if (json == nullptr) DemandRead(TESSALINE_ERROR_ORDER);
    return json;
  }

  void ReleaseMemory() { Demand(tessaline_release_memory(get())); }

  // For calls of tessaline.h.
  TessalineEngine* get() const noexcept { return engine_.get(); }

 private:
  struct Told {
    std::function<bool(double)> progress;
    std::exception_ptr thrown;
  };
  struct Destroy {
    void operator()(TessalineEngine* engine) const noexcept { tessaline_destroy(engine); }
  };

  static int32_t Tell(void* user, double part) noexcept {
    Told& told = *static_cast<Told*>(user);
    if (told.thrown) return 1;
    try {
      return told.progress(part) ? 1 : 0;
    } catch (...) {
      told.thrown = std::current_exception();
      return 1;
    }
  }

  void Demand(int32_t code) {
    if (told_ && told_->thrown && code != TESSALINE_ERROR_BUSY) {
      std::rethrow_exception(std::exchange(told_->thrown, nullptr));
    }
    if (code == TESSALINE_ERROR_BUSY) throw Error(code, tessaline_code_text(code));
    if (code != TESSALINE_OK) throw Error(code, tessaline_error_text(get()));
  }
  static void DemandRead(int32_t code) {
    if (code != TESSALINE_OK) throw Error(code, tessaline_code_text(code));
  }

  template <typename Record, typename Get>
  std::vector<Record> Records(Get getRecord, int32_t count) const {
    std::vector<Record> records(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
      Record& record = records[static_cast<size_t>(i)];
      record.recordBytes = sizeof record;
      DemandRead(getRecord(get(), i, &record));
    }
    return records;
  }

  std::unique_ptr<Told> told_;  // outlives the engine's last call
  std::unique_ptr<TessalineEngine, Destroy> engine_;
};

}  // namespace tessaline
