// Picture files of every format, damaged in any way: read whole or refused in one line, and what was read is
// written.
#include "tests/fuzz/picture_reading.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  if (count == 0) return 0;
  constexpr const char* kExtensions[] = {"png", "tif", "jpg", "webp", "ppm"};
  // The last byte, so that a picture file is an input as it stands.
  const char* const extension = kExtensions[bytes[count - 1] % std::size(kExtensions)];
  try {
    fuzz::ReadAndWrite(fuzz::FileOf(fuzz::Bytes(bytes, count).Rest()), extension);
  } catch (const cli::Refusal& refusal) {
    DEMAND(std::string(refusal.what()).find('\n') == std::string::npos);
    DEMAND(refusal.status() != cli::ExitStatus::kDone && refusal.status() != cli::ExitStatus::kCannotWrite);
  }
  return 0;
}
