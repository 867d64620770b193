// What guarded stacks and checked copies ask of a program for Windows: a value that lies between a function's
// arrays and the address it returns to, and an end for the process where it changed. The compiler's own
// library would ask Windows' cryptography for the value, which loads other modules while this one is being
// loaded.
#include <windows.h>

#include <cstdint>
#include <initializer_list>

extern "C" {

uintptr_t __stack_chk_guard = 0;

// Clocks, the process, its thread and where module and stack lie, before any other code of the module runs.
// Not guarded itself, for the value changes under it. Its first byte is zero, which no copy of a text can
// write.
__attribute__((constructor(101), no_stack_protector)) static void MakeStackGuard() {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  LARGE_INTEGER ticks;
  QueryPerformanceCounter(&ticks);
  constexpr uint64_t kSpread = 0x9E3779B97F4A7C15;  // odd, with bits everywhere: no part cancels another
  uint64_t value = 0;
  for (const uint64_t part :
       {uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime, static_cast<uint64_t>(ticks.QuadPart),
        uint64_t{GetCurrentProcessId()} << 32 | GetCurrentThreadId(), uint64_t{__builtin_ia32_rdtsc()},
        reinterpret_cast<uint64_t>(&__stack_chk_guard), reinterpret_cast<uint64_t>(&time)}) {
    value = (value ^ part) * kSpread;
    value ^= value >> 32;
  }
  __stack_chk_guard = value & ~uint64_t{0xFF};
}

// Nothing of the process can be trusted any more: Windows is asked for an end without handlers and words, by
// the number that it has for a stack that was written over.
[[noreturn]] void __stack_chk_fail() {
  asm volatile("int $0x29" : : "c"(2));
  __builtin_unreachable();
}
[[noreturn]] void __chk_fail() {
  __stack_chk_fail();
}
}
