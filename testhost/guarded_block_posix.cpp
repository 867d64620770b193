#include <sys/mman.h>

#include <cstdlib>

#include "testhost/guarded_block.h"

namespace tessaline::testhost {

namespace {
constexpr size_t kPage = 4096;
}

GuardedBlock::GuardedBlock(size_t bytes) : pages_((bytes + kPage - 1) / kPage * kPage) {
  start_ = mmap(nullptr, pages_ + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (start_ == MAP_FAILED) std::abort();
  if (mprotect(static_cast<char*>(start_) + pages_, kPage, PROT_NONE) != 0) std::abort();
  data_ = static_cast<char*>(start_) + pages_ - bytes;
}

GuardedBlock::~GuardedBlock() {
  munmap(start_, pages_ + kPage);
}

}  // namespace tessaline::testhost
