// The calls of tessaline.h: what they may be given, one at a time on an engine, and nothing thrown.
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>

#include "interface/call_fault.h"
#include "interface/engine.h"

// Records are laid out as callers in other languages declare them: natural alignment, 64-bit pointers.
static_assert(sizeof(TessalinePicture) == 72 && offsetof(TessalinePicture, pixels) == 16 &&
              offsetof(TessalinePicture, planes) == 24 && offsetof(TessalinePicture, pixelStride) == 56);
static_assert(sizeof(TessalineSettings) == 64 && offsetof(TessalineSettings, acceptance) == 8 &&
              offsetof(TessalineSettings, sensitivity) == 24 && offsetof(TessalineSettings, light) == 40 &&
              offsetof(TessalineSettings, lightCurve) == 48);
static_assert(sizeof(TessalineFindings) == 40 && offsetof(TessalineFindings, logSpan) == 32);
static_assert(sizeof(TessalineNotch) == 56 && offsetof(TessalineNotch, periodPixels) == 24);
static_assert(sizeof(TessalinePeak) == 56 && offsetof(TessalinePeak, periodPixels) == 24);

struct TessalineEngine {
  explicit TessalineEngine(std::unique_ptr<tessaline::Parallel> pool) : engine(std::move(pool)) {}

  tessaline::InterfaceEngine engine;
  std::string errorText;
  std::atomic_flag isAtWork = ATOMIC_FLAG_INIT;
};

namespace {

using tessaline::CallFault;

constexpr const char* kCodeTexts[] = {
    "done",
    "a null pointer, or a number out of its range",
    "the picture's size, format, channels, strides or alignment is not possible",
    "a setting is out of its range, or the record has another size",
    "something has to be called first",
    "samples that are no number, infinite or beyond 1e6",
    "not enough memory or threads",
    "cancelled",
    "the engine is at work",
};
static_assert(sizeof kCodeTexts / sizeof *kCodeTexts == TESSALINE_ERROR_BUSY + 1);

constexpr int32_t kMostThreads = 1024;

// What was wrong, kept; without memory for the words the code says enough.
int32_t Fail(TessalineEngine* engine, int32_t code, const char* text) {
  try {
    engine->errorText = text;
  } catch (const std::bad_alloc&) {
    engine->errorText.clear();
  }
  return code;
}

// One working call on an engine.
template <typename Call>
int32_t Work(TessalineEngine* engine, Call call) {
  if (engine == nullptr) return TESSALINE_ERROR_ARGUMENT;
  if (engine->isAtWork.test_and_set(std::memory_order_acquire)) return TESSALINE_ERROR_BUSY;
  int32_t code = TESSALINE_OK;
  engine->errorText.clear();
  try {
    call(engine->engine);
  } catch (const CallFault& fault) {
    code = Fail(engine, fault.code, fault.text.c_str());
  } catch (...) {  // std::bad_alloc, or a lock that the system refuses
    code = Fail(engine, TESSALINE_ERROR_NO_MEMORY, "not enough memory");
  }
  engine->isAtWork.clear(std::memory_order_release);
  return code;
}

// A record for a caller, who says by recordBytes which one it knows.
template <typename Record>
int32_t HandOut(const Record& record, Record* to) {
  if (to == nullptr || to->recordBytes != sizeof(Record)) return TESSALINE_ERROR_ARGUMENT;
  *to = record;
  return TESSALINE_OK;
}

template <typename Record>
int32_t HandOut(const TessalineEngine* engine, const std::vector<Record> tessaline::Decision::*records,
                int32_t index, Record* to) {
  if (engine == nullptr) return TESSALINE_ERROR_ARGUMENT;
  const tessaline::Decision& decision = engine->engine.decision();
  if (decision.json.empty()) return TESSALINE_ERROR_ORDER;
  const std::vector<Record>& list = decision.*records;
  if (index < 0 || static_cast<size_t>(index) >= list.size()) return TESSALINE_ERROR_ARGUMENT;
  return HandOut(list[static_cast<size_t>(index)], to);
}

}  // namespace

const char* tessaline_version(void) {
  return TESSALINE_VERSION;
}

const char* tessaline_code_text(int32_t code) {
  return code >= 0 && code <= TESSALINE_ERROR_BUSY ? kCodeTexts[code]
                                                   : "a code that this library does not know";
}

int32_t tessaline_create(int32_t threads, TessalineEngine** engine) {
  if (engine == nullptr) return TESSALINE_ERROR_ARGUMENT;
  *engine = nullptr;
  if (threads < 0 || threads > kMostThreads) return TESSALINE_ERROR_ARGUMENT;
  try {
    const int32_t wanted = threads != 0 ? threads : tessaline::UsableProcessors();
    std::unique_ptr<tessaline::Parallel> pool;
    if (wanted > 1) {
      pool = tessaline::MakeThreadPool(wanted);
      if (!pool && threads != 0) return TESSALINE_ERROR_NO_MEMORY;
    }
    *engine = new TessalineEngine(std::move(pool));
  } catch (...) {
    return TESSALINE_ERROR_NO_MEMORY;
  }
  return TESSALINE_OK;
}

void tessaline_destroy(TessalineEngine* engine) {
  delete engine;
}

const char* tessaline_error_text(const TessalineEngine* engine) {
  return engine != nullptr ? engine->errorText.c_str() : "there is no engine";
}

int32_t tessaline_set_progress(TessalineEngine* engine, TessalineProgress progress, void* user) {
  return Work(engine, [=](tessaline::InterfaceEngine& work) {
    work.progress = progress;
    work.progressUser = user;
  });
}

int32_t tessaline_release_memory(TessalineEngine* engine) {
  return Work(engine, [](tessaline::InterfaceEngine& work) { work.ReleaseMemory(); });
}

int32_t tessaline_settings_init(TessalineSettings* settings, uint32_t recordBytes) {
  if (settings == nullptr || !tessaline::IsSettingsRecord(recordBytes)) return TESSALINE_ERROR_ARGUMENT;
  const tessaline::Settings standard;
  const tessaline::RestorationSettings restoration;
  const TessalineSettings all = {recordBytes,
                                 1,
                                 standard.acceptance,
                                 standard.notchRadius,
                                 standard.protectionRadius,
                                 restoration.everywhere,
                                 standard.sensitivity,
                                 restoration.polish,
                                 TESSALINE_LIGHT_AUTO,
                                 TESSALINE_COLOURS_RGB,
                                 nullptr,
                                 0,
                                 0};
  std::memcpy(settings, &all, recordBytes);
  return TESSALINE_OK;
}

int32_t tessaline_clean(TessalineEngine* engine, const TessalinePicture* from, const TessalinePicture* to,
                        const TessalineSettings* settings, uint32_t flags) {
  return Work(engine, [=](tessaline::InterfaceEngine& work) {
    work.Clean(tessaline::ViewCallPictures(from, to), tessaline::SettingsOf(settings), flags);
  });
}

int32_t tessaline_analyse(TessalineEngine* engine, const TessalinePicture* picture) {
  return Work(engine, [=](tessaline::InterfaceEngine& work) {
    work.AnalyseAnew(tessaline::ViewCallPictures(picture, nullptr).from);
  });
}

int32_t tessaline_analyse_more(TessalineEngine* engine, const TessalinePicture* picture) {
  return Work(engine, [=](tessaline::InterfaceEngine& work) {
    work.AnalyseMore(tessaline::ViewCallPictures(picture, nullptr).from);
  });
}

int32_t tessaline_decide(TessalineEngine* engine, const TessalineSettings* settings) {
  return Work(engine,
              [=](tessaline::InterfaceEngine& work) { work.DecideBy(tessaline::SettingsOf(settings)); });
}

int32_t tessaline_get_mask(const TessalineEngine* engine, uint8_t* cells) {
  if (engine == nullptr || cells == nullptr) return TESSALINE_ERROR_ARGUMENT;
  const tessaline::ConstImageView mask = engine->engine.mask();
  if (mask.IsEmpty()) return TESSALINE_ERROR_ORDER;
  std::memcpy(cells, mask.data, TESSALINE_MASK_BYTES);
  return TESSALINE_OK;
}

int32_t tessaline_set_mask(TessalineEngine* engine, const uint8_t* cells) {
  return Work(engine, [=](tessaline::InterfaceEngine& work) {
    if (cells == nullptr) throw CallFault{TESSALINE_ERROR_ARGUMENT, "no mask was given"};
    work.SetMask(cells);
  });
}

int32_t tessaline_apply(TessalineEngine* engine, const TessalinePicture* from, const TessalinePicture* to,
                        uint32_t flags) {
  return Work(engine, [=](tessaline::InterfaceEngine& work) {
    work.ApplyMask(tessaline::ViewCallPictures(from, to), flags);
  });
}

int32_t tessaline_get_findings(const TessalineEngine* engine, TessalineFindings* findings) {
  if (engine == nullptr) return TESSALINE_ERROR_ARGUMENT;
  const tessaline::Decision& decision = engine->engine.decision();
  return decision.json.empty() ? int32_t{TESSALINE_ERROR_ORDER} : HandOut(decision.findings, findings);
}

int32_t tessaline_get_notch(const TessalineEngine* engine, int32_t index, TessalineNotch* notch) {
  return HandOut(engine, &tessaline::Decision::notches, index, notch);
}

int32_t tessaline_get_peak(const TessalineEngine* engine, int32_t index, TessalinePeak* peak) {
  return HandOut(engine, &tessaline::Decision::peaks, index, peak);
}

const char* tessaline_findings_json(const TessalineEngine* engine) {
  if (engine == nullptr || engine->engine.decision().json.empty()) return nullptr;
  return engine->engine.decision().json.c_str();
}
