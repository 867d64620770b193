// Arguments, a line each: they become a command, or are refused in one line.
#include <vector>

#include "cli/options.h"
#include "cli/refusal.h"
#include "tests/fuzz/bytes.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline::cli;
  std::string text = tessaline::fuzz::Bytes(bytes, count).Rest();
  std::vector<const char*> arguments = {"tessaline"};
  size_t begin = 0;
  for (size_t i = 0; i <= text.size() && i < 4096; ++i) {
    if (i < text.size() && text[i] != '\n') continue;
    if (i < text.size()) text[i] = '\0';
    if (i > begin) arguments.push_back(text.c_str() + begin);
    begin = i + 1;
  }
  arguments.push_back(nullptr);
  try {
    const Command command = ReadCommandLine(static_cast<int>(arguments.size() - 1), arguments.data());
    if (const auto* const pictures = std::get_if<PictureCommand>(&command)) {
      const tessaline::Settings usable = tessaline::UsableSettings(pictures->settings);
      DEMAND(usable.acceptance == pictures->settings.acceptance);
      DEMAND(usable.notchRadius == pictures->settings.notchRadius);
      DEMAND(usable.protectionRadius == pictures->settings.protectionRadius);
      DEMAND(pictures->isBatch != (pictures->pictures.size() == 1));
      DEMAND(pictures->jobs >= 0 && pictures->threads >= 0);
    } else if (const auto* const stream = std::get_if<StreamCommand>(&command)) {
      DEMAND(stream->width >= 1 && stream->height >= 1 && stream->firstFrame >= 0 && stream->threads >= 0);
    }
  } catch (const Refusal& refusal) {
    DEMAND(refusal.status() != ExitStatus::kDone);
    DEMAND(std::string(refusal.what()).find('\n') == std::string::npos);
  }
  return 0;
}
