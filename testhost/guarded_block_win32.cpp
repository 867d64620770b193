#include <windows.h>

#include <cstdlib>

#include "testhost/guarded_block.h"

namespace tessaline::testhost {

namespace {
constexpr size_t kPage = 4096;
}

GuardedBlock::GuardedBlock(size_t bytes) : pages_((bytes + kPage - 1) / kPage * kPage) {
  start_ = VirtualAlloc(nullptr, pages_ + kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (start_ == nullptr) std::abort();
  DWORD previous = 0;
  if (!VirtualProtect(static_cast<char*>(start_) + pages_, kPage, PAGE_NOACCESS, &previous)) std::abort();
  data_ = static_cast<char*>(start_) + pages_ - bytes;
}

GuardedBlock::~GuardedBlock() {
  VirtualFree(start_, 0, MEM_RELEASE);
}

}  // namespace tessaline::testhost
