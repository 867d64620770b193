// Rows of the buffer table against a copy of the picture that is asked byte by byte.
#include <map>
#include <vector>

#include "buffers/buffer_table.h"
#include "image/result_codes.h"
#include "tests/fuzz/bytes.h"

namespace tessaline::fuzz {
namespace {

struct Model {
  int32_t width, height, pixelBytes;
  std::vector<uint8_t> pixels;
};

// Where byte `i` of a request stands in the picture; -1: outside.
int64_t PlaceOf(const Model& model, int64_t offset, int64_t row, int64_t i) {
  const int64_t rowBytes = int64_t{model.width} * model.pixelBytes;
  const int64_t x = offset / model.pixelBytes * model.pixelBytes + i;
  return row >= 0 && row < model.height && x >= 0 && x < rowBytes ? row * rowBytes + x : -1;
}

void ReadAndWrite(Bytes& input, int32_t slot, Model* model) {
  const bool isWrite = input.Flag();
  const int32_t offset = input.Flag() ? input.Take<int8_t>() : input.Hostile();
  const int32_t row = input.Flag() ? input.Take<int8_t>() : input.Hostile();
  const int32_t count = input.Flag() ? input.Take<int8_t>() : input.Take<int16_t>() % 4096;
  std::vector<uint8_t> memory(static_cast<size_t>(std::max(count, 0)), input.Take<uint8_t>());
  const std::vector<uint8_t> before = memory;
  if (isWrite) {
    WriteBufferRow(slot, offset, row, count, memory.data());
    if (model == nullptr) return;
    const int32_t whole = std::max(count, 0) / model->pixelBytes * model->pixelBytes;
    for (int32_t i = 0; i < whole; ++i) {
      const int64_t at = PlaceOf(*model, offset, row, i);
      if (at >= 0) model->pixels[static_cast<size_t>(at)] = memory[static_cast<size_t>(i)];
    }
    return;
  }
  ReadBufferRow(slot, offset, row, count, memory.data());
  const int32_t whole = model != nullptr ? count / model->pixelBytes * model->pixelBytes : 0;
  bool isClipped = model == nullptr;
  for (int32_t i = 0; i < whole; ++i) isClipped |= PlaceOf(*model, offset, row, i) < 0;
  // A request of less than a pixel is outside or not by where it begins.
  if (whole == 0 && model != nullptr && count > 0) return;
  for (int32_t i = 0; i < count; ++i) {
    const int64_t at = i < whole ? PlaceOf(*model, offset, row, i) : -1;
    const uint8_t outside = isClipped ? 0 : before[static_cast<size_t>(i)];
    DEMAND(memory[static_cast<size_t>(i)] == (at >= 0 ? model->pixels[static_cast<size_t>(at)] : outside));
  }
}

}  // namespace
}  // namespace tessaline::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  fuzz::Bytes input(bytes, count);
  ResetBufferTable();
  std::map<int32_t, fuzz::Model> models;
  std::vector<std::vector<uint8_t>> callers;  // memory of bound buffers
  while (!input.IsEmpty()) {
    const int32_t action = input.Pick(8);
    const int32_t slot = input.Flag() ? input.Pick(5) : input.Hostile();
    const auto found = models.find(slot);
    int32_t made = 0;
    if (action == 0 || action == 1) {
      const bool isSmall = input.Flag();
      const int32_t width = isSmall ? input.Pick(20) : input.Hostile();
      const int32_t height = isSmall ? input.Pick(20) : input.Hostile();
      const int32_t pixelBytes = isSmall ? input.Pick(17) : input.Hostile();
      const bool isUsable = width > 0 && height > 0 && pixelBytes > 0;
      if (!isSmall && isUsable) continue;  // it may succeed, and costs gigabytes
      if (models.size() > 8) continue;
      const size_t size =
          isUsable ? static_cast<size_t>(width) * static_cast<size_t>(height * pixelBytes) : 0;
      callers.emplace_back(size);
      const int32_t result = action == 0
                                 ? CreateBuffer("fuzz", width, height, pixelBytes, &made)
                                 : BindBuffer(callers.back().data(), width, height, pixelBytes, &made);
      DEMAND((result == kSuccess) == isUsable && (made != 0) == isUsable);
      if (isUsable) models[made] = {width, height, pixelBytes, std::vector<uint8_t>(size)};
    } else if (action == 2) {
      ReleaseBuffer(slot);
      models.erase(slot);
    } else if (action == 3) {
      ClearBuffer(slot);
      if (found != models.end())
        std::fill(found->second.pixels.begin(), found->second.pixels.end(), uint8_t{0});
    } else if (action == 4) {
      const int32_t column = input.Flag() ? input.Pick(30) : input.Hostile();
      std::vector<uint64_t> memory(8 * 20);
      uint64_t* columns[8];
      for (size_t i = 0; i < 8; ++i) columns[i] = memory.data() + 20 * i;
      ReadBufferColumns(slot, column, columns);
      WriteBufferColumns(slot, column, columns);  // the same back
    } else {
      fuzz::ReadAndWrite(input, slot, found != models.end() ? &found->second : nullptr);
    }
  }
  for (const auto& [slot, model] : models) ReleaseBuffer(slot);
  return 0;
}
