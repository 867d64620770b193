#include <cstdint>

#include "platform/memory.h"

namespace tessaline {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kAlignment = 16;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr size_t kAlignment = 16;
#else
constexpr size_t kAlignment = 64;
#endif
#else
constexpr size_t kAlignment = 64;
#endif

}  // namespace

// Before an aligned block stands where the block begins of which it is a part.
void* LockNewAlignedBlock(size_t bytes) {
  if (bytes > SIZE_MAX - kAlignment) return nullptr;
  auto* const whole = static_cast<uint8_t*>(LockNewBlock(bytes + kAlignment));
  if (whole == nullptr) return nullptr;
  uint8_t* const block = whole + (kAlignment - reinterpret_cast<uintptr_t>(whole) % kAlignment);
  reinterpret_cast<void**>(block)[-1] = whole;
  return block;
}

void FreeAlignedBlock(void* block) {
  if (block != nullptr) FreeLockedBlock(static_cast<void**>(block)[-1]);
}

}  // namespace tessaline
