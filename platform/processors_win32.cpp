#include <windows.h>

#include <algorithm>
#include <bit>

#include "platform/parallel.h"

namespace tessaline {

int32_t UsableProcessors() {
  DWORD_PTR process = 0, system = 0;
  if (!GetProcessAffinityMask(GetCurrentProcess(), &process, &system)) return 1;
  return std::max(std::popcount(static_cast<uint64_t>(process)), 1);
}

}  // namespace tessaline
