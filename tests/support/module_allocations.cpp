#include "tests/support/module_allocations.h"

#include <link.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Range {
  uintptr_t first = 0, end = 0;
  bool Has(const void* address) const {
    const auto at = reinterpret_cast<uintptr_t>(address);
    return first <= at && at < end;
  }
};
Range module, cxxLibrary;

bool IsWatched(const void* caller) {
  return module.Has(caller) || cxxLibrary.Has(caller);
}

bool EndsIn(const char* path, const char* end) {
  const size_t length = std::strlen(path), tail = std::strlen(end);
  return tail == 0 ? length == 0 : length >= tail && std::strcmp(path + length - tail, end) == 0;
}

Range RangeOf(const dl_phdr_info& file) {
  Range range;
  for (int i = 0; i < file.dlpi_phnum; ++i) {
    const ElfW(Phdr)& part = file.dlpi_phdr[i];
    if (part.p_type != PT_LOAD) continue;
    if (range.end == 0) range.first = file.dlpi_addr + part.p_vaddr;
    range.end = file.dlpi_addr + part.p_vaddr + part.p_memsz;
  }
  return range;
}

}  // namespace

bool tessaline::FailAllocationsOfModule(const char* file) {
  struct Search {
    const char* file;
    Range found;
  } search = {file, {}};
  const auto look = [](dl_phdr_info* info, size_t, void* user) {
    auto* const wanted = static_cast<Search*>(user);
    if (wanted->found.end == 0 && EndsIn(info->dlpi_name, wanted->file)) wanted->found = RangeOf(*info);
    if (std::strstr(info->dlpi_name, "/libstdc++.so") != nullptr) cxxLibrary = RangeOf(*info);
    return 0;
  };
  dl_iterate_phdr(look, &search);
  if (search.found.end == 0) return false;
  module = search.found;
  FailAllocationsOnlyOf(IsWatched);
  return true;
}

// By which the engine takes its blocks.
#ifdef __SANITIZE_ADDRESS__
extern "C" void* __interceptor_calloc(size_t count, size_t bytes);
#define TESSALINE_CALLOC __interceptor_calloc
#else
extern "C" void* __libc_calloc(size_t count, size_t bytes);
#define TESSALINE_CALLOC __libc_calloc
#endif
extern "C" [[gnu::visibility("default")]] void* calloc(size_t count, size_t bytes) noexcept {
  const bool fails =
      module.end != 0 && tessaline::AllocationFailsFor(__builtin_return_address(0), count * bytes);
  return fails ? nullptr : TESSALINE_CALLOC(count, bytes);
}
