// Image and stream records of the programmatic interface, and its instances in any order of calls.
#include <memory>
#include <vector>

#include "glue/api/programmatic_interface.h"
#include "glue/parameters/settings_record.h"
#include "include/tessaline/tessaline_legacy.h"
#include "tests/fuzz/bytes.h"

namespace tessaline::fuzz {
namespace {

constexpr int32_t kKinds[] = {TESSALINE_GRAY8,
                              TESSALINE_RGB8,
                              TESSALINE_GRAY16,
                              TESSALINE_RGB16,
                              TESSALINE_GRAY16_SECOND_ROW,
                              TESSALINE_RGB16_SECOND_ROW,
                              0,
                              4};
constexpr size_t kMostBytes = 1 << 12;

int32_t TakeSide(Bytes& input) {
  return input.Flag() ? 1 + input.Pick(24) : input.Hostile();
}

// Memory of just the size that the record tells, where that is small: a record that lies about its memory is
// the caller's own fault.
size_t BytesOf(int32_t width, int32_t height, int32_t kind) {
  if (width < 1 || height < 1) return kMostBytes;
  const auto pixel = static_cast<uint64_t>(kind < 0 ? -int64_t{kind} : kind);
  const uint64_t bytes =
      uint64_t{static_cast<uint32_t>(width)} * static_cast<uint32_t>(height) * std::min<uint64_t>(pixel, 64);
  return static_cast<size_t>(std::min<uint64_t>(bytes, kMostBytes + 1));
}

void ProcessImage(Bytes& input, TessalineInstance* instance) {
  TessalineImage image = {TakeSide(input), TakeSide(input),
                          input.Flag() ? input.OneOf(kKinds) : input.Hostile(), nullptr};
  const size_t bytes = BytesOf(image.width, image.height, image.kind);
  const bool isLarge = image.width > 7500 || image.height > 7500;  // refused by its size alone
  std::vector<uint16_t> memory(bytes / 2 + 1);
  Noise noise(input.Take<uint8_t>());
  for (uint16_t& word : memory) word = static_cast<uint16_t>(noise.Next());
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[std::max<size_t>(bytes, 1)]);
  std::memcpy(exact.get(), memory.data(), bytes);
  if (bytes <= kMostBytes || isLarge) image.pixels = exact.get();
  const int32_t result = OSAPI_Process(instance, input.Flag() ? &image : nullptr, input.Take<uint8_t>());
  if (result != TESSALINE_DONE) DEMAND(std::memcmp(exact.get(), memory.data(), bytes) == 0);
}

void ProcessStream(Bytes& input, TessalineInstance* instance) {
  const auto stream = std::make_unique<TessalineStream>();
  stream->width = 1 + input.Pick(8);
  stream->height = 1 + input.Pick(8);
  if (input.Pick(4) == 0) stream->width = input.Hostile();
  stream->kind = input.Flag() ? input.OneOf(kKinds) : input.Hostile();
  stream->firstFrame = input.Flag() ? 0 : input.Hostile();
  stream->lastFrame = input.Flag() ? input.Pick(3) : input.Hostile();
  stream->dialogFrame = input.Take<int8_t>();
  const size_t frame = BytesOf(stream->width, stream->height, stream->kind);
  Noise noise(1);
  std::string frames(std::min(frame * 2, kMostBytes) + static_cast<size_t>(input.Pick(3)), '\0');
  for (char& byte : frames) byte = static_cast<char>(noise.Next());
  WriteFile("frames.raw", frames);
  const auto name = [&input](char(&path)[1024], const char* usual) {
    const int32_t way = input.Pick(6);
    if (way == 0)
      std::memset(path, 'x', sizeof path);  // without an end
    else if (way == 1)
      std::snprintf(path, sizeof path, "%s", "frames.raw");  // both the same
    else
      std::snprintf(path, sizeof path, "%s", usual);
  };
  name(stream->inputPath, "frames.raw");
  name(stream->outputPath, "cleaned.raw");
  OSAPI_ProcessStream(instance, stream.get(), input.Take<uint8_t>());
}

}  // namespace
}  // namespace tessaline::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  fuzz::Bytes input(bytes, count);
  SetPreferencesFolder(".");
  ResetInterface();
  TessalineInstance instances[3] = {};
  int32_t runs = 0;
  while (!input.IsEmpty()) {
    const int32_t which = input.Pick(4);
    TessalineInstance* const instance = which < 3 ? &instances[which] : nullptr;
    const int32_t action = input.Pick(6);
    if (action == 0) {
      OSAPI_FreeInstance(instance);
    } else if (action == 1 && instance != nullptr) {
      MTAPI_FreeInstance(instance);
      DEMAND(OSAPI_CreateInstance(instance) == TESSALINE_DONE);
    } else if (action == 2 && instance != nullptr && instance->textCapacity != 0) {
      const std::string text = input.Text(200);
      std::memcpy(instance->parameterText, text.data(), text.size());
    } else if (++runs <= 2) {  // of which each may transform a picture
      if (action == 5)
        fuzz::ProcessStream(input, instance);
      else
        fuzz::ProcessImage(input, instance);
    }
  }
  for (TessalineInstance& instance : instances) OSAPI_FreeInstance(&instance);
  return 0;
}
