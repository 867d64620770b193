#include "glue/api/programmatic_interface.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "buffers/buffer_table.h"
#include "glue/api/parameter_text.h"
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/settings_record.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

uint32_t callerCode = 0;

namespace {

constexpr std::string_view kDescription =
    "Tessaline\nRemoves repeating patterns in images. Can remove halftones, electrical noise, etc.";
constexpr std::string_view kReleased = "Memory has been released";

// 16-bit samples between the caller's full range and the host's. The product must be made in single
// precision: in double 65535 would end one below the top.
constexpr float kFullToHost = 0.50000763f;
constexpr float kHostToFull = 1.9999695f;
static_assert(65535.0f * kFullToHost == 32768.0f && 32768.0f * kHostToFull == 65535.0f);

bool g_hasFailed = false;
RunDoor g_context;

struct InterfaceKind {
  int32_t kind;  // as the caller names it
  int32_t bytesPerPixel;
  int32_t channelBytes;
  bool isScaled;  // full 16-bit range: goes through a buffer of its own
};
constexpr InterfaceKind kKinds[] = {
    {TESSALINE_GRAY8, 1, 1, false},
    {TESSALINE_RGB8, 3, 1, false},
    {TESSALINE_GRAY16_SECOND_ROW, 2, 2, true},
    {TESSALINE_RGB16_SECOND_ROW, 6, 2, true},
    {TESSALINE_GRAY16, 2, 2, false},
    {TESSALINE_RGB16, 6, 2, false},
};

const InterfaceKind* FindKind(int32_t kind) {
  for (const InterfaceKind& row : kKinds) {
    if (row.kind == kind) return &row;
  }
  return nullptr;
}

// The checks whose failure is remembered.
bool IsSoundRecord(const TessalineImage& image) {
  return image.width >= 1 && image.height >= 1 && IsKnownKind(image.kind) && image.pixels != nullptr;
}

struct ListDeleter {
  void operator()(ParameterList* list) const { FreeParameterList(list); }
};
struct HandleDeleter {
  void operator()(ProgramHandle* handle) const { DisposeHandle(handle); }
};

// 16-bit samples times `scale`, truncated.
void ScaleSamples(const uint8_t* source, float scale, size_t samples, uint8_t* destination) {
  for (size_t i = 0; i < samples; ++i) {
    uint16_t sample = 0;
    std::memcpy(&sample, source + i * sizeof sample, sizeof sample);
    sample = static_cast<uint16_t>(static_cast<float>(sample) * scale);
    std::memcpy(destination + i * sizeof sample, &sample, sizeof sample);
  }
}

// The caller's pixels as a buffer of the table for the time of a run.
class PixelBuffer {
 public:
  PixelBuffer(const TessalineImage& image, const InterfaceKind& kind) : image_(image), kind_(kind) {}
  PixelBuffer(const PixelBuffer&) = delete;
  PixelBuffer& operator=(const PixelBuffer&) = delete;
  ~PixelBuffer() { ReleaseBuffer(slot_); }

  // Returns 0, or kOutOfMemory.
  int32_t Enter() {
    if (!kind_.isScaled) {
      return BindBuffer(image_.pixels, image_.width, image_.height, kind_.bytesPerPixel, &slot_);
    }
    const int32_t result =
        CreateBuffer("transformed Memory DLL", image_.width, image_.height, kind_.bytesPerPixel, &slot_);
    for (int32_t y = 0; result == kSuccess && y < image_.height; ++y) {
      ScaleSamples(CallersRow(), kFullToHost, RowSamples(), BufferRow(slot_, y));
    }
    return result;
  }

  // Bound pixels were changed in place and need nothing.
  void Leave() {
    for (int32_t y = 0; kind_.isScaled && y < image_.height; ++y) {
      ScaleSamples(BufferRow(slot_, y), kHostToFull, RowSamples(), CallersRow());
    }
  }

  int32_t slot() const { return slot_; }

 private:
  // One row-length after the pixel pointer, for every row, in and out: the source position does not advance
  // with the row. So all rows of the buffer are the caller's second row, and that row ends up as the buffer's
  // last. Deliberate: programs that pass these kinds have come to depend on it. Do not add the row number
  // here.
  uint8_t* CallersRow() const {
    return static_cast<uint8_t*>(image_.pixels) + RowSamples() * sizeof(uint16_t);
  }
  size_t RowSamples() const {
    return static_cast<size_t>(image_.width) * static_cast<size_t>(kind_.bytesPerPixel) / sizeof(uint16_t);
  }

  const TessalineImage& image_;
  const InterfaceKind& kind_;
  int32_t slot_ = 0;
};

void DescribeImage(const TessalineImage& image, const InterfaceKind& kind, int32_t slot) {
  const SettingsRecord settings = imageInfo.settings;
  imageInfo = {};
  imageInfo.settings = settings;
  imageInfo.width = image.width;
  imageInfo.height = image.height;
  imageInfo.colorPlanes = kind.kind;  // the kind itself, not a count of planes: deliberate
  imageInfo.channelBytes = kind.channelBytes;
  imageInfo.mainBuffer = slot;
}

// One run over the main buffer with the instance's parameters.
int32_t RunWithParameterText(TessalineInstance* instance, bool showDialog) {
  const std::unique_ptr<ParameterList, ListDeleter> list(MakeParameterList());
  if (!list) return kOutOfMemory;
  // The list has the values of the settings as the last run left them; the file's values come after and are
  // those of the next run.
  ClearSettings();
  ReadPreferences();  // without a file the settings stay zero
  // Without memory for its lines the text's wishes would be lost, and the picture cleaned by others.
  if (ReadParameterText(instance->parameterText, instance->textCapacity, list.get()) == kOutOfMemory) {
    FreeTextRecords();
    return kOutOfMemory;
  }
  ApplySettingsDefaults();
  const std::unique_ptr<ProgramHandle, HandleDeleter> handle(MakeParameters(*list));
  if (!handle) return kOutOfMemory;

  // The text must name the values that the run used, defaults included: zeros in it would be taken for wishes
  // by the next call. A run that is not done leaves those that it was given.
  StoreInList(*ParametersOf(handle.get()), list.get());
  const int32_t result =
      RunRemoval(imageInfo.mainBuffer, ParametersOf(handle.get()), list.get(), !showDialog, g_context);
  if (result == kSuccess) StoreInList(*ParametersOf(handle.get()), list.get());
  WriteParameterText(*list, instance->parameterText, instance->textCapacity);
  WritePreferences();
  return result;
}

int32_t ProcessPixels(TessalineInstance* instance, const TessalineImage& image, bool showDialog) {
  const InterfaceKind& kind = *FindKind(image.kind);
  PixelBuffer pixels(image, kind);
  int32_t result = pixels.Enter();
  if (result != kSuccess) return result;
  DescribeImage(image, kind, pixels.slot());
  result = RunWithParameterText(instance, showDialog);
  imageInfo.mainBuffer = 0;
  // After a run that did nothing the way through 0..32768 and back would still cost the caller's row some
  // levels.
  if (result == kSuccess) pixels.Leave();
  return result;
}

}  // namespace

void SetInterfaceContext(const RunDoor& context) {
  g_context = context;
}

bool HasFailed() {
  return g_hasFailed;
}

void ResetInterface() {
  g_hasFailed = false;
  g_context = {};
  callerCode = 0;
}

bool IsKnownKind(int32_t kind) {
  return FindKind(kind) != nullptr;
}

bool FitsInterface(int32_t width, int32_t height, int32_t kind) {
  const InterfaceKind* const row = FindKind(kind);
  if (row == nullptr) return false;
  if (row->isScaled && height < 2) return false;  // the second row would lie outside the caller's pixels
  const int64_t pixels = int64_t{width} * height;
  return pixels <= INT32_MAX / row->bytesPerPixel;
}

bool WasReleased(const TessalineInstance& instance) {
  return instance.textCapacity == 0;
}

void MarkReleased(char* block, size_t bytes) {
  if (bytes == 0) return;
  const size_t length = std::min(kReleased.size(), bytes - 1);
  std::memcpy(block, kReleased.data(), length);
  block[length] = '\0';
}

int32_t CreateInstance(TessalineInstance* instance) {
  if (instance == nullptr) return kRefused;
  auto* const text = static_cast<char*>(LockNewBlock(kInstanceTextBytes));
  auto* const description = static_cast<char*>(LockNewBlock(kDescription.size() + 1));
  if (text == nullptr || description == nullptr) {
    FreeLockedBlock(text);
    FreeLockedBlock(description);
    instance->parameterText = nullptr;
    instance->description = nullptr;
    instance->textCapacity = 0;
    return kOutOfMemory;
  }
  std::memcpy(description, kDescription.data(), kDescription.size());
  instance->parameterText = text;
  instance->description = description;
  instance->textCapacity = kInstanceTextBytes;
  return kSuccess;
}

void FreeInstance(TessalineInstance* instance) {
  if (instance == nullptr || instance->textCapacity == 0) return;
  if (instance->parameterText != nullptr) {
    MarkReleased(instance->parameterText, instance->textCapacity);
    FreeLockedBlock(instance->parameterText);
  }
  if (instance->description != nullptr) {
    MarkReleased(instance->description, std::strlen(instance->description) + 1);
    FreeLockedBlock(instance->description);
  }
  // The pointers are left as they were: a caller may compare them. The capacity tells that they are stale.
  instance->reserved = 0;
  instance->textCapacity = 0;
}

int32_t ProcessImage(TessalineInstance* instance, const TessalineImage* image, bool showDialog,
                     uint32_t caller) {
  if (g_hasFailed || instance == nullptr || image == nullptr || WasReleased(*instance)) return kRefused;
  callerCode = caller;
  ResetBufferTable();
  int32_t result = kRefused;
  if (!IsSoundRecord(*image)) {
    // For good, until the library is unloaded: callers take the first refusal as the end of the session.
    g_hasFailed = true;
  } else if (FitsInterface(image->width, image->height, image->kind)) {
    result = ProcessPixels(instance, *image, showDialog);
  }
  // Once for the run and once for the interface.
  FlushBufferTable();
  FlushBufferTable();
  return result;
}

}  // namespace tessaline
