#include <cstdio>

#include "platform/message.h"

namespace tessaline {

void ShowPlatformMessage(const char* text, const char* title) {
  std::fprintf(stderr, "%s: %s\n", title, text);
}

}  // namespace tessaline
